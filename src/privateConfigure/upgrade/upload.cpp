// The thread of an upgrade job: connections to all its cameras, one loop over them.
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "common/log.h"
#include "common/steady_clock.h"
#include "common/wire.h"
#include "lenswire/host_services.h"
#include "lenswire/socket.h"
#include "privateConfigure/channel_camera.h"
#include "privateConfigure/upgrade/upgrade_file.h"
#include "privateConfigure/upgrade/upgrade_job.h"
#include "privateConfigure/upgrade/upgrade_threads.h"
#include "privateConfigure/upgrade/upload_step.h"

namespace lenswire::upgrade {

namespace {

constexpr const char* kThread = "ipc_upgrade_thread";
constexpr int kUnexpectedMax = 30;  // messages that are no answer, the last one of which fails the camera
constexpr int64_t kPauseUs =
    1'000'000;                    // after a send of nothing, so that a full socket does not spin the loop
constexpr int kPiecesAtOnce = 4;  // then the other cameras have their turn
constexpr uint64_t kFileSizeMax = UINT32_MAX - ARG_HEAD_LEN;  // header and file are counted in 32 bits

// One camera of a job. Descriptor 0 is a socket like any other; none is -1.
struct Camera {
    Camera() = default;
    ~Camera() { disconnect(); }
    Camera(const Camera&) = delete;
    Camera& operator=(const Camera&) = delete;

    bool connected() const { return sock >= 0; }
    void disconnect() {
        if (connected()) close(sock);
        sock = -1;
    }

    int sock = -1;
    uint8_t channel = 0;
    uint32_t state = 0;
    uint32_t sent = 0;  // header included
    uint32_t percent = 0;
    int unexpected = 0;         // messages that were no answer
    int64_t send_again_us = 0;  // not watched for writing before
};

struct Ready {
    fd_set readable;
    fd_set writable;
};

class Upload {
  public:
    explicit Upload(JobRecord record) : record_(record) {}
    // False when a channel has no camera.
    bool connect_cameras(const UpgradeRequest& request);
    // Until no camera's upload is running any more.
    void send_file(std::FILE* file, uint32_t size);

  private:
    void connect_camera(const ChannelCamera& camera, uint8_t channel);
    void end_if_over();
    bool is_running() const;
    bool has_bytes_for(const Camera& camera) const;
    bool wait_for(Ready& ready) const;
    void receive(size_t k);
    uint32_t judge(Camera& camera, const uint8_t* message, ssize_t length) const;
    void send_pieces(size_t k, std::FILE* file);
    void end(size_t k, uint32_t state);

