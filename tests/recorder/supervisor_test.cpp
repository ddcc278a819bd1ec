// How a stream is kept going: the plan of its steps, and the supervisor that walks the plans of all.
#include "recorder/session/supervisor.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <map>
#include <semaphore>
#include <sstream>

namespace lenswire::recorder {
namespace {

using namespace std::chrono_literals;

using Time = StreamPlan::Time;
using std::chrono::milliseconds;

const std::map<std::string, void (*)(StreamPlan&, Time)> kEvents = {
    {"login", [](StreamPlan& plan, Time now) { plan.login_ended(0, now); }},
    {"refused", [](StreamPlan& plan, Time now) { plan.login_ended(-4, now); }},
    {"no-camera", [](StreamPlan& plan, Time now) { plan.login_ended(-3, now); }},
    {"invited", [](StreamPlan& plan, Time now) { plan.invitation_ended(true, now); }},
    {"not-invited", [](StreamPlan& plan, Time now) { plan.invitation_ended(false, now); }},
    {"alive", [](StreamPlan& plan, Time now) { plan.control_checked(true, now); }},
    {"lost", [](StreamPlan& plan, Time now) { plan.control_checked(false, now); }},
    {"restart", [](StreamPlan& plan, Time now) { plan.restart_wanted(now); }}};

// Steps as EVENT:ACTION@MS=STATE: what happened, what the plan does next, after how long, and where it stands
// until then. A step happens when the one before is due, or EVENT+MS that long after it happened.
struct Story {
    const char* steps;
    unsigned restarts = 0;
};
#define STREAMS "login:invite@0=inviting invited:check@2000=streaming "
const Story kStories[] = {
    {STREAMS "alive:check@2000=streaming alive:check@2000=streaming"},
    // Backs off from an unreachable camera and forgets it after a login.
    {"no-camera:login@1000=unreachable no-camera:login@2000=unreachable no-camera:login@4000=unreachable "
     "no-camera:login@8000=unreachable no-camera:login@8000=unreachable " STREAMS
     "lost:login@0=streaming no-camera:login@1000=unreachable"},
    // Is patient with a refusal unless the camera is known to take the credentials.
    {"refused:login@30000=refused refused:login@30000=refused " STREAMS
     "lost:login@0=streaming refused:login@1000=refused refused:login@2000=refused"},
    // Invites at once after a restart and slower when they follow each other within 15 seconds.
    {STREAMS "restart:invite@0=restarting invited:check@2000=streaming "
             "restart:invite@1000=restarting invited:check@2000=streaming "
             "restart+13999:invite@2000=restarting invited:check@2000=streaming "
             "restart:invite@4000=restarting invited:check@2000=streaming "
             "restart:invite@8000=restarting invited:check@2000=streaming "
             "restart:invite@8000=restarting invited:check@2000=streaming "
             "restart+7000:invite@0=restarting invited:check@2000=streaming restart:invite@1000=restarting",
     8},
    // Counts a restart once and only of a stream that runs.
    {"restart:login@0=connecting " STREAMS "restart:invite@0=restarting restart:invite@0=restarting", 1},
    // Logs in anew only after several invitations failed in a row.
    {"login:invite@0=inviting not-invited:invite@500=inviting invited:check@2000=streaming "
     "restart:invite@0=restarting not-invited:invite@500=inviting not-invited:login@1000=inviting "
     "login:invite@0=inviting not-invited:invite@500=inviting",
     1},
    // Keeps the stream while a lost control connection is logged in again, and without a stream connects
    // anew.
    {STREAMS "lost:login@0=streaming login:check@2000=streaming"},
    {"login:invite@0=inviting lost:login@0=connecting"},
    // Takes a restart that comes while it logs in; a look does not shorten the back-off.
    {STREAMS "lost:login@0=streaming restart:login@0=restarting login:invite@0=inviting "
             "invited:check@2000=streaming restart+0:invite@1000=restarting alive+0:invite@1000=restarting",
     2}};

TEST(StreamPlan, GoesOnAsEachStoryTells) {
    const std::string actions[] = {"login", "invite", "check"};
    for (const Story& story : kStories) {
        SCOPED_TRACE(story.steps);
        Time now = Time{} + std::chrono::hours(1);
        StreamPlan plan(now);
        std::istringstream steps(story.steps);
        for (std::string step; steps >> step;) {
            const size_t colon = step.find(':'), plus = std::min(step.find('+'), colon);
            now = plus < colon ? now + milliseconds(std::stoi(step.substr(plus + 1)))
                               : std::max(now, plan.due());
            kEvents.at(step.substr(0, plus))(plan, now);
            const auto delay = std::chrono::duration_cast<milliseconds>(plan.due() - now).count();
            EXPECT_EQ(actions[static_cast<int>(plan.action())] + "@" + std::to_string(delay) + "=" +
                          state_name(plan.state()),
                      step.substr(colon + 1));
        }
        EXPECT_EQ(plan.restarts(), story.restarts);
    }
}

// A camera that does what it is told and says when something was done with it.
class FakeLink : public StreamLink {
  public:
    explicit FakeLink(int channel) : channel_(channel) {}
    int channel() const override { return channel_; }
    int stream() const override { return 0; }
    int login(bool first) override {
        EXPECT_EQ(first, logins == 0);
        alive = true;
        act(logins, on_login);
        return login_result;
    }
    bool invite() override { return act(invitations, on_invite); }
    void open() override {
        act(opens, on_open);
        opened.release();
    }
    bool control_alive() override { return !inside_ && alive; }

