#include "camera/serve/camera_core.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "lenswire/protocol.h"

namespace lenswire::camera {
namespace {

constexpr int kBacklog = 128;
constexpr int64_t kRestartRetryMs = 200;

// A listening socket on the address, -1 with errno when there is none; tells the port it got.
int listen_on(const std::string& address, uint16_t* port) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(*port);
    if (inet_pton(AF_INET, address.c_str(), &name.sin_addr) != 1) {
        errno = EINVAL;
        return -1;
    }
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    socklen_t length = sizeof name;
    auto* any = reinterpret_cast<sockaddr*>(&name);
    if (bind(fd, any, length) == 0 && listen(fd, kBacklog) == 0 && getsockname(fd, any, &length) == 0) {
        *port = ntohs(name.sin_port);
        return fd;
    }
    const int reason = errno;
    ::close(fd);
    errno = reason;
    return -1;
}

Surroundings surroundings_of(const CameraConfig& config) {
    Surroundings around{
        .device = config.device, .address = config.address, .port = config.port, .streams = {}};
    for (const StreamConfig& stream : config.streams) {
        StreamShape shape{.audio = stream.audio != nullptr};
        if (const auto source = FrameSource::make(stream, 0)) {
            const PacketHead head = source->next().head;
            shape.codec = head.codec;
            shape.width = head.width;
            shape.height = head.height;
            shape.frame_rate = static_cast<uint8_t>(head.frame_rate);
            shape.kbit_rate = stream.synthetic ? static_cast<uint32_t>(stream.synthetic->mbit * 1000) : 512;
        }
        around.streams.push_back(shape);
    }
    return around;
}

}  // namespace

void CameraCore::Listener::close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

void CameraCore::Listener::on_ready(uint32_t) {
    while (fd_ >= 0) {
        const int fd = accept4(fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) {
            core_.on_accept(fd);
        } else if (errno != EINTR && errno != ECONNABORTED) {
            return;
        }
    }
}

CameraCore::CameraCore(Loop& loop, CameraConfig the_config)
    : config(std::move(the_config)),
      port(config.port),
      settings(surroundings_of(config)),
      loop_(loop),
      start_us_(loop.now_us()),
      motion_timer_(loop, [this] { on_motion_time(); }),
      restart_timer_(loop,
                     [this] {
                         std::string error;
                         if (!start(&error)) restart_timer_.arm(loop_.now_us() + kRestartRetryMs * 1000);
                     }),
      reboot_timer_(loop, [this] { reboot(); }) {}

CameraCore::~CameraCore() {
    stop();
}

bool CameraCore::start(std::string* error) {
    if (running) return true;
    if (!settings_loaded_ && !settings.load(error)) return false;
    settings_loaded_ = true;
    const int fd = listen_on(config.address, &port);
    if (fd < 0) {
        *error = config.address + ":" + std::to_string(port) + ": " + error_text(errno);
        return false;
    }
    listener_ = std::make_unique<Listener>(*this, fd);
    if (!loop_.watch(fd, listener_.get())) {
        *error = std::string("no event loop: ") + error_text(errno);
        loop_.bury(std::move(listener_));
        return false;
    }
    settings.set_port(port);
    running = true;
    loop_.report_change();
    motion_state_ = 0;
    if (config.motion_every_ms > 0) motion_timer_.arm(loop_.now_us() + config.motion_every_ms * 1000);
    return true;
}

void CameraCore::stop() {
    restart_timer_.disarm();
    reboot_timer_.disarm();
    motion_timer_.disarm();
    if (listener_) {
        listener_->close();
        loop_.bury(std::move(listener_));
    }
    while (!connections_.empty()) connections_.back()->close();
    running = false;
    loop_.report_change();
}

void CameraCore::restart_in(int64_t down_ms) {
    stop();
    restart_timer_.arm(loop_.now_us() + down_ms * 1000);
}

void CameraCore::on_accept(int fd) {
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    auto connection = std::make_unique<Connection>(*this, loop_, fd, ++last_number_);
    ++stats_.connections;
    loop_.report_change();
    if (loop_.watch(fd, connection.get())) connections_.push_back(std::move(connection));
}

void CameraCore::on_close(Connection* connection) {
    const auto found = std::find_if(connections_.begin(), connections_.end(),
                                    [connection](const auto& each) { return each.get() == connection; });
    loop_.report_change();
    if (found == connections_.end()) return;
    loop_.bury(std::move(*found));
    connections_.erase(found);
}

CameraStats CameraCore::stats() const {
    CameraStats stats = stats_;
    stats.connections_open = static_cast<uint32_t>(connections_.size());
    for (const auto& connection : connections_) {
        if (connection->logged_in()) ++stats.control_open;
        if (connection->is_stream()) ++stats.streams_open;
    }
    for (const auto& stream : streams) {
        stats.video_frames += stream->video_frames;
        stats.audio_frames += stream->audio_frames;
        stats.stream_bytes += stream->bytes;
    }
    return stats;
}

// The first fault that applies; one that has done its times is gone.
std::optional<AnswerFault> CameraCore::take_answer_fault(uint16_t code) {
    const auto found =
        std::find_if(answer_faults.begin(), answer_faults.end(),
                     [code](const AnswerFault& each) { return each.code.value_or(code) == code; });
    if (found == answer_faults.end()) return std::nullopt;
    const AnswerFault fault = *found;
    if (found->times != 0 && --found->times == 0) answer_faults.erase(found);
    return fault;
}

std::vector<StreamFault> CameraCore::take_stream_faults() {
    std::vector<StreamFault> taken = stream_faults;
    std::erase_if(stream_faults, [](StreamFault& fault) { return fault.times != 0 && --fault.times == 0; });
    return taken;
}

UploadFault CameraCore::take_upload_faults() {
    UploadFault all = merge(upload_faults);
    std::erase_if(upload_faults, [](UploadFault& fault) { return fault.times != 0 && --fault.times == 0; });
    return all;
}

size_t CameraCore::send_to_all(const Bytes& bytes) {
    std::vector<Connection*> reached;  // a send may close its connection and with it change the list
    for (const auto& connection : connections_) {
        if (connection->logged_in()) reached.push_back(connection.get());
    }
    for (Connection* connection : reached) connection->send({.bytes = bytes});
    return reached.size();
}

size_t CameraCore::push_motion(uint8_t state) {
    Command push;
    push.code = LENSWIRE_CMD_MOTION_PUSH;
    push.payload = {0, 0, state, 0};
    push.buffer_size = static_cast<uint32_t>(push.payload.size());
    push.buffer_num = 1;
    const size_t reached = send_to_all(to_bytes(push));
    stats_.motion_pushes += reached;
    loop_.report_change();
    return reached;
}

void CameraCore::on_motion_time() {
    motion_state_ ^= 1;
    if (settings.detects_motion()) push_motion(motion_state_);
    motion_timer_.arm(loop_.now_us() + config.motion_every_ms * 500);
}

void CameraCore::finish_streams(bool close) {
    std::vector<Connection*> finished;  // finishing may close a connection and with it change the list
    for (const auto& connection : connections_) {
        if (connection->is_stream()) finished.push_back(connection.get());
    }
    for (Connection* connection : finished) connection->finish_stream(close);
}

void CameraCore::drop_control_connections() {
    std::vector<Connection*> dropped;
    for (const auto& connection : connections_) {
        if (!connection->is_stream()) dropped.push_back(connection.get());
    }
    for (Connection* connection : dropped) connection->close();
}

}  // namespace lenswire::camera
