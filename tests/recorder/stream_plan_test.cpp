#include "recorder/session/stream_plan.h"

#include <gtest/gtest.h>

#include <vector>

namespace lenswire::recorder {
namespace {

using namespace std::chrono_literals;
using Action = StreamPlan::Action;
using State = StreamPlan::State;
using Duration = StreamPlan::Clock::duration;
using enum StreamPlan::Action;
using enum StreamPlan::State;

enum Event { kLoggedIn, kRefusedLogin, kNoCamera, kInvited, kNotInvited, kAlive, kLost, kRestart };

// What happened, and what the plan makes of it. It happens when the step before is due, or `after` it.
struct Step {
    Event event;
    Action action;
    Duration delay;
    State state;
    Duration after = -1s;
};
struct Story {
    const char* name;
    std::vector<Step> steps;
    unsigned restarts = 0;
};

void tell(StreamPlan& plan, Event event, StreamPlan::Time now) {
    switch (event) {
        case kLoggedIn:
            return plan.login_ended(0, now);
        case kRefusedLogin:
            return plan.login_ended(-4, now);
        case kNoCamera:
            return plan.login_ended(-3, now);
        case kInvited:
        case kNotInvited:
            return plan.invitation_ended(event == kInvited, now);
        case kAlive:
        case kLost:
            return plan.control_checked(event == kAlive, now);
        case kRestart:
            return plan.restart_wanted(now);
    }
}

constexpr Step kLogsIn = {kLoggedIn, kInvite, 0s, kInviting};
constexpr Step kStreams = {kInvited, kCheck, 2s, kStreaming};
const Story kStories[] = {
    {"logs in, invites and then looks after the connection",
     {kLogsIn, kStreams, {kAlive, kCheck, 2s, kStreaming}, {kAlive, kCheck, 2s, kStreaming}}},
    {"backs off from an unreachable camera and forgets it after a login",
     {{kNoCamera, kLogin, 1s, kUnreachable},
      {kNoCamera, kLogin, 2s, kUnreachable},
      {kNoCamera, kLogin, 4s, kUnreachable},
      {kNoCamera, kLogin, 8s, kUnreachable},
      {kNoCamera, kLogin, 8s, kUnreachable},
      kLogsIn,
      kStreams,
      {kLost, kLogin, 0s, kStreaming},
      {kNoCamera, kLogin, 1s, kUnreachable}}},
    {"is patient with a refusal unless the camera is known to take the credentials",
     {{kRefusedLogin, kLogin, 30s, kRefused},
      {kRefusedLogin, kLogin, 30s, kRefused},
      kLogsIn,
      kStreams,
      {kLost, kLogin, 0s, kStreaming},
      {kRefusedLogin, kLogin, 1s, kRefused},
      {kRefusedLogin, kLogin, 2s, kRefused}}},
    {"invites at once after a restart and slower when they follow each other",
     {kLogsIn,
      kStreams,
      {kRestart, kInvite, 0s, kRestarting},
      kStreams,
      {kRestart, kInvite, 1s, kRestarting},
      kStreams,
      {kRestart, kInvite, 2s, kRestarting},
      kStreams,
      {kRestart, kInvite, 4s, kRestarting, 10s},
      kStreams,
      {kRestart, kInvite, 8s, kRestarting, 10s},
      kStreams,
      {kRestart, kInvite, 8s, kRestarting, 6s},
      kStreams,
      {kRestart, kInvite, 0s, kRestarting, 7s},  // 15 seconds after the one before
      kStreams,
      {kRestart, kInvite, 1s, kRestarting}},
     8},
    {"counts a restart once and only of a stream that runs",
     {{kRestart, kLogin, 0s, kConnecting},
      kLogsIn,
      kStreams,
      {kRestart, kInvite, 0s, kRestarting},
      {kRestart, kInvite, 0s, kRestarting}},
     1},
    {"logs in anew only after several invitations failed in a row",
     {kLogsIn,
      {kNotInvited, kInvite, 500ms, kInviting},
      kStreams,
      {kRestart, kInvite, 0s, kRestarting},
      {kNotInvited, kInvite, 500ms, kInviting},
      {kNotInvited, kLogin, 1s, kInviting},
      kLogsIn,
      {kNotInvited, kInvite, 500ms, kInviting}},
     1},
    {"keeps the stream while a lost control connection is logged in again",
     {kLogsIn, kStreams, {kLost, kLogin, 0s, kStreaming}, {kLoggedIn, kCheck, 2s, kStreaming}}},
    {"connects anew when the control connection is lost before the stream",
     {kLogsIn, {kLost, kLogin, 0s, kConnecting}}},
    {"takes a restart that comes while it logs in, and no look shortens the back-off",
     {kLogsIn,
      kStreams,
      {kLost, kLogin, 0s, kStreaming},
      {kRestart, kLogin, 0s, kRestarting},
      {kLoggedIn, kInvite, 0s, kInviting},
      kStreams,
      {kRestart, kInvite, 1s, kRestarting, 0s},
      {kAlive, kInvite, 1s, kRestarting, 0s}},
     2},
};

TEST(StreamPlan, GoesOnAsEachStoryTells) {
    for (const Story& story : kStories) {
        auto now = StreamPlan::Time{} + 1000s;
        StreamPlan plan(now);
        bool tried = false, streamed = false;
        for (const Step& step : story.steps) {
            SCOPED_TRACE(testing::Message() << story.name << ", step " << &step - story.steps.data() + 1);
            now = step.after < 0s ? std::max(now, plan.due()) : now + step.after;
            tell(plan, step.event, now);
            tried |= step.event <= kNoCamera;
            streamed |= step.event == kInvited;
            EXPECT_EQ(plan.action(), step.action);
            EXPECT_EQ(plan.due() - now, step.delay);
            EXPECT_EQ(plan.state(), step.state);
            EXPECT_EQ(plan.login_tried(), tried);
            EXPECT_EQ(plan.ever_streamed(), streamed);
        }
        EXPECT_EQ(plan.restarts(), story.restarts) << story.name;
    }
}

}  // namespace
}  // namespace lenswire::recorder
