#include "camera/device/settings.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "camera/device/layouts.h"
#include "lenswire/protocol.h"

namespace lenswire::camera {
namespace {

constexpr size_t kCruisePointsAt = 68;
constexpr size_t kCruisePointSize = 28;
constexpr size_t kCruisePoints = 32;
constexpr size_t kFirmwareNameSize = 64;
constexpr size_t kPresetSize = 6;  // in its file: pan, tilt and zoom in hundredths

const char* file_name(uint16_t code) {
    const Layout* layout = layout_of_get(code);
    if (layout == nullptr) layout = layout_of_set(code);
    return layout->name;
}

Command many_records(const Command& request, Bytes records, uint32_t size) {
    Command answer = answer_to(request, std::move(records));
    answer.buffer_size = size;
    answer.buffer_num = static_cast<uint32_t>(answer.payload.size()) / size;
    return answer;
}

uint16_t hundredths(double value) {
    return static_cast<uint16_t>(std::lround(value * 100));
}

std::vector<CruiseStop> stops_of(std::span<const uint8_t> line) {
    std::vector<CruiseStop> stops;
    for (size_t i = 0; i < kCruisePoints; ++i) {
        const auto entry = line.subspan(kCruisePointsAt + i * kCruisePointSize, kCruisePointSize);
        if (entry[4] != 1 || entry[6] == 0) continue;
        stops.push_back({.point = static_cast<uint8_t>(i),
                         .preset = entry[5],
                         .dwell = entry[6],
                         .speed = get_u32(&entry[8])});
    }
    return stops;
}

}  // namespace

const Settings::Exchange Settings::kExchanges[] = {
    {LENSWIRE_CMD_IMAGE_GET, LENSWIRE_IMAGE_SIZE, 1, &Settings::get_plain},
    {LENSWIRE_CMD_IMAGE_SET, LENSWIRE_IMAGE_SIZE, 1, &Settings::set_plain},
    {LENSWIRE_CMD_NETWORK_GET, LENSWIRE_NETWORK_SIZE, 1, &Settings::get_plain},
    {LENSWIRE_CMD_OSD_GET, LENSWIRE_OSD_SIZE, 1, &Settings::get_plain},
    {LENSWIRE_CMD_OSD_SET, LENSWIRE_OSD_SIZE, 1, &Settings::set_plain},
    {LENSWIRE_CMD_WIFI_GET, LENSWIRE_WIFI_SIZE, 1, &Settings::get_plain},
    {LENSWIRE_CMD_MOTION_GET, LENSWIRE_MOTION_SIZE, 1, &Settings::get_plain},
    {LENSWIRE_CMD_MOTION_SET, LENSWIRE_MOTION_SIZE, 1, &Settings::set_plain},
    {LENSWIRE_CMD_COVER_GET, LENSWIRE_COVER_SIZE, 1, &Settings::get_plain},
    {LENSWIRE_CMD_COVER_SET, LENSWIRE_COVER_SIZE, 1, &Settings::set_plain},
    {LENSWIRE_CMD_FISH_PROPERTY_GET, LENSWIRE_FISH_PROPERTY_SIZE, 1, &Settings::get_plain},
    {LENSWIRE_CMD_DEVICE_INFO, LENSWIRE_DEVICE_INFO_SIZE, 1, &Settings::get_plain},
    {LENSWIRE_CMD_PROPERTY_BLOCK, LENSWIRE_PROPERTY_BLOCK_SIZE, 1, &Settings::get_plain},
    {LENSWIRE_CMD_ENCODING_SCOPE, LENSWIRE_ENCODING_SCOPE_SIZE, 1, &Settings::get_plain},
    {LENSWIRE_CMD_SMART_IFRAME_SET, LENSWIRE_SMART_IFRAME_SIZE, 1, &Settings::set_plain},
    {LENSWIRE_CMD_ALARM_EX, LENSWIRE_ALARM_EX_SIZE, 1, &Settings::set_plain},
    {LENSWIRE_CMD_TIME_GET, LENSWIRE_TIME_SIZE, 0, &Settings::get_time},
    {LENSWIRE_CMD_TIME_SET, LENSWIRE_TIME_SIZE, 1, &Settings::set_time},
    {LENSWIRE_CMD_ENCODING_GET, LENSWIRE_ENCODING_SIZE, 1, &Settings::get_encoding},
    {LENSWIRE_CMD_ENCODING_SET, LENSWIRE_ENCODING_SIZE, 3, &Settings::set_encoding},
    {LENSWIRE_CMD_FISH_ENCODING_GET, LENSWIRE_FISH_ENCODING_SIZE, 1, &Settings::get_fish_encoding},
    {LENSWIRE_CMD_FISH_ENCODING_SET, LENSWIRE_FISH_ENCODING_SIZE, 3, &Settings::set_plain},
    {LENSWIRE_CMD_PTZ_GET, 0, 0, &Settings::get_ptz},
    {LENSWIRE_CMD_PTZ_SET, LENSWIRE_PTZ_SIZE, 1, &Settings::set_ptz},
    {LENSWIRE_CMD_PTZ_OPTION, LENSWIRE_PTZ_OPTION_SIZE, 1, &Settings::operate_ptz},
    {LENSWIRE_CMD_CRUISE_GET, LENSWIRE_CRUISE_SIZE, 1, &Settings::get_cruise},
    {LENSWIRE_CMD_CRUISE_SET, LENSWIRE_CRUISE_SIZE, 1, &Settings::set_cruise},
};

int64_t wall_us() {
    const auto since = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::microseconds>(since).count();
}

std::string next_firmware_name(const std::string& name) {
    const size_t last = name.find_last_of("0123456789");
    if (last == std::string::npos) return name + "_1";
    size_t first = last;
    while (first > 0 && name[first - 1] >= '0' && name[first - 1] <= '9') --first;
    std::string digits = name.substr(first, last + 1 - first);
    size_t at = digits.size();
    while (at > 0 && digits[at - 1] == '9') digits[--at] = '0';
    if (at == 0) {
        digits.insert(digits.begin(), '1');
    } else {
        ++digits[at - 1];
    }
    return name.substr(0, first) + digits + name.substr(last + 1);
}

Settings::Settings(Surroundings surroundings, WallClock clock)
    : around_(std::move(surroundings)),
      clock_source_(std::move(clock)),
      records_(default_records(around_)),
      clock_(clock_source_()) {
    for (size_t line = 0; line < PtzModel::kLines; ++line) use_cruise_line(line);
}

bool Settings::load(std::string* error) {
    if (around_.device.state_dir.empty()) return true;
    std::string wrong;
    store_ = Store::open(around_.device.state_dir, &wrong);
    if (!wrong.empty()) {
        *error = wrong;
        return false;
    }
    for (auto& [code, record] : records_) {
        if (auto kept = store_.load(file_name(code), record.size())) record = std::move(*kept);
    }
    if (const auto firmware = store_.load("firmware", kFirmwareNameSize))
        take_new_firmware(get_text(*firmware));
    load_clock();
    load_presets();
    for (size_t line = 0; line < PtzModel::kLines; ++line) use_cruise_line(line);
    ptz_.set_speed(records_[LENSWIRE_CMD_PTZ_GET][1]);
    return true;
}

void Settings::set_port(uint16_t port) {
    set_field(records_[LENSWIRE_CMD_NETWORK_GET], *layout_of_get(LENSWIRE_CMD_NETWORK_GET), "port", port);
}

Settings::Outcome Settings::handle(const Command& request) {
    const auto* row = std::find_if(std::begin(kExchanges), std::end(kExchanges),
                                   [&](const Exchange& each) { return each.code == request.code; });
    if (row == std::end(kExchanges)) return {answer_to(request, {}, kStateUnsupported), true};
    if (request.buffer_size == row->size && request.buffer_num == row->number)
        return (this->*row->handler)(request);
    if (layout_of_get(request.code) == nullptr) return {std::nullopt, false};
    return {answer_to(request, {}, kStateBadRequest), false};
}

Settings::Outcome Settings::get_plain(const Command& request) {
    return {answer_to(request, records_[request.code]), true};
}

Settings::Outcome Settings::set_plain(const Command& request) {
    const uint16_t get = layout_of_set(request.code)->get;
    const uint16_t code = get != 0 ? get : request.code;
    records_[code] = request.payload;
    keep(code);
    return {std::nullopt, true};
}

Settings::Outcome Settings::get_time(const Command& request) {
    return {answer_to(request, clock_.record(clock_source_())), true};
}

Settings::Outcome Settings::set_time(const Command& request) {
    clock_.set(request.payload, clock_source_());
    keep_clock();
    return {std::nullopt, true};
}

Settings::Outcome Settings::get_encoding(const Command& request) {
    const Bytes& records = records_[LENSWIRE_CMD_ENCODING_GET];
    const uint8_t stream = request.payload[1];
    if (stream == LENSWIRE_ALL_STREAMS) return {many_records(request, records, LENSWIRE_ENCODING_SIZE), true};
    const size_t at = size_t{stream} * LENSWIRE_ENCODING_SIZE;
    if (at + LENSWIRE_ENCODING_SIZE > records.size())
        return {answer_to(request, {}, kStateUnsupported), true};
    const auto record = std::span(records).subspan(at, LENSWIRE_ENCODING_SIZE);
    return {answer_to(request, Bytes(record.begin(), record.end())), true};
}

// Each record finds its place by its stream type, so their order does not matter.
Settings::Outcome Settings::set_encoding(const Command& request) {
    Bytes& records = records_[LENSWIRE_CMD_ENCODING_GET];
    bool understood = true;
    for (size_t at = 0; at < request.payload.size(); at += LENSWIRE_ENCODING_SIZE) {
        const size_t place = size_t{request.payload[at + 1]} * LENSWIRE_ENCODING_SIZE;
        const auto record = std::span(request.payload).subspan(at, LENSWIRE_ENCODING_SIZE);
        if (place + LENSWIRE_ENCODING_SIZE <= records.size()) {
            std::copy(record.begin(), record.end(), records.begin() + static_cast<ptrdiff_t>(place));
        } else {
            understood = false;
        }
    }
    keep(LENSWIRE_CMD_ENCODING_GET);
    return {std::nullopt, understood};
}

Settings::Outcome Settings::get_fish_encoding(const Command& request) {
    return {many_records(request, records_[LENSWIRE_CMD_FISH_ENCODING_GET], LENSWIRE_FISH_ENCODING_SIZE),
            true};
}

Settings::Outcome Settings::get_ptz(const Command& request) {
    return {answer_to(request, ptz_record()), true};
}

// Where the camera looks now is not for a set to say: the host sends back what it once read.
Settings::Outcome Settings::set_ptz(const Command& request) {
    records_[LENSWIRE_CMD_PTZ_GET] = request.payload;
    ptz_.set_speed(request.payload[1]);
    keep(LENSWIRE_CMD_PTZ_GET);
    return {std::nullopt, true};
}

Settings::Outcome Settings::operate_ptz(const Command& request) {
    ptz_.operate(request.payload[1], request.payload[4], clock_source_());
    if (request.payload[1] == LENSWIRE_PTZ_SET_PRESET) keep_presets();
    return {std::nullopt, true};
}

Settings::Outcome Settings::get_cruise(const Command& request) {
    const Bytes& lines = records_[LENSWIRE_CMD_CRUISE_GET];
    const size_t at = size_t{request.payload[1]} * LENSWIRE_CRUISE_SIZE;
    if (at + LENSWIRE_CRUISE_SIZE > lines.size()) return {answer_to(request, {}, kStateUnsupported), false};
    const auto line = std::span(lines).subspan(at, LENSWIRE_CRUISE_SIZE);
    return {answer_to(request, Bytes(line.begin(), line.end())), true};
}

Settings::Outcome Settings::set_cruise(const Command& request) {
    Bytes& lines = records_[LENSWIRE_CMD_CRUISE_GET];
    const size_t line = request.payload[1];
    if ((line + 1) * LENSWIRE_CRUISE_SIZE > lines.size()) return {std::nullopt, false};
    std::copy(request.payload.begin(), request.payload.end(),
              lines.begin() + static_cast<ptrdiff_t>(line * LENSWIRE_CRUISE_SIZE));
    use_cruise_line(line);
    keep(LENSWIRE_CMD_CRUISE_GET);
    return {std::nullopt, true};
}

void Settings::use_cruise_line(size_t line) {
    const Bytes& lines = records_[LENSWIRE_CMD_CRUISE_GET];
    if (line >= PtzModel::kLines || (line + 1) * LENSWIRE_CRUISE_SIZE > lines.size()) return;
    ptz_.set_line(line, stops_of(std::span(lines).subspan(line * LENSWIRE_CRUISE_SIZE, LENSWIRE_CRUISE_SIZE)),
                  clock_source_());
}

Bytes Settings::ptz_record() {
    Bytes record = records_.at(LENSWIRE_CMD_PTZ_GET);
    if (record.size() != LENSWIRE_PTZ_SIZE) return record;
    ptz_.advance(clock_source_());
    const auto counted = [](std::optional<uint8_t> index) { return index ? *index + 1U : 0U; };  // 0: none
    const Layout& layout = *layout_of_get(LENSWIRE_CMD_PTZ_GET);
    set_field(record, layout, "pan", hundredths(ptz_.position().pan));
    set_field(record, layout, "tilt", hundredths(ptz_.position().tilt));
    set_field(record, layout, "zoom", hundredths(ptz_.position().zoom));
    set_field(record, layout, "moving", static_cast<uint32_t>(ptz_.doing()));
    set_field(record, layout, "preset", counted(ptz_.preset()));
    set_field(record, layout, "cruise-line", counted(ptz_.line()));
    set_field(record, layout, "cruise-point", counted(ptz_.point()));
    return record;
}

Bytes Settings::record(uint16_t code) {
    if (code == LENSWIRE_CMD_TIME_GET) return clock_.record(clock_source_());
    if (code == LENSWIRE_CMD_PTZ_GET) return ptz_record();
    const auto found = records_.find(code);
    return found == records_.end() ? Bytes{} : found->second;
}

void Settings::set_record(uint16_t code, Bytes bytes) {
    if (code == LENSWIRE_CMD_TIME_GET) {
        if (bytes.size() == LENSWIRE_TIME_SIZE) clock_.set(bytes, clock_source_());
        return;
    }
    records_[code] = std::move(bytes);
    for (size_t line = 0; code == LENSWIRE_CMD_CRUISE_GET && line < PtzModel::kLines; ++line)
        use_cruise_line(line);
}

bool Settings::detects_motion() const {
    const Bytes& motion = records_.at(LENSWIRE_CMD_MOTION_GET);
    return motion.size() > 1 && motion[1] != 0;
}

void Settings::take_new_firmware(const std::string& name) {
    around_.device.firmware_name = name;
    put_device(records_[LENSWIRE_CMD_DEVICE_INFO], around_.device);
    Bytes kept(kFirmwareNameSize);
    put_text(kept, name);
    store_.save("firmware", kept);
}

// A setting that cannot be kept still holds until the camera ends.
void Settings::keep(uint16_t code) {
    store_.save(file_name(code), records_[code]);
}

// When it was set goes before the record, so that the clock runs on while the camera is off.
void Settings::keep_clock() {
    Bytes bytes(8 + clock_.as_set().size());
    put_u32(&bytes[0], static_cast<uint32_t>(clock_.set_at_us()));
    put_u32(&bytes[4], static_cast<uint32_t>(clock_.set_at_us() >> 32));
    std::ranges::copy(clock_.as_set(), bytes.begin() + 8);
    store_.save("clock", bytes);
}

void Settings::load_clock() {
    const auto bytes = store_.load("clock", size_t{8} + LENSWIRE_TIME_SIZE);
    if (!bytes) return;
    const uint64_t set_at = get_u32(bytes->data()) | static_cast<uint64_t>(get_u32(bytes->data() + 4)) << 32;
    clock_.set(Bytes(bytes->begin() + 8, bytes->end()), static_cast<int64_t>(set_at));
}

void Settings::keep_presets() {
    Bytes bytes(PtzModel::kPresets * kPresetSize);
    for (size_t i = 0; i < PtzModel::kPresets; ++i) {
        const PtzPosition& preset = ptz_.presets()[i];
        put_u16(&bytes[i * kPresetSize], hundredths(preset.pan));
        put_u16(&bytes[i * kPresetSize + 2], hundredths(preset.tilt));
        put_u16(&bytes[i * kPresetSize + 4], hundredths(preset.zoom));
    }
    store_.save("presets", bytes);
}

void Settings::load_presets() {
    const auto bytes = store_.load("presets", PtzModel::kPresets * kPresetSize);
    for (size_t i = 0; bytes && i < PtzModel::kPresets; ++i) {
        const uint8_t* at = bytes->data() + i * kPresetSize;
        ptz_.presets()[i] = {get_u16(at) / 100.0, get_u16(at + 2) / 100.0, get_u16(at + 4) / 100.0};
    }
}

}  // namespace lenswire::camera
