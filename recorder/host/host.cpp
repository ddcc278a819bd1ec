#include "recorder/host/host.h"

namespace lenswire::recorder {
namespace {

std::atomic<Host*> g_current{nullptr};

}  // namespace

void RequestQueue::post(StreamRequestType type, const DevChannelInfo& info) {
    StreamRequest request{};
    request.ulType = type;
    request.info = info;
    const std::lock_guard lock(mutex_);
    waiting_.push_back(request);
}

bool RequestQueue::take(StreamRequest& request) {
    const std::lock_guard lock(mutex_);
    if (waiting_.empty()) return false;
    request = waiting_.front();
    waiting_.pop_front();
    return true;
}

Host::Host(const std::string& database_file) : store(database_file) {
    g_current = this;
}

Host::~Host() {
    g_current = nullptr;
}

Host* Host::current() {
    return g_current;
}

RecorderStream& Host::add_stream(std::unique_ptr<RecorderStream> stream) {
    streams_.push_back(std::move(stream));
    return *streams_.back();
}

RecorderStream* Host::stream(int channel, int stream) {
    for (const auto& candidate : streams_) {
        if (candidate->channel() == channel && candidate->stream() == stream) return candidate.get();
    }
    return nullptr;
}

void Host::watch_login(int channel, int stream, LoginWatch* watch) {
    const std::lock_guard lock(logins_mutex_);
    logins_[{channel, stream}] = watch;
}

bool Host::login_over(int channel, int stream) {
    if (stopping_) return true;
    LoginWatch* watch = nullptr;
    {
        const std::lock_guard lock(logins_mutex_);
        const auto found = logins_.find({channel, stream});
        if (found != logins_.end()) watch = found->second;
    }
    return watch != nullptr && watch->over();
}

bool Host::restart_wanted(int channel, int stream) {
    RestartListener* listener = restart_listener_;
    if (RecorderStream* lost = this->stream(channel, stream); lost != nullptr)
        lost->trouble(Cause::kLost, "");
    if (listener == nullptr) return false;
    listener->restart_wanted(channel, stream);
    return true;
}

}  // namespace lenswire::recorder
