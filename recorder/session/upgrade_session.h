// An upgrade of several cameras: each logged in and asked whether the file fits, then one job of the library.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "lenswire/upgrade.h"
#include "recorder/host/host.h"
#include "recorder/session/camera_link.h"
#include "recorder/session/plugin.h"
#include "recorder/session/session_options.h"

namespace lenswire::recorder {

class UpgradeSession {
  public:
    struct Camera {
        std::string name;
        int channel = 0;
        UpgradeCameraState state = UPGRADE_RUNNING;
        unsigned percent = 0;
    };

    // Logs in to all at a time.
    UpgradeSession(const std::vector<CameraAddress>& cameras, const SessionOptions& options);
    ~UpgradeSession();  // waits for the job

    // Why the file cannot go to a camera, one line per camera; empty when it can go to all. Nothing is sent.
    std::vector<std::string> objections(const std::string& path);

    // Starts the job. Throws a camera Failure when the library does not take it.
    void start(const std::string& path);
    // How the cameras stand; false when the job is over.
    bool poll();

    const std::vector<Camera>& cameras() const { return cameras_; }
    Host& host() { return host_; }

  private:
    std::string objection(size_t index, const std::string& path);
    void wait_for_thread_end() const;

    Host host_;
    Plugin plugin_;
    PluginContext context_;
    std::vector<std::unique_ptr<CameraLink>> links_;
    std::vector<std::string> login_failures_;  // empty for those logged in
    std::vector<Camera> cameras_;
    pthread_t job_{};
    bool running_ = false;
    size_t threads_before_ = 0;
};

const char* upgrade_state_name(UpgradeCameraState state);

}  // namespace lenswire::recorder
