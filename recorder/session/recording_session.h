// A recording of several streams from the first login to the last finished file: the host, the library, the
// workers and the supervisor, started and stopped in the order that keeps everything alive that the library
// knows.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "recorder/archive/archive.h"
#include "recorder/host/frame_worker.h"
#include "recorder/host/host.h"
#include "recorder/session/camera_link.h"
#include "recorder/session/plugin.h"
#include "recorder/session/supervisor.h"

namespace lenswire::recorder {

// One stream at one moment.
struct StreamStatus {
    int channel = 0;
    int stream = 0;
    std::string title;  // what its folder is called
    CameraAddress camera;
    Supervisor::View view;
    int frames_per_second = 0;  // as the library measured them last
    int bytes_per_second = 0;
    uint64_t lost_in_queue = 0;  // frames that found no room there
    MotionBoard::Counts motion;
    RecordingReport recording;

    std::string name() const;  // host:port/channel/stream
    // Frames that the camera sent and that are nowhere to be found.
    uint64_t lost() const {
        return lost_in_queue + recording.missing + recording.refused + recording.unwritten;
    }
};

class RecordingSession {
  public:
    struct Options {
        std::vector<CameraAddress> cameras;
        std::vector<std::string> names = {};  // of the cameras, as far as they have one
        std::string directory;
        std::string library;
        std::string database;  // empty: lenswire.db in the directory
        bool armed = true;
        Ms segment = 60'000;
        KeepLimits limits = {};
        size_t buffer = 128 * 1024 * 1024;
    };

    // Throws a Failure when the library or the database cannot be used, or another recorder is at work in the
    // directory.
    explicit RecordingSession(const Options& options);
    ~RecordingSession();  // stops
    RecordingSession(const RecordingSession&) = delete;
    RecordingSession& operator=(const RecordingSession&) = delete;

    // Finishes every file and the ledger; what comes later is not recorded any more.
    void finish();
    // Whether the ledger has it all, once that is done.
    bool complete() const { return archive_->complete(); }
    // The same, and ends connections and unloads the library, which may take some seconds.
    void stop();
    // To be called a few times a second.
    void tick();

    std::vector<StreamStatus> status() const;
    // What happened since the last call, a line each: motion, alarms, disk trouble.
    std::vector<std::string> events();

  private:
    struct Stream {
        RecorderStream* stream;
        std::unique_ptr<CameraLink> link;
    };

    std::vector<std::string> make_titles(const Options& options) const;
    void add_streams(const Options& options);
    void connect(const Options& options);
    void close_streams();

    SystemClock system_clock_;
    SteeredClock clock_{system_clock_};
    FolderLock lock_;
    RealDisk disk_;
    std::unique_ptr<Archive> archive_;
    // Later ones stand on earlier ones.
    std::vector<std::unique_ptr<FrameWorker>> workers_;
    Host host_;
    std::unique_ptr<Plugin> plugin_;
    std::unique_ptr<PluginContext> context_;
    std::vector<Stream> streams_;
    std::vector<CameraAddress> cameras_;
    std::unique_ptr<Supervisor> supervisor_;
    std::vector<std::string> titles_;
    bool finished_ = false;
    bool stopped_ = false;
};

}  // namespace lenswire::recorder
