#include "recorder/records/cruise_line.h"

#include <charconv>

#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

constexpr int kUsualTime = 5;
constexpr int kUsualSpeed = 5;
constexpr int kMostPresets = 256;  // travel as one byte, counted from 0
// The camera counts in sixths of the host's unit, in one byte.
constexpr int kLongestTime = 255 / 6;
constexpr int kHighestSpeed = 255;

int number(std::string_view point, std::string_view text, int highest, const char* what) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc{} && end == text.data() + text.size() && value >= 1 && value <= highest)
        return value;
    throw bad_input("point '" + std::string(point) + "': " + what + " must be a number from 1 to " +
                    std::to_string(highest));
}

CruisePoint parse_point(std::string_view text) {
    std::string_view parts[3];
    std::string_view rest = text;
    size_t count = 0;
    for (; count < std::size(parts); ++count) {
        const size_t colon = rest.find(':');
        parts[count] = rest.substr(0, colon);
        if (colon == std::string_view::npos) break;
        rest.remove_prefix(colon + 1);
    }
    if (count == std::size(parts))
        throw bad_input("point '" + std::string(text) + "': expected PRESET[:TIME[:SPEED]]");
    const auto or_usual = [&](size_t index, int usual, int highest, const char* what) {
        return index <= count ? number(text, parts[index], highest, what) : usual;
    };
    CruisePoint point{};
    point.ucUsed = 1;
    point.usPreset = static_cast<uint16_t>(number(text, parts[0], kMostPresets, "the preset"));
    point.ucTime = static_cast<uint8_t>(or_usual(1, kUsualTime, kLongestTime, "the time"));
    point.ucSpeed = static_cast<uint8_t>(or_usual(2, kUsualSpeed, kHighestSpeed, "the speed"));
    return point;
}

}  // namespace

CruiseLine parse_cruise_line(int line, const std::vector<std::string>& points, bool enable) {
    if (points.size() > LENSWIRE_CRUISE_POINTS) throw bad_input("a cruise line has at most 32 points");
    CruiseLine record{};
    record.ucLineNo = static_cast<uint8_t>(line - 1);
    record.ucEnable = enable ? 1 : 0;
    for (size_t i = 0; i < points.size(); ++i) record.points[i] = parse_point(points[i]);
    return record;
}

std::string cruise_text(const CruiseLine& line) {
    std::string text =
        "line " + std::to_string(line.ucLineNo + 1) + (line.ucEnable == 1 ? " enabled" : "") + ":";
    bool any = false;
    for (const CruisePoint& point : line.points) {
        if (point.ucUsed != 1) continue;
        any = true;
        text += " " + std::to_string(point.usPreset) + ":" + std::to_string(point.ucTime) + ":" +
                std::to_string(point.ucSpeed);
    }
    return text + (any ? "\n" : " no points\n");
}

nlohmann::ordered_json cruise_json(const CruiseLine& line) {
    auto points = nlohmann::ordered_json::array();
    for (const CruisePoint& point : line.points) {
        if (point.ucUsed != 1) continue;
        points.push_back(
            {{"preset", uint16_t{point.usPreset}}, {"time", point.ucTime}, {"speed", point.ucSpeed}});
    }
    return {{"line", line.ucLineNo + 1}, {"enabled", line.ucEnable == 1}, {"points", std::move(points)}};
}

}  // namespace lenswire::recorder
