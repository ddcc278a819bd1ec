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
    : host_((check_addresses(cameras), options.database)),
      plugin_(options.library),
      context_(plugin_),
      login_failures_(cameras.size()) {
    for (const CameraAddress& camera : cameras) {
        const int channel = host_.store.bind_camera(camera);
        if (channel >= kChannels) throw bad_input("the database has no channel below 64 left");
        cameras_.push_back({.name = camera.name(), .channel = channel});
        links_.push_back(std::make_unique<CameraLink>(plugin_, camera, channel, 0));
    }
    std::vector<std::jthread> logins;
    for (size_t i = 0; i < links_.size(); ++i) {
        logins.emplace_back([this, i] {
            const int result = links_[i]->login();
            if (result != 0) login_failures_[i] = login_failure(result);
        });
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
            questions.emplace_back([this, i, &path, &lines] { lines[i] = objection(i, path); });
        }
    }
    std::erase(lines, "");
    return lines;
}

std::string UpgradeSession::objection(size_t index, const std::string& path) {
    const std::string camera = "camera " + cameras_[index].name;
    if (!login_failures_[index].empty()) return camera + " " + login_failures_[index];
    const int channel = cameras_[index].channel;
    const auto record = host_.store.channel_record(channel);
    if (!record || record->ucProtocol != LENSWIRE_PROTOCOL) {
        return camera + " is on channel " + std::to_string(channel) + ", which is of another protocol";
    }
    const uint32_t ip = links_[index]->address().ip;
    if (!request(plugin_, ip, LENSWIRE_CMD_DEVICE_INFO, LENSWIRE_DEVICE_INFO_SIZE)) {
        return camera + " does not tell what it is";
    }
    if (plugin_.Get_IPC_upgradeParam(channel, path_for_library(path).data()) == 1) return "";
    return camera + ": " + path + " does not fit it";
}

void UpgradeSession::start(const std::string& path) {
    UpgradeRequest request{};
    for (const Camera& camera : cameras_) request.aucChannel[camera.channel] = 1;
    std::ranges::copy(path, request.szFilePath);
    threads_before_ = threads_of_process();
    if (plugin_.Prv_ipc_upgrade(&request, &job_) != 0)
        throw local_failure("the library does not start the upgrade");
    running_ = true;
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
