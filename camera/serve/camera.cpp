#include "camera/serve/camera.h"

#include <utility>

#include "camera/serve/camera_core.h"

namespace lenswire::camera {

Camera::Camera(std::shared_ptr<Loop> loop, CameraConfig config) : loop_(std::move(loop)) {
    const auto guard = loop_->lock();
    core_ = std::make_unique<CameraCore>(*loop_, std::move(config));
}

Camera::~Camera() {
    const auto guard = loop_->lock();
    core_.reset();
}

bool Camera::start(std::string* error) {
    const auto guard = loop_->lock();
    return core_->start(error);
}

void Camera::stop() {
    const auto guard = loop_->lock();
    core_->stop();
}

void Camera::restart_in(int64_t down_ms) {
    const auto guard = loop_->lock();
    core_->restart_in(down_ms);
}

bool Camera::running() const {
    const auto guard = loop_->lock();
    return core_->running;
}

std::string Camera::address() const {
    return core_->config.address;
}

uint16_t Camera::port() const {
    const auto guard = loop_->lock();
    return core_->port;
}

const CameraConfig& Camera::config() const {
    return core_->config;
}

CameraStats Camera::stats() const {
    const auto guard = loop_->lock();
    return core_->stats();
}

std::vector<StreamStats> Camera::streams() const {
    const auto guard = loop_->lock();
    std::vector<StreamStats> streams;
    for (const auto& stream : core_->streams) streams.push_back(*stream);
    return streams;
}

std::vector<UploadStats> Camera::uploads() const {
    const auto guard = loop_->lock();
    std::vector<UploadStats> uploads;
    for (const auto& upload : core_->uploads) uploads.push_back(*upload);
    return uploads;
}

std::vector<Received> Camera::received() const {
    const auto guard = loop_->lock();
    return {core_->received.begin(), core_->received.end()};
}

std::vector<Command> Camera::received(uint16_t code) const {
    const auto guard = loop_->lock();
    std::vector<Command> commands;
    for (const Received& each : core_->received) {
        if (each.command.code == code) commands.push_back(each.command);
    }
    return commands;
}

bool Camera::wait(const std::function<bool(const CameraStats&)>& predicate, int64_t timeout_ms) const {
    auto guard = loop_->lock();
    return loop_->wait(guard, timeout_ms, [&] { return predicate(core_->stats()); });
}

bool Camera::wait_received(uint16_t code, size_t count, int64_t timeout_ms) const {
    return wait([&](const CameraStats&) { return received(code).size() >= count; }, timeout_ms);
}

void Camera::add_fault(Fault fault) {
    const auto guard = loop_->lock();
    if (const auto* answer = std::get_if<AnswerFault>(&fault)) core_->answer_faults.push_back(*answer);
    if (const auto* stream = std::get_if<StreamFault>(&fault)) core_->stream_faults.push_back(*stream);
    if (const auto* upload = std::get_if<UploadFault>(&fault)) core_->upload_faults.push_back(*upload);
}

void Camera::clear_faults() {
    const auto guard = loop_->lock();
    core_->answer_faults.clear();
    core_->stream_faults.clear();
    core_->upload_faults.clear();
}

void Camera::on_command(uint16_t code, CommandHook hook) {
    const auto guard = loop_->lock();
    if (hook) {
        core_->hooks[code] = std::move(hook);
    } else {
        core_->hooks.erase(code);
    }
}

void Camera::watch_commands(std::function<void(const Command&)> watcher) {
    const auto guard = loop_->lock();
    core_->watcher = std::move(watcher);
}

void Camera::watch_faults(std::function<void(const std::string&)> watcher) {
    const auto guard = loop_->lock();
    core_->fault_watcher = std::move(watcher);
}

size_t Camera::push_motion(uint8_t state) {
    const auto guard = loop_->lock();
    return core_->push_motion(state);
}

void Camera::finish_streams(bool close) {
    const auto guard = loop_->lock();
    core_->finish_streams(close);
}

void Camera::drop_control_connections() {
    const auto guard = loop_->lock();
    core_->drop_control_connections();
}

Bytes Camera::record(uint16_t code) const {
    const auto guard = loop_->lock();
    return core_->settings.record(code);
}

void Camera::set_record(uint16_t code, Bytes bytes) {
    const auto guard = loop_->lock();
    core_->settings.set_record(code, std::move(bytes));
}

}  // namespace lenswire::camera