    std::atomic<int> logins{0}, invitations{0}, opens{0}, login_result{0};
    std::atomic<bool> alive{false};
    std::function<void()> on_login = [] {}, on_invite = [] {}, on_open = [] {};
    std::counting_semaphore<> opened{0};

  private:
    // Only one thread at a time has business here.
    bool act(std::atomic<int>& count, const std::function<void()>& then) {
        EXPECT_FALSE(inside_.exchange(true));
        ++count;
        then();
        inside_ = false;
        return true;
    }
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

// The first is at it until it is released, and the last does not answer.
TEST_F(SupervisorTest, ServesTheOthersWhileOneCameraKeepsItsThreadBusy) {
    FakeLink& busy = make(4);
    std::binary_semaphore release(0), tried(0);
    busy.on_login = [&release] { release.acquire(); };
    fakes_[3]->login_result = -3;
    fakes_[3]->on_login = [&tried] { tried.release(); };
    supervisor_->start(2);
    ASSERT_TRUE(opened(1) && opened(2) && tried.try_acquire_for(10s));
    supervisor_->restart_wanted(2, 7);  // no such stream
    supervisor_->restart_wanted(2, 0);
    ASSERT_TRUE(opened(2));
    EXPECT_EQ(busy.opens, 0);
    EXPECT_FALSE(supervisor_->view(0).login_tried);
    release.release();
    ASSERT_TRUE(opened(0));
    expect(0, 1, 1, 1, 0);
    expect(1, 1, 1, 1, 0);
    expect(2, 1, 2, 2, 1);
    const Supervisor::View view = supervisor_->view(3);
    EXPECT_EQ(view.state, StreamPlan::State::kUnreachable);
    EXPECT_EQ(view.login_result, -3);
    EXPECT_TRUE(view.login_tried && !view.ever_streamed);
}

// A camera takes its control connection along; it forgets the login while it is invited, as one does that is
// switched off and on again at that moment; the receive loop gives a stream up in the moment it was handed
// over.
TEST_F(SupervisorTest, GoesOnWithACameraThatIsLostAtAnyMoment) {
    const struct {
        std::function<void()> FakeLink::*moment;
        bool is_lost, restarts;
        int logins, invitations, opens;
    } cases[] = {{&FakeLink::on_open, true, true, 2, 2, 2},
                 {&FakeLink::on_invite, true, false, 2, 2, 1},
                 {&FakeLink::on_open, false, true, 1, 2, 2}};
    for (const auto& row : cases) {
        fakes_.clear();
        FakeLink& fake = make(1);
        fake.*row.moment = [&] {
            if (fake.invitations > 1) return;
            if (row.is_lost) fake.alive = false;
            if (row.restarts) supervisor_->restart_wanted(0, 0);
        };
        supervisor_->start(2);
        for (int i = 0; i < row.opens; ++i) ASSERT_TRUE(opened(0));
        expect(0, row.logins, row.invitations, row.opens, static_cast<unsigned>(row.opens) - 1);
    }
}

}  // namespace
}  // namespace lenswire::recorder
