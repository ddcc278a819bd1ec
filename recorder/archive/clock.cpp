#include "recorder/archive/clock.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace lenswire::recorder {
namespace {

constexpr Ms kStep = 500;               // less than this is a clock being steered
constexpr Ms kSteerEvery = 1000;        // by a millisecond
constexpr Ms kLongestUnspent = 10'000;  // time that passed long ago does not count
constexpr Ms kLongestSetBack =
    25 * 3600 * 1000L;  // more than this, and the archive's last instant was the wrong one

Ms now(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return Ms{time.tv_sec} * 1000 + time.tv_nsec / 1'000'000;
}

std::string format_utc(Ms utc, const char* pattern) {
    const Ms seconds = utc >= 0 ? utc / 1000 : (utc - 999) / 1000;
    const time_t time = seconds;
    std::tm parts{};
    gmtime_r(&time, &parts);
    char text[64];
    std::snprintf(text, sizeof text, pattern, parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday,
                  parts.tm_hour, parts.tm_min, parts.tm_sec, static_cast<int>(utc - seconds * 1000));
    return text;
}

}  // namespace

Ms SystemClock::monotonic() const {
    return now(CLOCK_MONOTONIC);
}

Ms SystemClock::wall() const {
    return now(CLOCK_REALTIME);
}

SteeredClock::SteeredClock(const ArchiveClock& source)
    : source_(source), looked_(source.monotonic()), apart_(source.wall() - looked_) {}

std::optional<Ms> SteeredClock::look() {
    const Ms now = source_.monotonic();
    const Ms moved = source_.wall() - now - apart_;
    unspent_ = std::min(unspent_ + now - std::exchange(looked_, now), kLongestUnspent);
    apart_ += moved;
    if (std::abs(moved) >= kStep) return moved;
    wanted_ += moved;
    const Ms most = unspent_ / kSteerEvery;
    const Ms steer = std::clamp(wanted_ - ahead_, -most, most);
    ahead_ += steer;
    unspent_ -= std::abs(steer) * kSteerEvery;
    return std::nullopt;
}

UtcAnchor::UtcAnchor(Ms monotonic, Ms wall, Ms not_before) : offset_(wall - monotonic) {
    if (wall < not_before && not_before - wall <= kLongestSetBack) offset_ = not_before - monotonic;
}

std::string utc_text(Ms utc) {
    return format_utc(utc, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ");
}

std::string segment_name(Ms utc) {
    return format_utc(utc, "%04d-%02d-%02d/%02d-%02d-%02d.%03dZ.mkv");
}

std::optional<Ms> parse_utc(const std::string& text) {
    std::tm parts{};
    char mark[2];  // with the NUL that goes behind it
    int milliseconds = 0;
    int used = 0;
    const char* c = text.c_str();
    if (std::sscanf(c, "%4d-%2d-%2d%n", &parts.tm_year, &parts.tm_mon, &parts.tm_mday, &used) != 3)
        return std::nullopt;
    c += used;
    if (std::sscanf(c, "%1[T ]%2d:%2d%n", mark, &parts.tm_hour, &parts.tm_min, &used) == 3) c += used;
    if (std::sscanf(c, ":%2d%n", &parts.tm_sec, &used) == 1) c += used;
    if (std::sscanf(c, ".%3d%n", &milliseconds, &used) == 1) c += used;
    if (*c == 'Z') ++c;
    if (*c != '\0' || parts.tm_mon < 1 || parts.tm_mon > 12 || parts.tm_mday < 1 || parts.tm_mday > 31 ||
        parts.tm_hour > 23 || parts.tm_min > 59 || parts.tm_sec > 59)
        return std::nullopt;
    parts.tm_year -= 1900;
    --parts.tm_mon;
    return Ms{timegm(&parts)} * 1000 + milliseconds;
}

std::optional<Ms> segment_time(const std::string& name) {
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0, ms = 0;
    if (std::sscanf(name.c_str(), "%4d-%2d-%2d/%2d-%2d-%2d.%3dZ", &y, &mo, &d, &h, &mi, &s, &ms) != 7)
        return std::nullopt;
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", y, mo, d, h, mi, s, ms);
    return parse_utc(text);
}

std::string length_text(Ms length) {
    char text[64];
    const Ms hours = length / 3'600'000;
    const int minutes = static_cast<int>(length / 60'000 % 60);
    const double seconds = static_cast<double>(length % 60'000) / 1000;
    if (hours > 0) {
        std::snprintf(text, sizeof text, "%lld h %02d min %04.1f s", static_cast<long long>(hours), minutes,
                      seconds);
    } else if (minutes > 0) {
        std::snprintf(text, sizeof text, "%d min %04.1f s", minutes, seconds);
    } else {
        std::snprintf(text, sizeof text, "%.1f s", seconds);
    }
    return text;
}

}  // namespace lenswire::recorder
