#include "recorder/session/settings.h"

#include <algorithm>
#include <cstring>

#include "recorder/session/camera_request.h"

namespace lenswire::recorder {
namespace {

using Session = ControlSession;

// An operation of the library as a row calls it, for each of the shapes that they have.
template <auto Plugin::*Operation>
bool by_channel(Session& session, uint8_t* record) {
    return (session.library().*Operation)(session.camera_channel(), session.ip(), record) == 0;
}
template <auto Plugin::*Operation>
bool by_address(Session& session, uint8_t* record) {
    return (session.library().*Operation)(session.ip(), record) == 0;
}

bool get_property(Session& session, uint8_t* record) {
    return session.library().Prv_Get_IPC_PropertyParam(session.channel(), record) == 0;
}

bool set_alarm(Session& session, uint8_t* record) {
    constexpr int kAttempts = 20;
    return session.library().prv_set_alarm_property_ex(session.camera().dotted_ip().c_str(), record,
                                                       kAttempts) == 0;
}

bool get_device(Session& session, uint8_t* record) {
    const auto answer =
        request(session.library(), session.ip(), LENSWIRE_CMD_DEVICE_INFO, LENSWIRE_DEVICE_INFO_SIZE);
    if (answer) std::ranges::copy(*answer, record);
    return answer.has_value();
}

using P = Plugin;
const Setting kSettings[] = {
    {"image", "image settings", &kImageLayout, by_channel<&P::Prv_GetIPCImageProperty>,
     by_address<&P::Prv_SetIPCImageProperty>},
    {"network", "network settings", &kNetworkLayout, by_channel<&P::Prv_GetIPCNetworkProperty>, nullptr},
    {"osd", "OSD settings", &kOsdLayout, by_channel<&P::Prv_GetIPCOSD>, by_address<&P::Prv_SetIPCOSD>},
    {"wifi", "WiFi state", &kWifiLayout, by_channel<&P::Prv_GetWifiSignal>, nullptr},
    {"motion", "motion detection", &kMotionLayout, by_channel<&P::Prv_GetIPCMtionDetetionConfigure>,
     by_address<&P::Prv_SetIPCMtionDetetionConfigure>},
    {"cover", "privacy cover", &kCoverLayout, by_channel<&P::Prv_GetVideoCover>,
     by_channel<&P::Prv_SetVideoCover>},
    {"smart-iframe", "smart I-frame", &kSmartIFrameLayout, nullptr, by_channel<&P::Prv_SetSmartIFrame>},
    {"encoding", "encoding settings", &kEncodingLayout, by_address<&P::Private_Protocol_GetEncodingProperty>,
     by_address<&P::Private_Protocol_SetEncodingProperty>},
    {"fish-encoding", "fisheye encoding settings", &kFishEncodingLayout,
     by_channel<&P::Private_Fish_Protocol_GetEncodingProperty>,
     by_address<&P::Private_Fish_Protocol_SetEncodingProperty>},
    {"fisheye", "fisheye property", &kFishEyeLayout, by_channel<&P::Private_Fish_Protocol_EYE_PROPERTY>,
     nullptr},
    {"ptz", "PTZ property", &kPtzLayout, by_address<&P::Private_PTZ_GET_Property>,
     by_address<&P::Private_PTZ_SET_Property>, false},
    {"time", "clock", &kTimeLayout, by_channel<&P::Prv_GetTimeProperty>, by_address<&P::Prv_SetIPCTimeDate>,
     false},
    {"alarm", "extended alarm property", &kAlarmLayout, nullptr, set_alarm},
    {"device", "device information", &kDeviceLayout, get_device, nullptr},
    {"property", "property block", &kPropertyLayout, get_property, nullptr},
};

template <typename Filter>
std::string names(Filter filter) {
    std::string text;
    for (const Setting& setting : kSettings) {
        if (filter(setting)) text += (text.empty() ? "" : ", ") + std::string(setting.name);
    }
    return text;
}

const Setting* find(std::string_view name) {
    const auto found = std::ranges::find(kSettings, name, &Setting::name);
    return found != std::end(kSettings) ? &*found : nullptr;
}

}  // namespace

std::string readable_names() {
    return names([](const Setting& setting) { return setting.get != nullptr; });
}

std::string writable_names() {
    return names([](const Setting& setting) { return setting.set != nullptr; });
}

std::vector<const Setting*> lasting_settings() {
    std::vector<const Setting*> lasting;
    for (const Setting& setting : kSettings) {
        if (setting.get != nullptr && setting.set != nullptr && setting.steady) lasting.push_back(&setting);
    }
    return lasting;
}

const Setting& readable_setting(std::string_view name) {
    const Setting* setting = find(name);
    if (setting != nullptr && setting->get != nullptr) return *setting;
    throw bad_input("'" + std::string(name) + "' cannot be read; there are " + readable_names());
}

const Setting& writable_setting(std::string_view name) {
    const Setting* setting = find(name);
    if (setting != nullptr && setting->set != nullptr) return *setting;
    throw bad_input("'" + std::string(name) + "' cannot be set; there are " + writable_names());
}

Bytes read_setting(ControlSession& session, const Setting& setting) {
    Bytes record(setting.layout->whole_size());
    session.ask(setting.what, [&] { return setting.get(session, record.data()); });
    return record;
}

void write_setting(ControlSession& session, const Setting& setting, Bytes& record) {
    session.tell(setting.what, [&] { return setting.set(session, record.data()); });
}

void check_taken(const ControlSession& session, std::span<const NamedField> asked,
                 std::span<const uint8_t> wanted, std::span<const uint8_t> now) {
    for (const NamedField& field : asked) {
        const std::string shown = field_text(field.field, now);
        if (shown == field_text(field.field, wanted)) continue;
        throw Failure(kCameraRefused, "camera " + session.camera().name() + " did not take " + field.name +
                                          ", it has " + (shown.empty() ? "none" : shown));
    }
}

// The camera's version of a line. Whether the camera has it enabled stands in its own record only.
CruiseLine read_cruise_line(ControlSession& session, int line) {
    uint8_t bytes[sizeof(CruiseLine)] = {};
    bytes[0] = static_cast<uint8_t>(line - 1);
    CameraCruise own{};
    own.ucLineNo = bytes[0];
    const auto channel = static_cast<uint32_t>(session.channel());
    session.ask("a cruise line", [&] {
        return session.library().Private_GetPtzCruiseAllPreset(channel, bytes) == sizeof bytes &&
               session.library().Private_PTZ_CRUISE_GET(session.ip(), &own) == 0;
    });
    CruiseLine record{};
    std::memcpy(&record, bytes, sizeof record);
    record.ucEnable = own.ucEnable;
    return record;
}

void write_cruise_line(ControlSession& session, const CruiseLine& line, bool start_or_stop) {
    const auto channel = static_cast<uint32_t>(session.channel());
    session.tell("the cruise line", [&] {
        return session.library().Private_SetPtzCruiseAllPreset(channel, &line, start_or_stop ? 1 : 0) == 0;
    });
}

}  // namespace lenswire::recorder
