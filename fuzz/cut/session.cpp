#include "fuzz/cut/session.h"

#include <sys/socket.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "tests/support/connections.h"
#include "tests/support/folder.h"

namespace lenswire::fuzz {

namespace {

constexpr int kPatienceS = 20;
constexpr size_t kGarbage = 300;
constexpr size_t kFileBytes = 100;
const char* g_file = nullptr;  // the firmware

Bytes device_info() {
    Bytes info(LENSWIRE_DEVICE_INFO_SIZE);
    std::memcpy(&info[offsetof(IpcDeviceInfo, szFirmwareName)], "A_B_MTAXC_D", 11);
    return info;
}

std::vector<Bytes> packets() {
    return {Packet{.frame_type = 1, .width = 640, .height = 360, .payload = pattern(60)}.bytes(),
            Packet{.video = false, .codec = 16, .payload = pattern(40)}.bytes(),
            Packet{.frame_type = 3, .width = 640, .height = 360, .payload = pattern(50)}.bytes()};
}

// How many packets the library must have made frames of: those with enough behind them.
size_t whole_packets(size_t bytes) {
    size_t count = 0, end = 0;
    for (const Bytes& packet : packets()) {
        end += packet.size();
        count += end + LENSWIRE_BYTES_BEHIND_PACKET <= bytes ? 1 : 0;
    }
    return count;
}

Outcome outcome_of(int result) {
    return result == 0 ? Outcome::kDone : Outcome::kFailed;
}

bool logs_in(Side& side) {
    const LoginInfo info = credentials();
    return PC_Login(side.unit, side.camera.address(), side.camera.port(), &info, side.channel, 0) == 0;
}

bool invites(Side& side) {
    uint8_t out[LENSWIRE_STREAM_ANSWER_SIZE];
    return PC_GetStream(side.unit, side.channel, 0, out) == 0;
}

// -- The six kinds: the camera's part, the recorder's part.

void plays_login(Part& part) {
    part.counts();
    part.logs_in();
}

Outcome tries_login(Side& side) {
    return logs_in(side) ? Outcome::kDone : Outcome::kFailed;
}

void plays_get(Part& part) {
    part.logs_in();
    part.reads(32 + 32);
    part.counts();
    Message answer = command(LENSWIRE_CMD_ENCODING_GET, Bytes(3 * LENSWIRE_ENCODING_SIZE));
    for (size_t i = 0; i < 3; ++i) answer.payload[i * LENSWIRE_ENCODING_SIZE + 1] = static_cast<uint8_t>(i);
    answer.buffer_num = 3;
    answer.buffer_size = LENSWIRE_ENCODING_SIZE;
    part.sends(answer.bytes());
}

Outcome tries_get(Side& side) {
    if (!logs_in(side)) return Outcome::kNotBegun;
    Bytes array(3 * LENSWIRE_ENCODING_SIZE);
    return outcome_of(Private_Protocol_GetEncodingProperty(side.camera.address(), array.data()));
}

void plays_invitation(Part& part) {
    part.logs_in();
    part.accepts();
    part.reads(36);
    part.counts();
    part.sends(command(LENSWIRE_CMD_STREAM, pattern(32)).bytes());
}

Outcome tries_invitation(Side& side) {
    if (!logs_in(side)) return Outcome::kNotBegun;
    return invites(side) ? Outcome::kDone : Outcome::kFailed;
}

void plays_stream(Part& part) {
    part.logs_in();
    part.accepts();
    part.reads(36);
    part.sends(command(LENSWIRE_CMD_STREAM, pattern(32)).bytes());
    part.counts();
    for (const Bytes& packet : packets()) part.sends(packet);
    part.sends(Bytes(LENSWIRE_BYTES_BEHIND_PACKET, 1));
}

// Whatever its end, the host is told to start the stream anew, and has every frame that came whole.
Outcome tries_stream(Side& side) {
    if (!logs_in(side) || !invites(side)) return Outcome::kNotBegun;
    ReceiveBuffer buffer(4096);
    FakeStream frames;
    g_restarts[static_cast<size_t>(side.channel)] = 0;
    host().posts_open(side.channel, 0, side.unit, buffer, frames);
    const bool told = wait_for([&] { return g_restarts[static_cast<size_t>(side.channel)] > 0; });
    host().posts_close(side.channel, 0);
    wait_for([&] { return host().waits_for_requests_taken(); });
    if (!told) return Outcome::kFailed;
    const size_t expected = whole_packets(side.cut);
    const std::vector<Frame> got = frames.frames();
    if (got.size() < expected) return Outcome::kNotBegun;  // lost with a reset
    for (size_t i = 0; i < expected; ++i) {
        const Bytes sent = packets()[i];
        const size_t prefix = i == 1 ? 4 : 0;
        if (slice(got[i].payload, prefix, SIZE_MAX / 2) != slice(sent, 32, sent.size()))
            return Outcome::kFailed;
    }
    return Outcome::kDone;
}

void plays_motion(Part& part) {
    part.logs_in();
    part.counts();
    part.sends(command(LENSWIRE_CMD_MOTION_PUSH, {0, 0, 1}).bytes());
}

Outcome tries_motion(Side& side) {
    std::atomic<int>& motions = g_motions[static_cast<size_t>(side.channel)];
    motions = 0;
    if (!logs_in(side)) return Outcome::kNotBegun;
    const int fd = side.unit->pCmdClient->sockFd;
    // Until the event loop has read it all; of a whole push it then tells the host.
    const bool is_told =
        side.cut == ARG_HEAD_LEN + 3 && (side.ending == Ending::kClosed || side.ending == Ending::kStalled);
    wait_for([&] { return motions > 0 || (!is_told && waiting_bytes(fd) <= 0); });
    return motions > 0 ? Outcome::kDone : Outcome::kFailed;
}

void plays_upgrade(Part& part) {
    part.logs_in();
    part.reads(32 + LENSWIRE_DEVICE_INFO_SIZE);
    part.sends(command(LENSWIRE_CMD_DEVICE_INFO, device_info()).bytes());
    part.accepts_upload();
    part.reads(32 + kFileBytes);
    part.counts();
    part.sends(command(LENSWIRE_CMD_UPGRADE).bytes());
}

Outcome tries_upgrade(Side& side) {
    if (!logs_in(side)) return Outcome::kNotBegun;
    UpgradeRequest request{};
    request.aucChannel[side.channel] = 1;
    std::strcpy(request.szFilePath, g_file);
    pthread_t job{};
    if (Prv_ipc_upgrade(&request, &job) != 0) return Outcome::kNotBegun;
    // A job's record is another's soon after its end: what it said last is missed then, and it is tried
    // again.
    UpgradeJobStatus status{};
    int found = 0;
    const auto is_another = [&] {
        return found != 0 || (status.ulCameraCount > 0 &&
                              status.camera[0].ulChannel != static_cast<uint32_t>(side.channel));
    };
    const bool ended = wait_for([&] {
        found = Prv_ipc_upgrade_get_status(job, &status);
        return is_another() || status.ulUsed == 0;
    });
    if (!ended || is_another() || status.ulCameraCount == 0) return Outcome::kNotBegun;
    return status.camera[0].ulState == UPGRADE_DONE ? Outcome::kDone : Outcome::kFailed;
}

}  // namespace

const std::array<Kind, 6> kKinds = {{{"login", plays_login, tries_login},
                                     {"get", plays_get, tries_get},
                                     {"invitation", plays_invitation, tries_invitation},
                                     {"stream", plays_stream, tries_stream},
                                     {"motion push", plays_motion, tries_motion},
                                     {"upgrade", plays_upgrade, tries_upgrade}}};

void Part::accept_from(ScriptedCamera* camera) {
    if (camera == nullptr) return;
    wires_.push_back(camera->accepts());
    const timeval patience{.tv_sec = kPatienceS, .tv_usec = 0};
    setsockopt(wires_.back().descriptor(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
}

void Part::reads(size_t count) {
    if (camera_ == nullptr) return;
    Bytes bytes(count);
    const ssize_t got = recv(wires_.back().descriptor(), bytes.data(), count, MSG_WAITALL);
    if (got != static_cast<ssize_t>(count)) throw Over();
}

void Part::sends(const Bytes& bytes) {
    const size_t room = counting_ ? cut_ - sent_ : SIZE_MAX;
    const Bytes front = slice(bytes, 0, std::min(room, bytes.size()));
    if (counting_) sent_ += front.size();
    if (camera_ == nullptr) return;
    if (!front.empty()) (void)!send(wires_.back().descriptor(), front.data(), front.size(), MSG_NOSIGNAL);
    if (counting_ && sent_ == cut_) end();
}

void Part::end() {
    Wire& wire = wires_.back();
    if (ending_ == Ending::kClosed) wire.closes();
    if (ending_ == Ending::kReset) wire.resets();
    const Bytes garbage = pattern(kGarbage, static_cast<uint32_t>(cut_) + 7);
    if (ending_ == Ending::kGarbage)
        (void)!send(wire.descriptor(), garbage.data(), garbage.size(), MSG_NOSIGNAL);
    throw Over();
}

void Part::logs_in() {
    accepts();
    reads(32);
    sends(command(LENSWIRE_CMD_SERIAL, default_serial()).bytes());
    reads(32 + LENSWIRE_LOGIN_SIZE);
    sends(command(LENSWIRE_CMD_LOGIN, {}, 0, kLoginId).bytes());
}

bool wait_for(const std::function<bool()>& predicate) {
    return wait_until(predicate, std::chrono::seconds(kPatienceS) * g_time_scale.load());
}

HostNotes::HostNotes() {
    static const Folder folder;
    static const std::string path = folder.write("A_B_x.bin", pattern(kFileBytes));
    g_file = path.c_str();
    const auto count = [](auto& counts) {
        return [&counts](int channel, int) { ++counts[static_cast<size_t>(channel)]; };
    };
    host().when(Service::kInsertMessage, count(g_restarts));
    host().when(Service::kSetMotionStatus, count(g_motions));
    clock_ = std::thread([this] {
        timespec now{};
        while (!stop_) {
            clock_gettime(CLOCK_MONOTONIC, &now);
            host().clock.set(static_cast<uint32_t>(now.tv_sec));
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    });
}

HostNotes::~HostNotes() {
    stop_ = true;
    clock_.join();
}

}  // namespace lenswire::fuzz
