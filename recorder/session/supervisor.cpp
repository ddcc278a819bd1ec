#include "recorder/session/supervisor.h"

#include <algorithm>

namespace lenswire::recorder {

using Time = StreamPlan::Time;

Supervisor::Supervisor(std::vector<std::unique_ptr<StreamLink>> links) {
    const Time now = StreamPlan::Clock::now();
    for (auto& link : links) sessions_.push_back({.link = std::move(link), .plan = StreamPlan(now)});
}

Supervisor::~Supervisor() {
    stop();
}

void Supervisor::start(int threads) {
    for (int i = 0; i < threads; ++i) threads_.emplace_back([this] { work(); });
}

void Supervisor::stop() {
    {
        const std::lock_guard lock(mutex_);
        stop_ = true;
    }
    wake_.notify_all();
    for (std::thread& thread : threads_) thread.join();
    threads_.clear();
}

void Supervisor::restart_wanted(int channel, int stream) {
    {
        const std::lock_guard lock(mutex_);
        for (Session& session : sessions_) {
            if (session.link->channel() != channel || session.link->stream() != stream) continue;
            session.plan.restart_wanted(StreamPlan::Clock::now());
        }
    }
    wake_.notify_one();
}

Supervisor::View Supervisor::view(size_t index) const {
    const std::lock_guard lock(mutex_);
    const Session& session = sessions_[index];
    return {.state = session.plan.state(),
            .login_result = session.login_result,
            .login_tried = session.plan.login_tried(),
            .ever_streamed = session.plan.ever_streamed(),
            .restarts = session.plan.restarts()};
}

void Supervisor::work() {
    std::unique_lock lock(mutex_);
    while (!stop_) {
        Session* session = due_session(StreamPlan::Clock::now());
        if (session == nullptr) {
            wake_.wait_until(lock, next_due());
            continue;
        }
        session->busy = true;
        const StreamPlan::Action action = session->plan.action();
        lock.unlock();
        step(*session, action);
        lock.lock();
        session->busy = false;
        wake_.notify_one();  // what it is due for next may be sooner than what the others wait for
    }
}

Supervisor::Session* Supervisor::due_session(Time now) {
    Session* first = nullptr;
    for (Session& session : sessions_) {
        if (session.busy || session.plan.due() > now) continue;
        if (first == nullptr || session.plan.due() < first->plan.due()) first = &session;
    }
    return first;
}

Time Supervisor::next_due() const {
    Time next = StreamPlan::Clock::now() + std::chrono::seconds(60);
    for (const Session& session : sessions_) {
        if (!session.busy) next = std::min(next, session.plan.due());
    }
    return next;
}

void Supervisor::step(Session& session, StreamPlan::Action action) {
    switch (action) {
        case StreamPlan::Action::kLogin:
            return log_in(session);
        case StreamPlan::Action::kInvite:
            return invite(session);
        case StreamPlan::Action::kCheck:
            return check(session);
    }
}

void Supervisor::log_in(Session& session) {
    const int result = session.link->login(!session.plan.login_tried());
    const std::lock_guard lock(mutex_);
    session.login_result = result;
    session.plan.login_ended(result, StreamPlan::Clock::now());
}

void Supervisor::invite(Session& session) {
    // A camera that went away took the control connection along; inviting would only wait for it in vain.
    if (!session.link->control_alive()) return check(session);
    // One that went away and came back meanwhile answers, too; but its login is gone and no frame follows.
    const bool invited = session.link->invite() && session.link->control_alive();
    {
        const std::lock_guard lock(mutex_);
        session.plan.invitation_ended(invited, StreamPlan::Clock::now());
    }
    // Last: from here on the receive loop may want the next restart.
    if (invited) session.link->open();
}

void Supervisor::check(Session& session) {
    const bool alive = session.link->control_alive();
    const std::lock_guard lock(mutex_);
    session.plan.control_checked(alive, StreamPlan::Clock::now());
}

const char* state_name(StreamPlan::State state) {
    switch (state) {
        case StreamPlan::State::kConnecting:
            return "connecting";
        case StreamPlan::State::kInviting:
            return "inviting";
        case StreamPlan::State::kStreaming:
            return "streaming";
        case StreamPlan::State::kRestarting:
            return "restarting";
        case StreamPlan::State::kUnreachable:
            return "unreachable";
        case StreamPlan::State::kRefused:
            return "refused";
    }
    return "";
}

}  // namespace lenswire::recorder
