#include "camera/device/ptz_model.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "lenswire/protocol.h"
#include "lenswire/ptz_codes.h"

namespace lenswire::camera {
namespace {

constexpr double kFastestDegrees = 120;  // a second, at speed 255
constexpr double kZoomPerDegree = 0.1;   // the zoom turns as a move does, so much slower
constexpr double kShortestDwell = 0.1;   // seconds, so that a line of no dwell times still takes time
constexpr uint8_t kSpeedOfNoSpeed = 64;

struct Direction {
    uint8_t code;
    int pan, tilt, zoom;
};

constexpr Direction kDirections[] = {
    {LENSWIRE_PTZ_LEFT, -1, 0, 0}, {LENSWIRE_PTZ_RIGHT, 1, 0, 0},   {LENSWIRE_PTZ_UP, 0, 1, 0},
    {LENSWIRE_PTZ_DOWN, 0, -1, 0}, {LENSWIRE_PTZ_ZOOM_IN, 0, 0, 1}, {LENSWIRE_PTZ_ZOOM_OUT, 0, 0, -1},
};

double wrap(double degrees) {
    const double rest = std::fmod(degrees, 360);
    return rest < 0 ? rest + 360 : rest;
}

// The shorter way round from one pan angle to another.
double pan_way(double from, double to) {
    const double way = wrap(to - from);
    return way > 180 ? way - 360 : way;
}

}  // namespace

// Before anybody sets one, the presets look round in steps.
PtzModel::PtzModel() {
    for (size_t i = 0; i < kPresets; ++i) {
        presets_[i] = {
            .pan = wrap(static_cast<double>(i) * 45), .tilt = static_cast<double>(i % 5) * 15, .zoom = 1};
    }
}

double PtzModel::degrees_per_second(uint32_t speed) const {
    if (speed == 0) speed = speed_ == 0 ? kSpeedOfNoSpeed : speed_;
    return kFastestDegrees * std::min(speed, 255U) / 255;
}

std::optional<uint8_t> PtzModel::point() const {
    if (!line_) return std::nullopt;
    return lines_[*line_][stop_].point;
}

void PtzModel::halt() {
    doing_ = Doing::kStill;
    line_.reset();
    dwelling_ = false;
}

void PtzModel::operate(uint8_t code, uint8_t argument, int64_t now_us) {
    advance(now_us);
    switch (code) {
        case LENSWIRE_PTZ_STOP:
            return halt();
        case LENSWIRE_PTZ_SET_PRESET:
            presets_[argument] = position_;
            return;
        case LENSWIRE_PTZ_GOTO_PRESET:
            halt();
            doing_ = Doing::kToPreset;
            target_ = argument;
            travel_speed_ = 0;
            return;
        case LENSWIRE_PTZ_START_CRUISE:
            return start_line(argument);
        case LENSWIRE_PTZ_STOP_CRUISE:
            if (line_ == argument) halt();
            return;
        default:
            break;
    }
    for (const Direction& way : kDirections) {
        if (way.code != code) continue;
        halt();
        const double speed = degrees_per_second(argument);
        doing_ = Doing::kMoving;
        velocity_ = {
            .pan = way.pan * speed, .tilt = way.tilt * speed, .zoom = way.zoom * speed * kZoomPerDegree};
    }
}

void PtzModel::start_line(uint8_t line) {
    if (line >= kLines || lines_[line].empty()) return;
    halt();
    doing_ = Doing::kCruising;
    line_ = line;
    stop_ = 0;
    aim_at_stop();
}

void PtzModel::set_line(size_t line, std::vector<CruiseStop> stops, int64_t now_us) {
    advance(now_us);
    lines_[line] = std::move(stops);
    if (line_ != line) return;
    if (lines_[line].empty()) return halt();
    start_line(static_cast<uint8_t>(line));
}

void PtzModel::aim_at_stop() {
    const CruiseStop& stop = lines_[*line_][stop_];
    target_ = stop.preset;
    travel_speed_ = stop.speed;
    dwelling_ = false;
}

void PtzModel::advance(int64_t now_us) {
    double seconds = time_us_ == 0 ? 0 : static_cast<double>(now_us - time_us_) / 1e6;
    time_us_ = now_us;
    while (seconds > 0 && doing_ != Doing::kStill) seconds = step(seconds);
}

// Each step goes on until its phase or the time ends, and returns the time that is left.
double PtzModel::step(double seconds) {
    if (doing_ == Doing::kMoving) return step_move(seconds);
    return dwelling_ ? step_dwell(seconds) : step_to_preset(seconds);
}

double PtzModel::step_move(double seconds) {
    position_.pan = wrap(position_.pan + velocity_.pan * seconds);
    position_.tilt = std::clamp(position_.tilt + velocity_.tilt * seconds, 0.0, 90.0);
    position_.zoom = std::clamp(position_.zoom + velocity_.zoom * seconds, 1.0, 30.0);
    return 0;
}

double PtzModel::step_to_preset(double seconds) {
    const PtzPosition& target = presets_[target_];
    const double pan = pan_way(position_.pan, target.pan);
    const double tilt = target.tilt - position_.tilt;
    const double zoom = target.zoom - position_.zoom;
    const double speed = degrees_per_second(travel_speed_);
    const double needed = std::max({std::abs(pan), std::abs(tilt), std::abs(zoom) / kZoomPerDegree}) / speed;
    if (needed > seconds) {
        const double part = seconds / needed;
        position_ = {wrap(position_.pan + pan * part), position_.tilt + tilt * part,
                     position_.zoom + zoom * part};
        return 0;
    }
    position_ = target;
    preset_ = target_;
    if (!line_) {
        halt();
    } else {
        dwelling_ = true;
        dwell_left_ = std::max(lines_[*line_][stop_].dwell / 10.0, kShortestDwell);
    }
    return seconds - needed;
}

double PtzModel::step_dwell(double seconds) {
    if (seconds < dwell_left_) {
        dwell_left_ -= seconds;
        return 0;
    }
    stop_ = (stop_ + 1) % lines_[*line_].size();
    aim_at_stop();
    return seconds - dwell_left_;
}

}  // namespace lenswire::camera
