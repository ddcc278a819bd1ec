// The recorder as the library sees it: what the host services, plain C functions called by name, find behind
// them. One host exists at a time; it is made before the library is loaded and outlives it.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "lenswire/records.h"
#include "recorder/host/login_watch.h"
#include "recorder/host/motion_board.h"
#include "recorder/host/recorder_stream.h"
#include "recorder/host/store.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {

// The queue that the library's queue thread polls.
class RequestQueue {
  public:
    void post(StreamRequestType type, const DevChannelInfo& info);
    bool take(StreamRequest& request);

  private:
    std::mutex mutex_;
    std::deque<StreamRequest> waiting_;
};

// Who wants to know that the library gave up a stream. Called by the receive loop; must not block.
class RestartListener {
  public:
    virtual void restart_wanted(int channel, int stream) = 0;

  protected:
    ~RestartListener() = default;
};

// For the services: the library's threads know no exceptions. What the database does not give is not there.
template <typename F>
auto or_nothing(F body) -> decltype(body()) {
    try {
        return body();
    } catch (const Failure&) {
        return {};
    }
}

class Host {
  public:
    explicit Host(const std::string& database_file = "");
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    // The one that services are answered from; null before the first and after the last.
    static Host* current();

    Store store;
    MotionBoard motion;
    RequestQueue requests;

    // -- Streams; all are added before the library's context is started.
    RecorderStream& add_stream(std::unique_ptr<RecorderStream> stream);
    RecorderStream* stream(int channel, int stream);
    const std::vector<std::unique_ptr<RecorderStream>>& streams() const { return streams_; }

    void set_restart_listener(RestartListener* listener) { restart_listener_ = listener; }
    bool restart_wanted(int channel, int stream);

    // Ends logins that are under way.
    void stop_logins() { stopping_ = true; }
    bool logins_stopped() const { return stopping_; }
    // Who looks at the login for that channel and stream; null for nobody any more.
    void watch_login(int channel, int stream, LoginWatch* watch);
    // Whether a login for that channel and stream should end. On the thread that logs in.
    bool login_over(int channel, int stream);

    // Memory that the library took and has not given back.
    std::atomic<int64_t> library_allocations{0};

  private:
    std::vector<std::unique_ptr<RecorderStream>> streams_;
    std::atomic<RestartListener*> restart_listener_{nullptr};
    std::atomic<bool> stopping_{false};
    std::mutex logins_mutex_;  // logins_ only
    std::map<std::pair<int, int>, LoginWatch*> logins_;
};

}  // namespace lenswire::recorder
