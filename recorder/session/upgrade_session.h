// An upgrade of several cameras: each logged in and asked whether the file fits, then one job of the library.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
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
        ExitCode code = kDone;  // why it takes no part, or what became of it
        std::string error = {};
        std::string firmware = {};  // before
        std::string firmware_after = {};
        bool only_name_fits = false;
        bool started = false;

        bool reached() const { return code != kUnreachable && code != kTimedOut && code != kLoginRefused; }
    };

    // Logs in to all at a time. Those that cannot be reached say so in their `code` and `error`.
    UpgradeSession(const std::vector<CameraAddress>& cameras, const SessionOptions& options);
    ~UpgradeSession();  // waits for the job

    // Asks every camera that was reached whether the file can go to it. One line per camera to which it
    // cannot; empty when it can go to all of them. Nothing is sent.
    std::vector<std::string> objections(const std::string& path);

    // Starts a job for these cameras; all that were reached when none are named. Throws a Failure when the
    // library does not take it.
    void start(const std::string& path, std::vector<size_t> which = {});
    // How the cameras stand; false when the job is over.
    bool poll();
    // What became of a camera of the job: waits until one that took the file is back, and reads its firmware
    // name anew.
    void settle(size_t index, std::chrono::steady_clock::duration patience);
    // Says of those that no job was started for that they were left out.
    void leave_out();

    const std::vector<Camera>& cameras() const { return cameras_; }
    Host& host() { return host_; }

  private:
    std::string objection(size_t index, const std::string& path);
    void await_return(size_t index, std::chrono::steady_clock::duration patience);
    void log_in(size_t index, const SessionOptions& options);
    std::optional<IpcDeviceInfo> device_of(size_t index);
    void wait_for_thread_end() const;

    Host host_;
    Plugin plugin_;
    PluginContext context_;
    std::vector<std::unique_ptr<CameraLink>> links_;
    std::vector<Camera> cameras_;
    pthread_t job_{};
    bool running_ = false;
    size_t threads_before_ = 0;
};

const char* upgrade_state_name(UpgradeCameraState state);

}  // namespace lenswire::recorder