    JobRecord record_;
    Camera cameras_[LENSWIRE_UPGRADE_CAMERAS];
    size_t count_ = 0;
    const uint32_t start_s_ = uptime();
    uint8_t header_[ARG_HEAD_LEN] = {};
    uint32_t total_ = 0;  // header and file
};

bool Upload::connect_cameras(const UpgradeRequest& request) {
    for (int channel = 0; channel < LENSWIRE_UPGRADE_CAMERAS; ++channel) {
        if (request.aucChannel[channel] == 0) continue;
        const ChannelCamera camera = camera_of_channel(channel);
        if (!camera.known) return false;
        connect_camera(camera, static_cast<uint8_t>(channel));
    }
    record_.set_camera_count(count_);
    return true;
}

void Upload::connect_camera(const ChannelCamera& found, uint8_t channel) {
    Camera& camera = cameras_[count_];
    camera.channel = channel;
    camera.sock = SK_ConnectTo(found.ip, found.port);
    if (camera.sock < 0) {
        PRI_ERROR_AS(kThread, ":SK_ConnectTo fail\n");
    } else if (camera.sock >= FD_SETSIZE) {
        PRI_ERROR_AS(kThread, ":sock >= %d\n", FD_SETSIZE);
        camera.disconnect();
    }
    camera.state = camera.connected() ? UPGRADE_RUNNING : UPGRADE_FAILED;
    record_.set_camera(count_, channel, camera.state);
    ++count_;
}

void Upload::send_file(std::FILE* file, uint32_t size) {
    wire::store(header_, wire::command_header(LENSWIRE_CMD_UPGRADE, 1, size));
    total_ = size + ARG_HEAD_LEN;
    for (end_if_over(); is_running(); end_if_over()) {
        Ready ready;
        if (!wait_for(ready)) continue;
        for (size_t k = 0; k < count_; ++k) {
            const int sock = cameras_[k].sock;
            if (sock >= 0 && FD_ISSET(sock, &ready.readable)) receive(k);
            if (cameras_[k].connected() && FD_ISSET(sock, &ready.writable)) send_pieces(k, file);
        }
    }
}

// The host's clock may wrap and may be set back: what counts is the distance.
void Upload::end_if_over() {
    const uint32_t ahead = uptime() - start_s_;
    const bool expired = std::min(ahead, 0 - ahead) >= LENSWIRE_UPGRADE_TIMEOUT_S;
    if (!expired && !is_unloading()) return;
    for (size_t k = 0; k < count_; ++k) {
        if (cameras_[k].connected()) end(k, expired ? UPGRADE_TIMED_OUT : UPGRADE_FAILED);
    }
}

bool Upload::is_running() const {
    for (size_t k = 0; k < count_; ++k) {
        if (cameras_[k].state == UPGRADE_RUNNING) return true;
    }
    return false;
}

// A camera that has everything, or for which there was nothing to send just now, does not wake the loop.
bool Upload::has_bytes_for(const Camera& camera) const {
    if (camera.sent == total_ || camera.send_again_us == 0) return camera.sent < total_;
    const int64_t now_us = steady_us();
    return now_us < 0 || camera.send_again_us <= now_us;
}

bool Upload::wait_for(Ready& ready) const {
    FD_ZERO(&ready.readable);
    FD_ZERO(&ready.writable);
    int highest = 0;
    for (size_t k = 0; k < count_; ++k) {
        const Camera& camera = cameras_[k];
        if (!camera.connected()) continue;
        FD_SET(camera.sock, &ready.readable);
        if (has_bytes_for(camera)) FD_SET(camera.sock, &ready.writable);
        highest = std::max(highest, camera.sock);
    }
    timeval timeout{.tv_sec = 1, .tv_usec = 0};
    const int result = select(highest + 1, &ready.readable, &ready.writable, nullptr, &timeout);
    // A host that closed one of the sockets must not make the loop spin.
    if (result < 0 && errno != EINTR) usleep(100 * 1000);
    return result > 0;
}

void Upload::receive(size_t k) {
    Camera& camera = cameras_[k];
    uint8_t message[MAX_CMD_SIZE];
    const ssize_t length = recv(camera.sock, message, sizeof message, 0);
    if (length < 0 && (errno == EINTR || errno == EAGAIN)) return;
    const uint32_t state = judge(camera, message, length);
    if (state == UPGRADE_RUNNING) return;
    end(k, state);
    if (state != UPGRADE_FAILED) return;
    HostAlarmRecord alarm{LENSWIRE_ALARM_UPGRADE_FAILED, camera.channel, 0, 1};
    streamInsertAlarmToAlarmQueue(0, &alarm);
}

// The camera's state after what was received.
uint32_t Upload::judge(Camera& camera, const uint8_t* message, ssize_t length) const {
    if (length <= 0) return UPGRADE_FAILED;
    if (length < ARG_HEAD_LEN) return UPGRADE_RUNNING;
    const PrivateCmd header = wire::load_header(message);
    if (header.usCmd == LENSWIRE_CMD_UPGRADE) return header.ucState == 0 ? UPGRADE_DONE : UPGRADE_FAILED;
    std::printf("p_cmd->usCmd:%d,ret:%d,ipc_upgrade_cfg[i].sock:%d\n", header.usCmd, static_cast<int>(length),
                camera.sock);
    return ++camera.unexpected < kUnexpectedMax ? UPGRADE_RUNNING : UPGRADE_FAILED;
}

// A connection that takes whole pieces gets a few at once: waking up costs more than sending them.
void Upload::send_pieces(size_t k, std::FILE* file) {
    Camera& camera = cameras_[k];
    const uint32_t before = camera.sent;
    for (int i = 0; i < kPiecesAtOnce; ++i) {
        const uint32_t start = camera.sent;
        upload_step(camera.sock, file, header_, total_, camera.sent);
        if (camera.sent - start < kPieceSize) break;
    }
    camera.send_again_us = camera.sent == before ? steady_us() + kPauseUs : 0;
    const auto percent =
        static_cast<uint32_t>(static_cast<float>(camera.sent) / static_cast<float>(total_) * 100);
    if (percent == camera.percent) return;
    camera.percent = percent;
    record_.set_percent(k, percent);
}

void Upload::end(size_t k, uint32_t state) {
    cameras_[k].state = state;
    record_.set_state(k, state);
    cameras_[k].disconnect();
}

// The file, and its size if one job can send so many bytes. Null after a line that says what failed: a path
// that leads nowhere has no size, one that leads to something else than a readable file does not open.
File open_announced(const char* path, uint32_t& size) {
    File file = open_file(path);
    const int open_error = errno;
    struct stat status {};
    bool has_size = (file != nullptr ? fstat(fileno(file.get()), &status) : stat(path, &status)) == 0;
    if (has_size && static_cast<uint64_t>(status.st_size) > kFileSizeMax) {
        has_size = false;
        errno = EFBIG;
    }
    if (!has_size) {
        PRI_ERROR_AS(kThread, ":get file(%s) size failed, errno = %d\n", path, errno);
        return nullptr;
    }
    if (file == nullptr) PRI_ERROR_AS(kThread, ":fopen fail, errno = %d\n", open_error);
    size = static_cast<uint32_t>(status.st_size);
    return file;
}

void run_job(JobRecord record, const UpgradeRequest& request) {
    Upload upload(record);
    if (!upload.connect_cameras(request)) return;
    char path[sizeof request.szFilePath + 1] = {};
    std::memcpy(path, request.szFilePath, sizeof request.szFilePath);
    uint32_t size = 0;
    const File file = open_announced(path, size);
    if (file != nullptr) upload.send_file(file.get(), size);
}

}  // namespace

}  // namespace lenswire::upgrade

void* ipc_upgrade_thread(void* request) {
    using lenswire::upgrade::JobRecord;
    std::fputs("#####################ipc_upgrade_thread##########", stdout);
    pthread_detach(pthread_self());
    const JobRecord record = JobRecord::of_this_thread();
    if (record && request != nullptr) {
        lenswire::upgrade::run_job(record, lenswire::wire::load<UpgradeRequest>(request));
    }
    std::free(request);
    if (record) record.release();
    return nullptr;
}
