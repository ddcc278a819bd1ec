// One camera, logged in, for a command that reads or changes something: the host, the library and the control
// connection, from the scope's begin to its end.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "recorder/host/host.h"
#include "recorder/session/camera_link.h"
#include "recorder/session/plugin.h"
#include "recorder/session/session_options.h"
#include "recorder/support/deadline.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {

class ControlSession {
  public:
    // Throws a Failure that says which way the login failed.
    ControlSession(CameraAddress camera, const SessionOptions& options);
    ~ControlSession();
    ControlSession(const ControlSession&) = delete;
    ControlSession& operator=(const ControlSession&) = delete;

    Host& host() { return host_; }
    const Plugin& library() const { return plugin_; }
    uint32_t ip() const { return camera_.ip; }
    int camera_channel() const { return camera_.channel; }
    int channel() const { return channel_; }  // the recorder's
    const CameraAddress& camera() const { return camera_; }
    CameraLink& link() { return link_; }
    std::chrono::steady_clock::duration timeout() const { return timeout_; }

    // Ends the connections and stops the library; what it knows of a stream may go then.
    void end();

    // Runs an operation of the library and, when it fails, throws a Failure that says which way.
    // `what` completes "the camera ... the request for".
    template <typename F>
    void ask(const std::string& what, F operation) {
        const auto started = std::chrono::steady_clock::now();
        if (!limited(operation)) throw failure(what, std::chrono::steady_clock::now() - started);
    }
    // The same for what is only sent.
    template <typename F>
    void tell(const std::string& what, F operation) {
        if (!operation() || !link_.control_alive()) throw not_sent(what);
    }

    // Runs what may wait for the camera, and ends the wait when the camera has had its time.
    template <typename F>
    auto limited(F operation) {
        deadline_->set(timeout_);
        auto result = operation();
        deadline_->clear();
        return result;
    }

  private:
    Failure failure(const std::string& what, std::chrono::steady_clock::duration taken) const;
    Failure not_sent(const std::string& what) const;

    CameraAddress camera_;
    Host host_;
    int channel_;
    Plugin plugin_;
    std::optional<PluginContext> context_;
    CameraLink link_;
    std::chrono::steady_clock::duration timeout_;
    // Sends home who waits in the library.
    std::optional<Deadline> deadline_;
};

}  // namespace lenswire::recorder
