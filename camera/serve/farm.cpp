#include "camera/serve/farm.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <utility>

namespace lenswire::camera {

std::string address_above(const std::string& first, uint32_t index) {
    in_addr address{};
    if (inet_pton(AF_INET, first.c_str(), &address) != 1) return {};
    const uint64_t sum = uint64_t{ntohl(address.s_addr)} + index;
    if (sum > 0xFFFFFFFF) return {};
    address.s_addr = htonl(static_cast<uint32_t>(sum));
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &address, text, sizeof text);
}

CameraFarm::CameraFarm(unsigned threads, Clock clock)
    : threads_(std::max(threads, 1U)), clock_(std::move(clock)) {}

CameraFarm::~CameraFarm() {
    for (const auto& loop : loops_) loop->stop();
    cameras_.clear();
}

void CameraFarm::settle() {
    for (const auto& loop : loops_) loop->settle();
}

Camera* CameraFarm::add(CameraConfig config, std::string* error) {
    if (loops_.size() < threads_ && loops_.size() <= cameras_.size()) {
        auto loop = std::make_shared<Loop>(clock_);
        if (!loop->start(error)) return nullptr;
        loops_.push_back(std::move(loop));
    }
    auto camera = std::make_unique<Camera>(loops_[cameras_.size() % loops_.size()], std::move(config));
    if (!camera->start(error)) return nullptr;
    cameras_.push_back(std::move(camera));
    return cameras_.back().get();
}

}  // namespace lenswire::camera
