// One simulated camera. It listens on an address of its own, takes logins, answers commands, sends streams,
// takes new firmware and does wrong what it is told to. Every function may be called from any thread, also
// from inside a hook.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "camera/serve/camera_config.h"
#include "camera/serve/faults.h"
#include "camera/serve/stats.h"

namespace lenswire::camera {

class CameraCore;
class Loop;

class Camera {
  public:
    Camera(std::shared_ptr<Loop> loop, CameraConfig config);
    ~Camera();
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    // Listens. A camera that was stopped comes back on the port it had.
    bool start(std::string* error);
    // Drops every connection and stops listening, as when the power goes.
    void stop();
    // Stops, and starts again after so many milliseconds.
    void restart_in(int64_t down_ms);
    bool running() const;

    std::string address() const;
    uint16_t port() const;  // 0 before the first start
    const CameraConfig& config() const;

    CameraStats stats() const;
    std::vector<StreamStats> streams() const;  // every stream connection so far, in order
    std::vector<UploadStats> uploads() const;  // every upload so far, in order
    // The commands received so far, oldest first; the last kMostCommandsKept are kept.
    std::vector<Received> received() const;
    std::vector<Command> received(uint16_t code) const;
    // Waits until the predicate holds for this camera, false when the time runs out first.
    bool wait(const std::function<bool(const CameraStats&)>& predicate, int64_t timeout_ms = 10'000) const;
    // Waits until commands of a code have been received so many times in all.
    bool wait_received(uint16_t code, size_t count, int64_t timeout_ms = 10'000) const;

    void add_fault(Fault fault);
    void clear_faults();  // what streams already have begun to do wrong they go on doing

    // What a hook returns goes out in place of the usual answer, nothing when it returns nothing. Hooks run
    // on the thread that serves the cameras; an empty one removes the hook. Login and streams have no hooks.
    void on_command(uint16_t code, CommandHook hook);

    // Called with every command that is received, on the thread that serves the cameras.
    void watch_commands(std::function<void(const Command& command)> watcher);
    // Called with a line for every fault that strikes, on the same thread.
    void watch_faults(std::function<void(const std::string& line)> watcher);

    // Pushes a motion state to all logged-in control connections; returns how many there are.
    size_t push_motion(uint8_t state);

    // Ends all streams after the packet on its way. The connections stay open unless `close` says otherwise;
    // StreamStats::ended tells when nothing more follows.
    void finish_streams(bool close = false);

    // The camera goes on listening.
    void drop_control_connections();

    // The record behind a get command (a set command that has no get), as a get would answer it; encoding and
    // cruise lines as all three in one. One that is set may have any size, so that answers can be wrong.
    Bytes record(uint16_t code) const;
    void set_record(uint16_t code, Bytes bytes);

  private:
    std::shared_ptr<Loop> loop_;
    std::unique_ptr<CameraCore> core_;
};

}  // namespace lenswire::camera
