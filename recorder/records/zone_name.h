// Time zones: as the user names them, as the recorder does, and as cameras count them.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace lenswire::recorder {

// Cameras count half hours from GMT-12:00 to GMT+14:00.
inline constexpr int kCameraZones = 53;
inline constexpr int kCameraZoneOfGreenwich = 24;
inline constexpr int kMinutesOfZone = 30;

// "GMT+08:00"
struct ZoneText {
    std::array<char, 9> characters{};
    constexpr std::string_view view() const { return {characters.data(), characters.size()}; }
};
constexpr ZoneText zone_text(int minutes) {
    const int size = minutes < 0 ? -minutes : minutes;
    const auto digit = [](int value) { return static_cast<char>('0' + value); };
    return {{'G', 'M', 'T', minutes < 0 ? '-' : '+', digit(size / 600), digit(size / 60 % 10), ':',
             digit(size % 60 / 10), digit(size % 10)}};
}

// Minutes east of Greenwich; the zone's of the machine's tables as they are today. Of GMT+08:00, +8, -03:30,
// UTC, Europe/Berlin. None when it is nothing of the kind.
std::optional<int> zone_minutes(std::string_view text);

// The same in the form GMT+08:00; what is none stays as it is.
std::string zone_name(std::string_view text);

}  // namespace lenswire::recorder
