#include "camera/device/layouts.h"

#include <algorithm>
#include <cstdio>

#include "lenswire/protocol.h"
#include "lenswire/ptz_codes.h"

namespace lenswire::camera {
namespace {

using enum FieldType;

constexpr Field kTime[] = {{"year", 0, kU16, 0}, {"month", 2, kU8, 0},  {"day", 3, kU8, 0},
                           {"hour", 4, kU8, 0},  {"minute", 5, kU8, 0}, {"second", 6, kU8, 0},
                           {"mode", 7, kU8, 0},  {"zone", 8, kU8, 0},   {"ntp-server", 12, kText, 14}};
constexpr Field kImage[] = {
    {"channel", 0, kU8, 0},    {"stream", 1, kU8, 0},     {"brightness", 2, kU8, 0},
    {"contrast", 3, kU8, 0},   {"saturation", 4, kU8, 0}, {"hue", 5, kU8, 0},
    {"sharpness", 6, kU8, 0},  {"mirror", 7, kU8, 0},     {"flip", 8, kU8, 0},
    {"day-night", 9, kU8, 0},  {"exposure", 10, kU8, 0},  {"white-balance", 11, kU8, 0},
    {"backlight", 12, kU8, 0}, {"denoise", 13, kU8, 0},   {"anti-flicker", 14, kU8, 0}};
constexpr Field kNetwork[] = {
    {"channel", 0, kU8, 0},     {"dhcp", 1, kU8, 0},          {"address", 2, kAddress, 0},
    {"mask", 6, kAddress, 0},   {"gateway", 10, kAddress, 0}, {"dns1", 14, kAddress, 0},
    {"dns2", 18, kAddress, 0},  {"mac", 22, kHex, 6},         {"port", 28, kU16, 0},
    {"http-port", 30, kU16, 0}, {"host-name", 34, kText, 32}};
constexpr Field kOsd[] = {{"channel", 0, kU8, 0},     {"show-name", 1, kU8, 0}, {"show-time", 2, kU8, 0},
                          {"date-format", 3, kU8, 0}, {"name-x", 4, kU16, 0},   {"name-y", 6, kU16, 0},
                          {"time-x", 8, kU16, 0},     {"time-y", 10, kU16, 0},  {"font-size", 12, kU8, 0},
                          {"name", 16, kText, 64},    {"line", 80, kText, 64}};
constexpr Field kWifi[] = {
    {"enabled", 0, kU8, 0},           {"connected", 1, kU8, 0},         {"signal", 2, kU8, 0},
    {"networks", 3, kU8, 0},          {"ssid", 4, kText, 32},           {"security", 36, kU8, 0},
    {"network1.ssid", 40, kText, 32}, {"network1.signal", 72, kU8, 0},  {"network1.security", 73, kU8, 0},
    {"network2.ssid", 76, kText, 32}, {"network2.signal", 108, kU8, 0}, {"network2.security", 109, kU8, 0}};
constexpr Field kMotion[] = {
    {"channel", 0, kU8, 0}, {"enabled", 1, kU8, 0}, {"sensitivity", 3, kU8, 0}, {"area", 8, kHex, 72}};
// Places and sizes in thousandths of the picture.
constexpr Field kCover[] = {
    {"channel", 0, kU8, 0},       {"areas", 1, kU8, 0},          {"area1.enabled", 4, kU8, 0},
    {"area1.colour", 5, kU8, 0},  {"area1.left", 6, kU16, 0},    {"area1.top", 8, kU16, 0},
    {"area1.width", 10, kU16, 0}, {"area1.height", 12, kU16, 0}, {"area2.enabled", 14, kU8, 0},
    {"area2.colour", 15, kU8, 0}, {"area2.left", 16, kU16, 0},   {"area2.top", 18, kU16, 0},
    {"area2.width", 20, kU16, 0}, {"area2.height", 22, kU16, 0}, {"area3.enabled", 24, kU8, 0},
    {"area3.colour", 25, kU8, 0}, {"area3.left", 26, kU16, 0},   {"area3.top", 28, kU16, 0},
    {"area3.width", 30, kU16, 0}, {"area3.height", 32, kU16, 0}, {"area4.enabled", 34, kU8, 0},
    {"area4.colour", 35, kU8, 0}, {"area4.left", 36, kU16, 0},   {"area4.top", 38, kU16, 0},
    {"area4.width", 40, kU16, 0}, {"area4.height", 42, kU16, 0}};
constexpr Field kFisheye[] = {{"channel", 0, kU8, 0}, {"type", 1, kU8, 0}, {"mounting", 2, kU8, 0}};
constexpr Field kDevice[] = {
    {"type", 1, kU8, 0},          {"channels", 2, kU8, 0},     {"streams", 3, kU8, 0},
    {"serial", 8, kText, 32},     {"model", 40, kText, 32},    {"hardware", 72, kText, 32},
    {"firmware", 368, kText, 64}, {"platform", 432, kText, 8}, {"sensor", 448, kText, 8}};
constexpr Field kProperty[] = {{"special-family", 27, kU8, 0}};
constexpr Field kSmartIFrame[] = {{"channel", 0, kU8, 0}, {"enabled", 1, kU8, 0}, {"interval", 2, kU16, 0}};
constexpr Field kAlarmEx[] = {{"channel", 0, kU8, 0}, {"armed", 1, kU8, 0}};
constexpr Field kEncoding[] = {{"channel", 0, kU8, 0},    {"stream", 1, kU8, 0}, {"codec", 2, kU8, 0},
                               {"frame-rate", 3, kU8, 0}, {"width", 4, kU16, 0}, {"height", 6, kU16, 0},
                               {"kbit-rate", 8, kU32, 0}, {"gop", 12, kU16, 0},  {"rate-control", 14, kU8, 0},
                               {"quality", 15, kU8, 0},   {"audio", 16, kU8, 0}, {"flag", 30, kU8, 0}};
constexpr Field kFishEncoding[] = {{"channel", 0, kU8, 0},    {"copies", 1, kU8, 0}, {"codec", 2, kU8, 0},
                                   {"frame-rate", 3, kU8, 0}, {"width", 4, kU16, 0}, {"height", 6, kU16, 0},
                                   {"kbit-rate", 8, kU32, 0}, {"mode", 12, kU8, 0}};
constexpr Field kPtz[] = {{"channel", 0, kU8, 0}, {"speed", 1, kU8, 0},        {"pan", 2, kU16, 0},
                          {"tilt", 4, kU16, 0},   {"zoom", 6, kU16, 0},        {"moving", 8, kU8, 0},
                          {"preset", 9, kU8, 0},  {"cruise-line", 10, kU8, 0}, {"cruise-point", 11, kU8, 0}};
constexpr Field kPtzOption[] = {{"kind", 0, kU8, 0}, {"operation", 1, kU8, 0}, {"argument", 4, kU8, 0}};
constexpr Field kCruise[] = {{"channel", 0, kU8, 0}, {"line", 1, kU8, 0}, {"enabled", 2, kU8, 0}};

constexpr Layout kLayouts[] = {
    {"time", LENSWIRE_CMD_TIME_GET, LENSWIRE_CMD_TIME_SET, LENSWIRE_TIME_SIZE, kTime},
    {"image", LENSWIRE_CMD_IMAGE_GET, LENSWIRE_CMD_IMAGE_SET, LENSWIRE_IMAGE_SIZE, kImage},
    {"network", LENSWIRE_CMD_NETWORK_GET, 0, LENSWIRE_NETWORK_SIZE, kNetwork},
    {"osd", LENSWIRE_CMD_OSD_GET, LENSWIRE_CMD_OSD_SET, LENSWIRE_OSD_SIZE, kOsd},
    {"wifi", LENSWIRE_CMD_WIFI_GET, 0, LENSWIRE_WIFI_SIZE, kWifi},
    {"motion", LENSWIRE_CMD_MOTION_GET, LENSWIRE_CMD_MOTION_SET, LENSWIRE_MOTION_SIZE, kMotion},
    {"cover", LENSWIRE_CMD_COVER_GET, LENSWIRE_CMD_COVER_SET, LENSWIRE_COVER_SIZE, kCover},
    {"fisheye", LENSWIRE_CMD_FISH_PROPERTY_GET, 0, LENSWIRE_FISH_PROPERTY_SIZE, kFisheye},
    {"device", LENSWIRE_CMD_DEVICE_INFO, 0, LENSWIRE_DEVICE_INFO_SIZE, kDevice},
    {"property", LENSWIRE_CMD_PROPERTY_BLOCK, 0, LENSWIRE_PROPERTY_BLOCK_SIZE, kProperty},
    {"smart-iframe", 0, LENSWIRE_CMD_SMART_IFRAME_SET, LENSWIRE_SMART_IFRAME_SIZE, kSmartIFrame},
    {"alarm", 0, LENSWIRE_CMD_ALARM_EX, LENSWIRE_ALARM_EX_SIZE, kAlarmEx},
    {"encoding", LENSWIRE_CMD_ENCODING_GET, LENSWIRE_CMD_ENCODING_SET, LENSWIRE_ENCODING_SIZE, kEncoding},
    {"fish-encoding", LENSWIRE_CMD_FISH_ENCODING_GET, LENSWIRE_CMD_FISH_ENCODING_SET,
     LENSWIRE_FISH_ENCODING_SIZE, kFishEncoding},
    {"scope", LENSWIRE_CMD_ENCODING_SCOPE, 0, LENSWIRE_ENCODING_SCOPE_SIZE, {}},
    {"ptz", LENSWIRE_CMD_PTZ_GET, LENSWIRE_CMD_PTZ_SET, LENSWIRE_PTZ_SIZE, kPtz},
    {"ptz-operation", 0, LENSWIRE_CMD_PTZ_OPTION, LENSWIRE_PTZ_OPTION_SIZE, kPtzOption},
    {"cruise", LENSWIRE_CMD_CRUISE_GET, LENSWIRE_CMD_CRUISE_SET, LENSWIRE_CRUISE_SIZE, kCruise},
};

struct CodeName {
    uint16_t code;
    const char* name;
};

constexpr CodeName kPlainCodes[] = {{LENSWIRE_CMD_LOGIN, "login"},
                                    {LENSWIRE_CMD_SERIAL, "ask for the serial number"},
                                    {LENSWIRE_CMD_HEARTBEAT, "heartbeat"},
                                    {LENSWIRE_CMD_STREAM, "stream request"},
                                    {LENSWIRE_CMD_UPGRADE, "firmware upload"}};

const Field& field_of(const Layout& layout, std::string_view name) {
    return *std::find_if(layout.fields.begin(), layout.fields.end(),
                         [name](const Field& f) { return f.name == name; });
}

size_t length_of(const Field& field) {
    switch (field.type) {
        case kU8:
            return 1;
        case kU16:
            return 2;
        case kU32:
        case kAddress:
            return 4;
        case kText:
        case kHex:
            return field.length;
    }
    return 0;
}

std::string value_text(const Field& field, const uint8_t* at) {
    char text[16];
    switch (field.type) {
        case kU8:
            return std::to_string(at[0]);
        case kU16:
            return std::to_string(get_u16(at));
        case kU32:
            return std::to_string(get_u32(at));
        case kText:
            return '"' + printable({at, field.length}) + '"';
        case kAddress:
            std::snprintf(text, sizeof text, "%u.%u.%u.%u", at[0], at[1], at[2], at[3]);
            return text;
        case kHex:
            break;
    }
    std::string hex;
    for (size_t i = 0; i < field.length; ++i) {
        std::snprintf(text, sizeof text, "%02x", at[i]);
        hex += text;
    }
    return hex;
}

std::string record_text(const Layout& layout, std::span<const uint8_t> record) {
    std::string text;
    for (const Field& field : layout.fields) {
        if (field.offset + length_of(field) > record.size()) break;
        text += std::string(" ") + field.name + " " + value_text(field, &record[field.offset]);
    }
    return text;
}

constexpr CodeName kPtzOperations[] = {
    {LENSWIRE_PTZ_STOP, "stop"},
    {LENSWIRE_PTZ_LEFT, "left"},
    {LENSWIRE_PTZ_RIGHT, "right"},
    {LENSWIRE_PTZ_UP, "up"},
    {LENSWIRE_PTZ_DOWN, "down"},
    {LENSWIRE_PTZ_ZOOM_IN, "zoom in"},
    {LENSWIRE_PTZ_ZOOM_OUT, "zoom out"},
    {LENSWIRE_PTZ_GOTO_PRESET, "go to preset index"},
    {LENSWIRE_PTZ_SET_PRESET, "set preset index"},
    {LENSWIRE_PTZ_START_CRUISE, "start cruise line"},
    {LENSWIRE_PTZ_STOP_CRUISE, "stop cruise line"},
};

// What follows the fields of a set where they do not say it all.
std::string remark(const Command& command) {
    if (command.code == LENSWIRE_CMD_PTZ_OPTION && command.payload.size() > 4) {
        for (const CodeName& each : kPtzOperations) {
            if (each.code == command.payload[1]) {
                return std::string(": ") + each.name + " " + std::to_string(command.payload[4]);
            }
        }
    }
    if (command.code == LENSWIRE_CMD_CRUISE_SET && command.payload.size() == LENSWIRE_CRUISE_SIZE) {
        int points = 0;
        for (size_t at = 68; at < 68 + size_t{32} * 28; at += 28)
            points += command.payload[at + 4] == 1 ? 1 : 0;
        return " points " + std::to_string(points);
    }
    return {};
}

std::string head_text(const Command& command) {
    for (const CodeName& each : kPlainCodes) {
        if (each.code == command.code) return each.name;
    }
    char text[32];
    std::snprintf(text, sizeof text, "command 0x%04x", command.code);
    return text;
}

}  // namespace

std::string printable(std::span<const uint8_t> field) {
    std::string text = get_text(field);
    for (char& c : text) {
        if (c < 0x20 || c > 0x7E) c = '?';
    }
    return text;
}

const Layout* layout_of_get(uint16_t code) {
    const auto* found = std::find_if(std::begin(kLayouts), std::end(kLayouts), [code](const Layout& layout) {
        return layout.get != 0 && layout.get == code;
    });
    return found == std::end(kLayouts) ? nullptr : found;
}

const Layout* layout_of_set(uint16_t code) {
    const auto* found = std::find_if(std::begin(kLayouts), std::end(kLayouts), [code](const Layout& layout) {
        return layout.set != 0 && layout.set == code;
    });
    return found == std::end(kLayouts) ? nullptr : found;
}

void set_field(Bytes& record, const Layout& layout, std::string_view name, uint32_t value) {
    const Field& field = field_of(layout, name);
    uint8_t* at = &record[field.offset];
    if (field.type == kU8) at[0] = static_cast<uint8_t>(value);
    if (field.type == kU16) put_u16(at, static_cast<uint16_t>(value));
    if (field.type == kU32) put_u32(at, value);
}

void set_field(Bytes& record, const Layout& layout, std::string_view name, const std::string& text) {
    const Field& field = field_of(layout, name);
    put_text(std::span(record).subspan(field.offset, field.length), text);
}

void set_field(Bytes& record, const Layout& layout, std::string_view name, std::span<const uint8_t> bytes) {
    std::copy(bytes.begin(), bytes.end(), record.begin() + field_of(layout, name).offset);
}

std::string describe(const Command& command) {
    if (const Layout* layout = layout_of_set(command.code)) {
        std::string text = std::string(layout->get == 0 ? "" : "set ") + layout->name;
        for (size_t at = 0; at < command.payload.size(); at += layout->size) {
            text += record_text(*layout, std::span(command.payload).subspan(at));
        }
        return text + remark(command);
    }
    if (const Layout* layout = layout_of_get(command.code)) return std::string("get ") + layout->name;
    std::string text = head_text(command);
    if (command.code == LENSWIRE_CMD_STREAM && command.payload.size() >= 2) {
        text += " channel " + std::to_string(command.payload[0]) + " stream " +
                std::to_string(command.payload[1]);
    }
    if (command.code == LENSWIRE_CMD_LOGIN && command.payload.size() >= 32) {
        text += " user \"" + printable(std::span(command.payload).first(32)) + '"';
    }
    return text;
}

}  // namespace lenswire::camera
