#include "recorder/host/motion_board.h"

namespace lenswire::recorder {
namespace {

constexpr size_t kMostEvents = 1000;  // kept until somebody shows them
constexpr int kMotion = 1;

std::string on_channel(int channel) {
    return " on channel " + std::to_string(channel);
}

}  // namespace

void MotionBoard::set_armed(int channel, bool armed) {
    const std::lock_guard lock(mutex_);
    if (valid(channel)) channels_[channel].armed = armed;
}

bool MotionBoard::armed(int channel) const {
    const std::lock_guard lock(mutex_);
    return valid(channel) && channels_[channel].armed;
}

int MotionBoard::status(int channel) const {
    const std::lock_guard lock(mutex_);
    return valid(channel) ? channels_[channel].status : 0;
}

bool MotionBoard::set_status(int channel, int status) {
    const std::lock_guard lock(mutex_);
    if (!valid(channel)) return false;
    Channel& entry = channels_[channel];
    const bool began = status == kMotion && entry.status != kMotion;
    const bool ended = status != kMotion && entry.status == kMotion;
    entry.status = status;
    entry.counts.motion = status == kMotion;
    if (began) ++entry.counts.motions;
    if (began) note("motion" + on_channel(channel));
    if (ended) note("motion ended" + on_channel(channel));
    return true;
}

bool MotionBoard::set_snapshots(int channel, int state) {
    const std::lock_guard lock(mutex_);
    if (!valid(channel)) return false;
    channels_[channel].counts.snapshots = state != 0;
    return true;
}

bool MotionBoard::queue_alarm(uint8_t type, int channel) {
    const std::lock_guard lock(mutex_);
    if (!valid(channel)) return false;
    ++channels_[channel].counts.alarms;
    switch (type) {
        case kMotionAlarm:
            note("alarm: motion" + on_channel(channel));
            break;
        case kUpgradeAlarm:
            note("alarm: firmware upgrade failed" + on_channel(channel));
            break;
        default:
            note("alarm of type " + std::to_string(type) + on_channel(channel));
    }
    return true;
}

MotionBoard::Counts MotionBoard::counts(int channel) const {
    const std::lock_guard lock(mutex_);
    return valid(channel) ? channels_[channel].counts : Counts{};
}

void MotionBoard::note(std::string line) {
    if (events_.size() == kMostEvents) events_.pop_front();
    events_.push_back(std::move(line));
}

std::optional<std::string> MotionBoard::next_event() {
    const std::lock_guard lock(mutex_);
    if (events_.empty()) return std::nullopt;
    std::string line = std::move(events_.front());
    events_.pop_front();
    return line;
}

}  // namespace lenswire::recorder
