#include "recorder/session/stream_plan.h"

#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "recorder/session/supervisor.h"

namespace lenswire::recorder {
namespace {

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

}  // namespace
}  // namespace lenswire::recorder
