#include "recorder/session/recording_session.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <utility>

#include "recorder/archive/names.h"
#include "recorder/session/stream_link.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

constexpr size_t kWorkers = 2;
constexpr size_t kMostLogins = 16;  // at a time
constexpr auto kClosePatience = std::chrono::seconds(1);

// Whether the receive loop serves a stream still.
bool any_slot_open(const Plugin& plugin) {
    return std::ranges::any_of(*plugin.arrayfd, [](int32_t& fd) {
        return std::atomic_ref(fd).load(std::memory_order_acquire) != 0;
    });
}

}  // namespace

std::string StreamStatus::name() const {
    return camera.name() + "/" + std::to_string(camera.channel) + "/" + std::to_string(camera.stream);
}

RecordingSession::RecordingSession(const Options& options)
    : lock_(options.directory),
      disk_(options.directory),
      host_(Ledger::file_of(options.directory, options.database)),
      cameras_(options.cameras),
      titles_(make_titles(options)) {
    if (cameras_.size() > LENSWIRE_STREAM_SLOTS) {
        throw bad_input(std::to_string(cameras_.size()) + " streams: no more than " +
                        std::to_string(LENSWIRE_STREAM_SLOTS) + " can be recorded");
    }
    archive_ = std::make_unique<Archive>(
        Archive::Options{.ledger = Ledger::file_of(options.directory, options.database),
                         .streams = titles_,
                         .limits = options.limits,
                         .buffer = options.buffer},
        clock_, disk_);
    for (size_t i = 0; i < std::min(kWorkers, cameras_.size()); ++i) {
        workers_.push_back(std::make_unique<FrameWorker>());
    }
    add_streams(options);
    connect(options);
}

// A name that two streams would share is refused before anything is done.
std::vector<std::string> RecordingSession::make_titles(const Options& options) const {
    std::vector<std::string> titles;
    for (size_t i = 0; i < options.cameras.size(); ++i) {
        const CameraAddress& camera = options.cameras[i];
        std::string title = stream_name({.name = i < options.names.size() ? options.names[i] : "",
                                         .host = camera.host,
                                         .port = camera.port,
                                         .channel = camera.channel,
                                         .stream = camera.stream});
        if (std::ranges::find(titles, title) != titles.end()) {
            throw bad_input("two streams would be called " + title +
                            ": name the cameras, as in front=" + camera.name());
        }
        titles.push_back(std::move(title));
    }
    return titles;
}

void RecordingSession::add_streams(const Options& options) {
    for (const CameraAddress& camera : cameras_) {
        const int channel = host_.store.bind_camera(camera);
        if (host_.stream(channel, camera.stream) != nullptr) {
            throw bad_input("camera " + camera.name() + ": the same stream is listed twice");
        }
        if (options.armed && channel >= kMotionChannels) {
            throw bad_input("camera " + camera.name() + " is channel " + std::to_string(channel) +
                            " of the database, and motion is counted on channels 0 to " +
                            std::to_string(kMotionChannels - 1) +
                            " only: record fewer cameras with one --db, or --disarmed");
        }
        host_.motion.set_armed(channel, options.armed);
        const size_t index = streams_.size();
        FrameWorker& worker = *workers_[index % workers_.size()];
        const auto number = static_cast<int>(index);
        RecorderStream& stream = host_.add_stream(
            std::make_unique<RecorderStream>(channel, camera.stream, worker,
                                             Recording::Target{.stream = number,
                                                               .title = titles_[index],
                                                               .segment = options.segment,
                                                               .resumes = archive_->resumes(number)},
                                             clock_, archive_->anchor(), *archive_));
        streams_.push_back({.stream = &stream, .link = nullptr});
    }
}

void RecordingSession::connect(const Options& options) {
    plugin_ = std::make_unique<Plugin>(options.library);
    context_ = std::make_unique<PluginContext>(*plugin_);
    std::vector<std::unique_ptr<StreamLink>> links;
    for (size_t i = 0; i < streams_.size(); ++i) {
        RecorderStream& stream = *streams_[i].stream;
        streams_[i].link =
            std::make_unique<CameraLink>(*plugin_, cameras_[i], stream.channel(), stream.stream());
        links.push_back(std::make_unique<PluginStreamLink>(host_, stream, *streams_[i].link));
    }
    supervisor_ = std::make_unique<Supervisor>(std::move(links));
    host_.set_restart_listener(supervisor_.get());
    supervisor_->start(static_cast<int>(std::min(streams_.size(), kMostLogins)));
}

RecordingSession::~RecordingSession() {
    stop();
}

void RecordingSession::finish() {
    if (std::exchange(finished_, true)) return;
    host_.stop_logins();
    for (const auto& worker : workers_) worker->stop();
    for (const Stream& stream : streams_) {
        stream.stream->record_waiting_frames();
        stream.stream->finish_recording();
    }
    if (archive_) archive_->close();
}

void RecordingSession::stop() {
    if (std::exchange(stopped_, true)) return;
    finish();
    if (supervisor_) supervisor_->stop();
    if (plugin_) close_streams();
    plugin_.reset();
}

void RecordingSession::tick() {
    std::vector<Note> notes;
    const Ms now = archive_->anchor().utc(archive_->now());
    while (auto event = host_.motion.next_event()) {
        const bool alarm = event->starts_with("alarm");
        notes.emplace_back(EventNote{std::nullopt, now, alarm ? "alarm" : "motion", std::move(*event)});
    }
    if (!notes.empty()) archive_->take(std::move(notes));
    for (const Stream& stream : streams_) stream.stream->look();
}

// The stream sockets outlive the context: until it has been stopped the receive loop may read them, and a
// number closed sooner could be another's by then.
void RecordingSession::close_streams() {
    for (const Stream& stream : streams_) {
        DevChannelInfo info{};
        stream.stream->describe(info, stream.link ? stream.link->unit() : nullptr);
        host_.requests.post(STREAM_REQ_CLOSE, info);
    }
    const auto patience_ends = std::chrono::steady_clock::now() + kClosePatience;
    while (context_ && any_slot_open(*plugin_) && std::chrono::steady_clock::now() < patience_ends)
        usleep(1000);
    std::vector<int> sockets;
    for (const Stream& stream : streams_) {
        if (stream.link) sockets.push_back(stream.link->release());
    }
    context_.reset();
    host_.set_restart_listener(nullptr);
    for (const int socket : sockets) {
        if (socket >= 0) close(socket);
    }
}

std::vector<StreamStatus> RecordingSession::status() const {
    std::vector<StreamStatus> result;
    for (size_t i = 0; i < streams_.size(); ++i) {
        RecorderStream& stream = *streams_[i].stream;
        result.push_back({.channel = stream.channel(),
                          .stream = stream.stream(),
                          .title = titles_[i],
                          .camera = cameras_[i],
                          .view = supervisor_->view(i),
                          .frames_per_second = stream.frames_per_second(),
                          .bytes_per_second = stream.bytes_per_second(),
                          .lost_in_queue = stream.queue().lost(),
                          .motion = host_.motion.counts(stream.channel()),
                          .recording = stream.recording().report()});
    }
    return result;
}

std::vector<std::string> RecordingSession::events() {
    return archive_->news();
}

}  // namespace lenswire::recorder
