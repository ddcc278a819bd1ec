#include "recorder/session/supervisor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <semaphore>

namespace lenswire::recorder {
namespace {

using namespace std::chrono_literals;

// A camera that does what it is told and says when something was done with it.
class FakeLink : public StreamLink {
  public:
    explicit FakeLink(int channel) : channel_(channel) {}
    int channel() const override { return channel_; }
    int stream() const override { return 0; }
    int login(bool first) override {
        const Inside inside(*this);
        EXPECT_EQ(first, logins++ == 0);
        alive = true;
        on_login();
        return login_result;
    }
    bool invite() override {
        const Inside inside(*this);
        ++invitations;
        on_invite();
        return true;
    }
    void open() override {
        const Inside inside(*this);
        ++opens;
        opened.release();
        on_open();
    }
    bool control_alive() override {
        const Inside inside(*this);
        return alive;
    }

    std::atomic<int> logins{0}, invitations{0}, opens{0}, login_result{0};
    std::atomic<bool> alive{false};
    std::function<void()> on_login = [] {}, on_invite = [] {}, on_open = [] {};
    std::counting_semaphore<> opened{0};

  private:
    // Only one thread at a time has business here.
    struct Inside {
        explicit Inside(FakeLink& link) : link(link) { EXPECT_FALSE(link.inside_.exchange(true)); }
        ~Inside() { link.inside_ = false; }
        FakeLink& link;
    };
    int channel_;
    std::atomic<bool> inside_{false};
};

class SupervisorTest : public testing::Test {
  protected:
    FakeLink& make(int count) {
        std::vector<std::unique_ptr<StreamLink>> links;
        for (int i = 0; i < count; ++i) {
            auto link = std::make_unique<FakeLink>(i);
            fakes_.push_back(link.get());
            links.push_back(std::move(link));
        }
        supervisor_.emplace(std::move(links));
        return *fakes_[0];
    }
    bool opened(int index) { return fakes_[index]->opened.try_acquire_for(10s); }
    // What was done with a camera, once nothing is done any more.
    void expect(int index, int logins, int invitations, int opens, unsigned restarts) {
        supervisor_->stop();
        const FakeLink& fake = *fakes_[index];
        EXPECT_EQ(std::tuple(fake.logins.load(), fake.invitations.load(), fake.opens.load()),
                  std::tuple(logins, invitations, opens))
            << "camera " << index;
        EXPECT_EQ(supervisor_->view(index).restarts, restarts) << "camera " << index;
    }

    std::vector<FakeLink*> fakes_;
    std::optional<Supervisor> supervisor_;
};

TEST_F(SupervisorTest, BringsEveryStreamUpWithFewThreads) {
    make(20);
    supervisor_->start(3);
    for (int i = 0; i < 20; ++i) EXPECT_TRUE(opened(i)) << i;
    for (int i = 0; i < 20; ++i) expect(i, 1, 1, 1, 0);
}

TEST_F(SupervisorTest, InvitesOnlyTheStreamThatWantsARestart) {
    make(3);
    supervisor_->start(2);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(opened(i));
    supervisor_->restart_wanted(1, 7);  // no such stream
    supervisor_->restart_wanted(1, 0);
    ASSERT_TRUE(opened(1));
    expect(0, 1, 1, 1, 0);
    expect(1, 1, 2, 2, 1);
    expect(2, 1, 1, 1, 0);
}

TEST_F(SupervisorTest, LogsInFirstWhenTheCameraTookTheControlConnectionAlong) {
    FakeLink& fake = make(1);
    supervisor_->start(1);
    ASSERT_TRUE(opened(0));
    fake.alive = false;
    supervisor_->restart_wanted(0, 0);
    ASSERT_TRUE(opened(0));
    expect(0, 2, 2, 2, 1);
}

// As one does that is switched off and on again at that moment.
TEST_F(SupervisorTest, OpensNoStreamOfACameraThatForgotTheLoginMeanwhile) {
    FakeLink& fake = make(1);
    fake.on_invite = [&fake] {
        if (fake.invitations == 1) fake.alive = false;
    };
    supervisor_->start(1);
    ASSERT_TRUE(opened(0));
    expect(0, 2, 2, 1, 0);
}

// The receive loop may give a stream up in the moment it was handed over.
TEST_F(SupervisorTest, MissesNoRestartThatComesFromInsideTheOpenRequest) {
    FakeLink& fake = make(1);
    fake.on_open = [this, &fake] {
        if (fake.opens == 1) supervisor_->restart_wanted(0, 0);
    };
    supervisor_->start(2);
    ASSERT_TRUE(opened(0) && opened(0));
    expect(0, 1, 2, 2, 1);
}

TEST_F(SupervisorTest, ServesOthersWhileOneCameraKeepsItsThreadBusy) {
    FakeLink& busy = make(3);
    std::binary_semaphore release(0);
    busy.on_login = [&release] { release.acquire(); };
    supervisor_->start(2);
    ASSERT_TRUE(opened(1) && opened(2));
    supervisor_->restart_wanted(2, 0);
    ASSERT_TRUE(opened(2));
    EXPECT_EQ(busy.opens, 0);
    release.release();
    ASSERT_TRUE(opened(0));
    expect(0, 1, 1, 1, 0);
}

TEST_F(SupervisorTest, ReportsHowALoginEnded) {
    FakeLink& fake = make(1);
    fake.login_result = -3;
    std::binary_semaphore tried(0);
    fake.on_login = [&tried] { tried.release(); };
    EXPECT_FALSE(supervisor_->view(0).login_tried);
    supervisor_->start(1);
    ASSERT_TRUE(tried.try_acquire_for(10s));
    supervisor_->stop();
    const Supervisor::View view = supervisor_->view(0);
    EXPECT_EQ(view.state, StreamPlan::State::kUnreachable);
    EXPECT_EQ(view.login_result, -3);
    EXPECT_TRUE(view.login_tried);
    EXPECT_FALSE(view.ever_streamed);
}

}  // namespace
}  // namespace lenswire::recorder
