#include "recorder/records/zone_name.h"

#include <charconv>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>

namespace lenswire::recorder {
namespace {

constexpr int kFurthestMinutes = 15 * 60;

std::optional<int> number(std::string_view text, int highest) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool good = error == std::errc{} && end == text.data() + text.size() && text.size() <= 2;
    return good && value >= 0 && value <= highest ? std::optional(value) : std::nullopt;
}

// +8, +08, +08:00
std::optional<int> offset(std::string_view text) {
    if (text.empty() || (text[0] != '+' && text[0] != '-')) return std::nullopt;
    const int sign = text[0] == '-' ? -1 : 1;
    text.remove_prefix(1);
    const size_t colon = text.find(':');
    const auto hours = number(text.substr(0, colon), 14);
    const auto minutes = colon == text.npos ? std::optional(0) : number(text.substr(colon + 1), 59);
    if (!hours || !minutes) return std::nullopt;
    const int all = sign * (*hours * 60 + *minutes);
    return std::abs(all) < kFurthestMinutes ? std::optional(all) : std::nullopt;
}

// The offset that the machine's tables have for now.
std::optional<int> of_tables(const std::string& name) {
    const bool plain = !name.empty() && name[0] != '/' && name.find("..") == name.npos;
    std::error_code error;
    if (!plain || !std::filesystem::is_regular_file("/usr/share/zoneinfo/" + name, error))
        return std::nullopt;
    const char* present = std::getenv("TZ");
    const std::optional<std::string> before =
        present != nullptr ? std::optional<std::string>(present) : std::nullopt;
    setenv("TZ", name.c_str(), 1);
    tzset();
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    if (before) {
        setenv("TZ", before->c_str(), 1);
    } else {
        unsetenv("TZ");
    }
    tzset();
    return static_cast<int>(local.tm_gmtoff / 60);
}

}  // namespace

std::optional<int> zone_minutes(std::string_view text) {
    const bool greenwich = text.starts_with("GMT") || text.starts_with("UTC");
    const std::string_view rest = greenwich ? text.substr(3) : text;
    if (greenwich && rest.empty()) return 0;
    if (const auto minutes = offset(rest)) return minutes;
    return of_tables(std::string(text));
}

std::string zone_name(std::string_view text) {
    const auto minutes = zone_minutes(text);
    return minutes ? std::string(zone_text(*minutes).view()) : std::string(text);
}

}  // namespace lenswire::recorder
