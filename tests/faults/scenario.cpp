#include "faults/scenario.h"

#include <arpa/inet.h>
#include <unistd.h>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "lenswire/lenswire.h"
#include "support/connections.h"

namespace lenswire::test {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kSoon{3'000};  // far beyond what a step takes
constexpr milliseconds kUpgrade{10'000};
constexpr int kChannel = 3;

bool is_in_a_slot(int fd) {
    const auto holds = [fd](const int32_t& slot) { return __atomic_load_n(&slot, __ATOMIC_ACQUIRE) == fd; };
    return std::any_of(arrayfd, arrayfd + LENSWIRE_STREAM_SLOTS, holds);
}

}  // namespace

Scenario::Scenario() {
    char folder[] = "/tmp/lenswire-faults-XXXXXX";
    folder_ = mkdtemp(folder);
    firmware_ = folder_ + "/LW_20_new.bin";
    std::ofstream(firmware_) << std::string(100'000, 'f');

    camera::CameraConfig config{.password = "12345", .reboot_ms = 1};
    for (camera::StreamConfig& stream : config.streams)
        stream = {.synthetic = camera::Synthetic{.mbit = 1, .frame_rate = 50, .audio = true}};
    std::string error;
    camera_ = farm_.add(config, &error);
    if (camera_ == nullptr) std::abort();
    ip_ = inet_addr(camera_->address().c_str());

    has_channel(true);
    host().has_record(LENSWIRE_TABLE_MOTION, kChannel, Bytes(sizeof(HostMotionRecord)));
}

Scenario::~Scenario() {
    std::filesystem::remove_all(folder_);
}

void Scenario::has_channel(bool armed) {
    host().has_channel(
        kChannel,
        {.address = camera_->address(), .port = camera_->port(), .armed = armed ? 1 : 0, .motion = 1});
}

bool Scenario::run() {
    camera_->wait([this](const auto&) { return camera_->running(); });
    StreamConn* unit = PC_CreateNew();
    if (unit == nullptr) return false;
    bool good = log_in(unit);
    if (good) {
        good = gets() && good;
        good = sets() && good;
        good = streams(unit) && good;
        good = motion() && good;
        good = upgrade() && good;
    }
    const int socket = unit->sockFd;
    PC_Delete(unit);
    if (socket >= 0) close(socket);
    return good;
}

bool Scenario::log_in(StreamConn* unit) {
    const LoginInfo info = credentials();
    return PC_Login(unit, ip_, camera_->port(), &info, kChannel, 0) == 0;
}

bool Scenario::gets() const {
    uint8_t out[LENSWIRE_ENCODING_SCOPE_SIZE > 4096 ? LENSWIRE_ENCODING_SCOPE_SIZE : 4096] = {};
    bool good = Prv_GetIPCImageProperty(kChannel, ip_, out) == 0;
    good = Prv_GetIPCOSD(kChannel, ip_, out) == 0 && good;
    good = Private_Protocol_GetEncodingScope(kChannel, ip_, out) == 0 && good;
    good = Prv_Get_IPC_PropertyParam(kChannel, out) == 0 && good;
    Private_Fish_Protocol_EYE_PROPERTY(kChannel, ip_, out);
    return good;
}

bool Scenario::sets() const {
    uint8_t image[36] = {};
    HostCameraRecord record{
        .reserved0 = 0, .ucChannelNo = kChannel, .reserved2 = {}, .szIpAddr = {}, .ulPort = 0};
    std::strcpy(record.szIpAddr, camera_->address().c_str());
    bool good = Prv_SetIPCImageProperty(ip_, image) == 0;
    good = Prv_SetIPCTimeAndDate(&record) == 0 && good;
    good = Prv_CloseMD(kChannel, ip_) == 0 && good;
    Private_ptzCruiseInit();
    Private_SetPtzSpeed(kChannel, 3);
    return good;
}

bool Scenario::streams(StreamConn* unit) {
    uint8_t description[LENSWIRE_STREAM_ANSWER_SIZE];
    if (PC_GetStream(unit, 0, 0, description) != 0) return false;
    const size_t frames = stream_.frames.size(), rates = host().network_params.size();
    const size_t restarts = host().restarts.size();
    host().posts_open(kChannel, 0, unit, buffer_, stream_);
    const bool came = wait_until(
        [&] { return stream_.frames.size() >= frames + 10 && host().network_params.size() > rates; }, kSoon);
    camera_->finish_streams(true);
    const bool restarted = wait_until([&] { return host().restarts.size() > restarts; }, kSoon);
    const auto closed = [&] {
        host().posts_close(kChannel, 0);
        return host().waits_for_requests_taken() && !is_in_a_slot(unit->sockFd);
    };
    // One word may fail to reach the library; the host says it again.
    return wait_until(closed, kSoon) && came && restarted;
}

// A channel that is guarded, and one whose motion ends with an alarm since it is not.
bool Scenario::motion() {
    const size_t calls = host().motion_calls.size(), alarms = host().alarms.size();
    camera_->push_motion(1);
    const bool seen = wait_until([&] { return host().motion_calls.size() > calls; }, kSoon);
    has_channel(false);
    camera_->push_motion(1);
    const bool ended = wait_until([&] { return host().alarms.size() > alarms; }, kSoon);
    has_channel(true);
    return seen && ended;
}

bool Scenario::upgrade() {
    UpgradeRequest request{};
    request.aucChannel[kChannel] = 1;
    std::strcpy(request.szFilePath, firmware_.c_str());
    CheckUpgradFile2(0, firmware_.c_str());
    const auto reboots = camera_->stats().reboots;
    pthread_t job{};
    if (Prv_ipc_upgrade(&request, &job) != 0) return false;
    UpgradeJobStatus status{};
    const bool ended = wait_until(
        [&] { return Prv_ipc_upgrade_get_status(job, &status) == 0 && status.ulUsed == 0; }, kUpgrade);
    if (!ended || status.camera[0].ulState != UPGRADE_DONE) return false;
    return camera_->wait([&](const auto& stats) { return stats.reboots > reboots && camera_->running(); });
}

Holdings Scenario::holdings() const {
    return {open_descriptors(), thread_count()};
}

bool Scenario::comes_back_to(const Holdings& before) const {
    camera_->drop_control_connections();
    camera_->finish_streams(true);
    return wait_until(
        [&] {
            const Holdings now = holdings();
            return now.descriptors <= before.descriptors && now.threads <= before.threads &&
                   host().live_allocations() == 0 && g_rs_num == 0;
        },
        kUpgrade);
}

}  // namespace lenswire::test
