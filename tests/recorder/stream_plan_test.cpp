#include "recorder/session/stream_plan.h"

#include <gtest/gtest.h>

namespace lenswire::recorder {
namespace {

using namespace std::chrono_literals;
using Action = StreamPlan::Action;
using State = StreamPlan::State;
using Time = StreamPlan::Time;

constexpr int kRefused = -4;
constexpr int kUnreachable = -3;

// A plan and a clock that goes to the plan's next step.
class StreamPlanTest : public testing::Test {
  protected:
    // What is next, and how long after the step before.
    void expect(Action action, StreamPlan::Clock::duration delay) {
        EXPECT_EQ(plan.action(), action);
        EXPECT_EQ(plan.due() - now, delay);
        now = std::max(now, plan.due());
    }
    void stream() {
        plan.login_ended(StreamPlan::kLoggedIn, now);
        plan.invitation_ended(true, now);
        ASSERT_EQ(plan.state(), State::kStreaming);
    }

    const Time start = Time{} + 1000s;
    Time now = start;
    StreamPlan plan{start};
};

TEST_F(StreamPlanTest, LogsInInvitesAndThenLooksAfterTheConnection) {
    expect(Action::kLogin, 0s);
    plan.login_ended(StreamPlan::kLoggedIn, now);
    expect(Action::kInvite, 0s);
    plan.invitation_ended(true, now);
    EXPECT_TRUE(plan.ever_streamed());
    for (int i = 0; i < 3; ++i) {
        expect(Action::kCheck, 2s);
        plan.control_checked(true, now);
    }
    EXPECT_EQ(plan.restarts(), 0u);
}

TEST_F(StreamPlanTest, BacksOffFromAnUnreachableCameraAndForgetsItAfterALogin) {
    for (const auto delay : {1s, 2s, 4s, 8s, 8s}) {
        plan.login_ended(kUnreachable, now);
        EXPECT_EQ(plan.state(), State::kUnreachable);
        expect(Action::kLogin, delay);
    }
    stream();
    plan.control_checked(false, now);
    plan.login_ended(kUnreachable, now);
    expect(Action::kLogin, 1s);
}

TEST_F(StreamPlanTest, IsPatientWithARefusalUnlessTheCameraIsKnownToTakeTheCredentials) {
    plan.login_ended(kRefused, now);
    EXPECT_EQ(plan.state(), State::kRefused);
    expect(Action::kLogin, 30s);
    stream();
    plan.control_checked(false, now);
    plan.login_ended(kRefused, now);
    expect(Action::kLogin, 1s);
}

TEST_F(StreamPlanTest, InvitesAtOnceAfterARestartAndSlowerWhenTheyFollowEachOther) {
    stream();
    now += 60s;
    for (const auto delay : {0s, 1s, 2s, 4s, 8s, 8s}) {
        plan.restart_wanted(now);
        EXPECT_EQ(plan.state(), State::kRestarting);
        expect(Action::kInvite, delay);
        plan.invitation_ended(true, now);
    }
    EXPECT_EQ(plan.restarts(), 6u);
    now += 16s;
    plan.restart_wanted(now);
    expect(Action::kInvite, 0s);
}

TEST_F(StreamPlanTest, CountsARestartOnceAndOnlyOfAStreamThatRuns) {
    plan.restart_wanted(now);
    EXPECT_EQ(plan.restarts(), 0u);
    stream();
    plan.restart_wanted(now);
    plan.restart_wanted(now);
    EXPECT_EQ(plan.restarts(), 1u);
}

TEST_F(StreamPlanTest, LogsInAnewOnlyAfterSeveralInvitationsFailed) {
    plan.login_ended(StreamPlan::kLoggedIn, now);
    plan.invitation_ended(false, now);
    expect(Action::kInvite, 500ms);
    plan.invitation_ended(false, now);
    expect(Action::kLogin, 1s);
    plan.login_ended(StreamPlan::kLoggedIn, now);
    expect(Action::kInvite, 0s);
}

TEST_F(StreamPlanTest, KeepsTheStreamWhileALostControlConnectionIsLoggedInAgain) {
    stream();
    now = plan.due();
    plan.control_checked(false, now);
    expect(Action::kLogin, 0s);
    EXPECT_EQ(plan.state(), State::kStreaming);
    plan.login_ended(StreamPlan::kLoggedIn, now);
    EXPECT_EQ(plan.state(), State::kStreaming);
    expect(Action::kCheck, 2s);
}

TEST_F(StreamPlanTest, TakesARestartThatComesWhileItLogsInOrLooksAtTheConnection) {
    stream();
    plan.control_checked(false, now);
    plan.restart_wanted(now);
    plan.login_ended(StreamPlan::kLoggedIn, now);
    expect(Action::kInvite, 0s);
    plan.invitation_ended(true, now);
    plan.restart_wanted(now);
    const Time due = plan.due();
    plan.control_checked(true, now);
    EXPECT_EQ(plan.due(), due) << "the look does not shorten the back-off";
    EXPECT_EQ(plan.action(), Action::kInvite);
}

}  // namespace
}  // namespace lenswire::recorder
