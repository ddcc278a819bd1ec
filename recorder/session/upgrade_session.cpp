#include "recorder/session/upgrade_session.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <thread>

#include "recorder/records/firmware_file.h"
#include "recorder/session/camera_request.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

constexpr auto kReturnLogin = std::chrono::seconds(2);
constexpr useconds_t kReturnPauseUs = 100'000;
constexpr auto kThreadEndPatience = std::chrono::seconds(5);

size_t threads_of_process() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
}

void check_addresses(const std::vector<CameraAddress>& cameras) {
    if (cameras.size() > LENSWIRE_UPGRADE_CAMERAS) throw bad_input("more than 64 cameras");
    for (size_t i = 0; i < cameras.size(); ++i) {
        for (size_t k = 0; k < i; ++k) {
            if (cameras[i].ip != cameras[k].ip) continue;
            throw bad_input("cameras " + cameras[k].name() + " and " + cameras[i].name() +
                            " have one address; only one of them can be upgraded at a time");
        }
    }
}

}  // namespace

UpgradeSession::UpgradeSession(const std::vector<CameraAddress>& cameras, const SessionOptions& options)
    : host_((check_addresses(cameras), options.database)), plugin_(options.library), context_(plugin_) {
    for (const CameraAddress& camera : cameras) {
        const int channel = host_.store.bind_camera(camera);
        if (channel >= kChannels) throw bad_input("the database has no channel below 64 left");
        cameras_.push_back({.name = camera.name(), .channel = channel});
        links_.push_back(std::make_unique<CameraLink>(plugin_, camera, channel, 0));
    }
    std::vector<std::jthread> logins;
    for (size_t i = 0; i < links_.size(); ++i) {
        logins.emplace_back([this, i, &options] { log_in(i, options); });
    }
}

void UpgradeSession::log_in(size_t index, const SessionOptions& options) {
    Camera& camera = cameras_[index];
    try {
        look_at_port(links_[index]->address(), options.timeout());
        const int result = links_[index]->login(options.timeout());
        if (result != kLoggedIn)
            throw Failure(login_exit_code(result), "camera " + camera.name + " " + login_failure(result));
    } catch (const Failure& failure) {
        camera.code = failure.code();
        camera.error = failure.what();
    }
}

