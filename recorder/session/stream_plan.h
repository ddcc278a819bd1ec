// What to do next for one stream: log in, invite, look after the connection, and how long to wait before
// each. Pure: it is told what happened and at what time.
//
// The control connection (login, heartbeats) and the stream (invitation, restarts) live and fail apart: a
// lost control connection is logged in again while the stream goes on, and a failed stream is invited again
// over the control connection it has. Only a stream whose invitations keep failing takes a new login.
#pragma once

#include <chrono>

namespace lenswire::recorder {

class StreamPlan {
  public:
    using Clock = std::chrono::steady_clock;
    using Time = Clock::time_point;

    enum class Action { kLogin, kInvite, kCheck };
    enum class State { kConnecting, kInviting, kStreaming, kRestarting, kUnreachable, kRefused };

    // A login that was not answered and one that was refused; see LoginResult.
    static constexpr int kLoggedIn = 0;
    static constexpr int kLoginUnanswered = -4;
    static constexpr int kLoginDenied = -5;
    static bool refused(int result) { return result == kLoginUnanswered || result == kLoginDenied; }

    explicit StreamPlan(Time start) : due_(start) {}

    Action action() const;
    Time due() const { return due_; }
    State state() const { return state_; }
    bool login_tried() const { return login_tried_; }
    bool ever_streamed() const { return ever_streamed_; }
    unsigned restarts() const { return restarts_; }

    void login_ended(int result, Time now);
    void invitation_ended(bool invited, Time now);
    void control_checked(bool alive, Time now);
    void restart_wanted(Time now);

  private:
    Clock::duration restart_delay(Time now);

    bool logged_in_ = false;
    bool streaming_ = false;
    bool login_tried_ = false;
    bool ever_streamed_ = false;
    State state_ = State::kConnecting;
    Time due_;
    unsigned failed_logins_ = 0;
    unsigned failed_invitations_ = 0;
    unsigned restarts_ = 0;
    unsigned quick_restarts_ = 0;  // in a row
    Time last_restart_{};
};

}  // namespace lenswire::recorder
