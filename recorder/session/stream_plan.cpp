#include "recorder/session/stream_plan.h"

#include <algorithm>

namespace lenswire::recorder {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr auto kCheckInterval = seconds(2);
constexpr auto kLongestDelay = seconds(8);
constexpr auto kRefusedDelay = seconds(30);  // cameras lock out who keeps trying
constexpr auto kInviteDelay = milliseconds(500);
constexpr auto kQuick = seconds(15);  // a stream that lasts shorter is not sound
constexpr unsigned kInvitations = 2;  // before a new login

// 1, 2, 4, 8, 8, ... seconds for 1, 2, 3, ... failures in a row.
StreamPlan::Clock::duration back_off(unsigned failures) {
    return std::min<StreamPlan::Clock::duration>(seconds(1) * (1u << std::min(failures - 1, 10u)),
                                                 kLongestDelay);
}

}  // namespace

StreamPlan::Action StreamPlan::action() const {
    if (!logged_in_) return Action::kLogin;
    return streaming_ ? Action::kCheck : Action::kInvite;
}

void StreamPlan::login_ended(int result, Time now) {
    login_tried_ = true;
    logged_in_ = result == kLoggedIn;
    if (logged_in_) {
        failed_logins_ = 0;
        state_ = streaming_ ? State::kStreaming : State::kInviting;
        due_ = streaming_ ? now + kCheckInterval : now;
        return;
    }
    const bool refused = StreamPlan::refused(result);
    state_ = refused ? State::kRefused : State::kUnreachable;
    // A camera that has been recorded is known to take these credentials.
    due_ = now + (refused && !ever_streamed_ ? kRefusedDelay : back_off(++failed_logins_));
}

void StreamPlan::invitation_ended(bool invited, Time now) {
    streaming_ = invited;
    if (invited) {
        failed_invitations_ = 0;
        ever_streamed_ = true;
        state_ = State::kStreaming;
        due_ = now + kCheckInterval;
        return;
    }
    state_ = State::kInviting;
    due_ = now + kInviteDelay;
    if (++failed_invitations_ < kInvitations) return;
    failed_invitations_ = 0;
    logged_in_ = false;
    due_ = now + back_off(++failed_logins_);
}

void StreamPlan::control_checked(bool alive, Time now) {
    logged_in_ = alive;
    if (!alive && !streaming_) state_ = State::kConnecting;
    if (!alive) due_ = now;
    if (alive && streaming_) due_ = now + kCheckInterval;
}

void StreamPlan::restart_wanted(Time now) {
    if (!streaming_) return;
    streaming_ = false;
    ++restarts_;
    state_ = State::kRestarting;
    due_ = now + restart_delay(now);
    last_restart_ = now;
}

StreamPlan::Clock::duration StreamPlan::restart_delay(Time now) {
    const bool quick = restarts_ > 1 && now - last_restart_ < kQuick;
    quick_restarts_ = quick ? quick_restarts_ + 1 : 0;
    return quick ? back_off(quick_restarts_) : Clock::duration{0};
}

}  // namespace lenswire::recorder