UpgradeSession::~UpgradeSession() {
    while (running_ && poll()) usleep(100'000);
    if (threads_before_ != 0) wait_for_thread_end();
}

std::vector<std::string> UpgradeSession::objections(const std::string& path) {
    std::vector<std::string> lines(cameras_.size());
    {
        std::vector<std::jthread> questions;
        for (size_t i = 0; i < cameras_.size(); ++i) {
            if (!cameras_[i].reached()) continue;
            questions.emplace_back([this, i, &path, &lines] { lines[i] = objection(i, path); });
        }
    }
    std::erase(lines, "");
    return lines;
}

std::optional<IpcDeviceInfo> UpgradeSession::device_of(size_t index) {
    const auto bytes =
        request(plugin_, links_[index]->address().ip, LENSWIRE_CMD_DEVICE_INFO, LENSWIRE_DEVICE_INFO_SIZE);
    if (!bytes) return std::nullopt;
    IpcDeviceInfo device{};
    std::memcpy(&device, bytes->data(), sizeof device);
    return device;
}

std::string UpgradeSession::objection(size_t index, const std::string& path) {
    Camera& camera = cameras_[index];
    const std::string name = "camera " + camera.name;
    const auto record = or_nothing([&] { return host_.store.channel_record(camera.channel); });
    camera.code = kFailed;
    if (!record || record->ucProtocol != LENSWIRE_PROTOCOL) {
        return name + " is on channel " + std::to_string(camera.channel) + ", which is of another protocol";
    }
    camera.code = kCameraRefused;
    const auto device = device_of(index);
    if (!device) return name + " does not tell what it is";
    camera.firmware = fixed_text(device->szFirmwareName, sizeof device->szFirmwareName);
    camera.code = kFileDoesNotFit;
    if (plugin_.Get_IPC_upgradeParam(camera.channel, path_for_library(path).data()) != 1)
        return name + ": " + path + " does not fit it";
    camera.code = kDone;
    IpcDeviceInfo own = *device;
    camera.only_name_fits = plugin_.CheckUpgradFile(&own, path.c_str()) != 0 &&
                            plugin_.CheckUpgradFile2(own.ndevType, path.c_str()) != 0;
    return "";
}

void UpgradeSession::start(const std::string& path, std::vector<size_t> which) {
    for (size_t i = 0; which.empty() && i < cameras_.size(); ++i) {
        if (cameras_[i].code == kDone) which.push_back(i);
    }
    UpgradeRequest request{};
    for (const size_t index : which) {
        cameras_[index].started = true;
        request.aucChannel[cameras_[index].channel] = 1;
    }
    std::ranges::copy(path, request.szFilePath);
    if (threads_before_ == 0) threads_before_ = threads_of_process();
    if (plugin_.Prv_ipc_upgrade(&request, &job_) != 0)
        throw local_failure("the library does not start the upgrade");
    running_ = true;
}

void UpgradeSession::settle(size_t index, std::chrono::steady_clock::duration patience) {
    Camera& camera = cameras_[index];
    if (camera.state == UPGRADE_DONE) return await_return(index, patience);
    camera.code = camera.state == UPGRADE_TIMED_OUT ? kTimedOut : kCameraRefused;
    camera.error = "camera " + camera.name + ": the upgrade " + upgrade_state_name(camera.state);
}

void UpgradeSession::leave_out() {
    for (Camera& camera : cameras_) {
        if (camera.code != kDone || camera.started) continue;
        camera.code = kPartlyDone;
        camera.error = "camera " + camera.name + " was left out, since another failed";
    }
}

// The camera goes away on its own time: until it has, it tells its old name.
void UpgradeSession::await_return(size_t index, std::chrono::steady_clock::duration patience) {
    Camera& camera = cameras_[index];
    CameraLink& link = *links_[index];
    const auto end = std::chrono::steady_clock::now() + patience;
    bool was_away = false;
    while (std::chrono::steady_clock::now() < end) {
        if (!link.control_alive()) {
            was_away = true;
            link.login(std::min<std::chrono::steady_clock::duration>(kReturnLogin,
                                                                     end - std::chrono::steady_clock::now()));
        }
        const auto device = link.control_alive() ? device_of(index) : std::nullopt;
        if (device) camera.firmware_after = fixed_text(device->szFirmwareName, sizeof device->szFirmwareName);
        if (device && (was_away || camera.firmware_after != camera.firmware)) return;
        usleep(kReturnPauseUs);
    }
    camera.code = kTimedOut;
    camera.error = "camera " + camera.name + " took the file and " +
                   (was_away ? "did not come back" : "was not restarted");
}

bool UpgradeSession::poll() {
    UpgradeJobStatus status{};
    if (!running_ || plugin_.Prv_ipc_upgrade_get_status(job_, &status) != 0) return running_ = false;
    const uint32_t count = std::min<uint32_t>(status.ulCameraCount, LENSWIRE_UPGRADE_CAMERAS);
    for (uint32_t i = 0; i < count; ++i) {
        const auto camera =
            std::ranges::find(cameras_, static_cast<int>(status.camera[i].ulChannel), &Camera::channel);
        if (camera == cameras_.end()) continue;
        camera->state = static_cast<UpgradeCameraState>(status.camera[i].ulState);
        camera->percent = status.camera[i].ulPercent;
    }
    return running_ = status.ulUsed != 0;
}

// The job's thread is nobody's to join, and it is still in the library's code for a moment after the job is
// over; unloaded too early, that code would be gone beneath it.
void UpgradeSession::wait_for_thread_end() const {
    const auto patience_ends = std::chrono::steady_clock::now() + kThreadEndPatience;
    while (threads_of_process() > threads_before_ && std::chrono::steady_clock::now() < patience_ends)
        usleep(1000);
}

const char* upgrade_state_name(UpgradeCameraState state) {
    switch (state) {
        case UPGRADE_RUNNING:
            return "running";
        case UPGRADE_FAILED:
            return "failed";
        case UPGRADE_TIMED_OUT:
            return "timed out";
        case UPGRADE_DONE:
            return "done";
    }
    return "unknown";
}

}  // namespace lenswire::recorder
