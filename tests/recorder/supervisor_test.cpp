#include "recorder/session/supervisor.h"

#include <gmock/gmock.h>
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
    int login(bool) override {
        Inside inside(*this);
        ++logins;
        alive = true;
        on_login();
        return login_result;
    }
    bool invite() override {
        Inside inside(*this);
        ++invitations;
        on_invite();
        return true;
    }
    void open() override {
        Inside inside(*this);
        ++opens;
        opened.release();
        on_open();
    }
    bool control_alive() override {
        Inside inside(*this);
        return alive;
    }

    std::atomic<int> logins{0}, invitations{0}, opens{0}, login_result{0};
    std::atomic<bool> alive{false}, entered_twice{false};
    std::function<void()> on_login = [] {}, on_invite = [] {}, on_open = [] {};
    std::counting_semaphore<> opened{0};

  private:
    struct Inside {
        explicit Inside(FakeLink& link) : link(link) {
            if (link.inside_.exchange(true)) link.entered_twice = true;
        }
        ~Inside() { link.inside_ = false; }
        FakeLink& link;
    };
    int channel_;
    std::atomic<bool> inside_{false};
};

class SupervisorTest : public testing::Test {
  protected:
    void make(int count) {
        std::vector<std::unique_ptr<StreamLink>> links;
        for (int i = 0; i < count; ++i) {
            auto link = std::make_unique<FakeLink>(i);
            fakes_.push_back(link.get());
            links.push_back(std::move(link));
        }
        supervisor_.emplace(std::move(links));
    }
    bool opened(int index) { return fakes_[index]->opened.try_acquire_for(10s); }

    std::vector<FakeLink*> fakes_;
    std::optional<Supervisor> supervisor_;
};

TEST_F(SupervisorTest, BringsEveryStreamUpWithFewThreads) {
    make(20);
    supervisor_->start(3);
    for (int i = 0; i < 20; ++i) EXPECT_TRUE(opened(i)) << i;
    supervisor_->stop();
    for (const FakeLink* fake : fakes_) EXPECT_EQ(fake->logins, 1);
}

TEST_F(SupervisorTest, InvitesOnlyTheStreamThatWantsARestart) {
    make(3);
    supervisor_->start(2);
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(opened(i));
    supervisor_->restart_wanted(1, 0);
    supervisor_->restart_wanted(1, 7);  // no such stream
    ASSERT_TRUE(opened(1));
    supervisor_->stop();
    EXPECT_EQ(fakes_[0]->invitations, 1);
    EXPECT_EQ(fakes_[1]->invitations, 2);
    EXPECT_EQ(fakes_[1]->logins, 1) << "its control connection was sound";
    EXPECT_EQ(supervisor_->view(1).restarts, 1u);
    EXPECT_EQ(supervisor_->view(2).restarts, 0u);
}

TEST_F(SupervisorTest, LogsInFirstWhenTheCameraTookTheControlConnectionAlong) {
    make(1);
    supervisor_->start(1);
    ASSERT_TRUE(opened(0));
    fakes_[0]->alive = false;
    supervisor_->restart_wanted(0, 0);
    ASSERT_TRUE(opened(0));
    supervisor_->stop();
    EXPECT_EQ(fakes_[0]->logins, 2);
    EXPECT_EQ(fakes_[0]->invitations, 2) << "none over the dead connection";
}

// As one does that is switched off and on again at that moment.
TEST_F(SupervisorTest, OpensNoStreamOfACameraThatForgotTheLoginMeanwhile) {
    make(1);
    fakes_[0]->on_invite = [this] {
        if (fakes_[0]->invitations == 1) fakes_[0]->alive = false;
    };
    supervisor_->start(1);
    ASSERT_TRUE(opened(0));
    supervisor_->stop();
    EXPECT_EQ(fakes_[0]->logins, 2);
    EXPECT_EQ(fakes_[0]->opens, 1);
}

// The receive loop may give a stream up in the moment it was handed over.
TEST_F(SupervisorTest, MissesNoRestartThatComesFromInsideTheOpenRequest) {
    make(1);
    fakes_[0]->on_open = [this] {
        if (fakes_[0]->opens == 1) supervisor_->restart_wanted(0, 0);
    };
    supervisor_->start(2);
    EXPECT_TRUE(opened(0));
    EXPECT_TRUE(opened(0));
    supervisor_->stop();
    EXPECT_FALSE(fakes_[0]->entered_twice);
}

TEST_F(SupervisorTest, ServesOthersWhileOneCameraKeepsItsThreadBusy) {
    make(3);
    std::binary_semaphore release(0);
    fakes_[0]->on_login = [&release] { release.acquire(); };
    supervisor_->start(2);
    EXPECT_TRUE(opened(1));
    EXPECT_TRUE(opened(2));
    supervisor_->restart_wanted(2, 0);
    EXPECT_TRUE(opened(2));
    EXPECT_EQ(fakes_[0]->opens, 0);
    release.release();
    EXPECT_TRUE(opened(0));
    supervisor_->stop();
    for (const FakeLink* fake : fakes_) EXPECT_FALSE(fake->entered_twice);
}

TEST_F(SupervisorTest, ReportsHowALoginEnded) {
    make(1);
    fakes_[0]->login_result = -3;
    std::binary_semaphore tried(0);
    fakes_[0]->on_login = [&tried] { tried.release(); };
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
