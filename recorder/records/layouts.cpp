#include "recorder/records/layouts.h"

#include "lenswire/clock.h"
#include "lenswire/protocol.h"
#include "recorder/records/camera_records.h"
#include "recorder/records/zone_name.h"

namespace lenswire::recorder {
namespace {

constexpr ValueName kOffOn[] = {{0, "off"}, {1, "on"}};
constexpr ValueName kImageStreams[] = {{LENSWIRE_ALL_STREAMS, "all"}};
constexpr ValueName kDayNight[] = {{0, "auto"}, {1, "day"}, {2, "night"}};
constexpr ValueName kStreamNames[] = {{0, "main"}, {1, "sub"}, {2, "third"}};
constexpr ValueName kCodecs[] = {{LENSWIRE_CODEC_H264, "h264"},         {LENSWIRE_CODEC_H265, "h265"},
                                 {LENSWIRE_CODEC_H264_ALT, "h264-alt"}, {LENSWIRE_CODEC_JPEG, "jpeg"},
                                 {LENSWIRE_CODEC_H264_PLUS, "h264+"},   {LENSWIRE_CODEC_H265_PLUS, "h265+"}};
constexpr ValueName kRateControl[] = {{0, "variable"}, {1, "constant"}};
constexpr ValueName kMoving[] = {{0, "no"}, {1, "by-hand"}, {2, "to-preset"}, {3, "cruise"}};

// GMT-12:00 to GMT+14:00.
constexpr auto kZoneTexts = [] {
    std::array<ZoneText, kCameraZones> texts;
    for (int i = 0; i < kCameraZones; ++i)
        texts[static_cast<size_t>(i)] = zone_text((i - kCameraZoneOfGreenwich) * kMinutesOfZone);
    return texts;
}();
constexpr auto kZones = [] {
    std::array<ValueName, kCameraZones> names{};
    for (size_t i = 0; i < names.size(); ++i) names[i] = {static_cast<int64_t>(i), kZoneTexts[i].view()};
    return names;
}();

constexpr Field kImage[] = {
    LENSWIRE_FIELD("channel", ImageRecord, channel),
    LENSWIRE_FIELD("stream", ImageRecord, stream).called(kImageStreams),
    LENSWIRE_FIELD("brightness", ImageRecord, brightness),
    LENSWIRE_FIELD("contrast", ImageRecord, contrast),
    LENSWIRE_FIELD("saturation", ImageRecord, saturation),
    LENSWIRE_FIELD("hue", ImageRecord, hue),
    LENSWIRE_FIELD("sharpness", ImageRecord, sharpness),
    LENSWIRE_FIELD("mirror", ImageRecord, mirror).called(kOffOn).within(0, 1),
    LENSWIRE_FIELD("flip", ImageRecord, flip).called(kOffOn).within(0, 1),
    LENSWIRE_FIELD("day-night", ImageRecord, day_night).called(kDayNight).within(0, 2),
    LENSWIRE_FIELD("exposure", ImageRecord, exposure),
    LENSWIRE_FIELD("white-balance", ImageRecord, white_balance),
    LENSWIRE_FIELD("backlight", ImageRecord, backlight),
    LENSWIRE_FIELD("denoise", ImageRecord, denoise),
    LENSWIRE_FIELD("anti-flicker", ImageRecord, anti_flicker),
};

constexpr Field kNetwork[] = {
    LENSWIRE_FIELD("channel", NetworkRecord, channel),
    LENSWIRE_FIELD("dhcp", NetworkRecord, dhcp).called(kOffOn),
    LENSWIRE_ADDRESS_FIELD("address", NetworkRecord, address),
    LENSWIRE_ADDRESS_FIELD("mask", NetworkRecord, mask),
    LENSWIRE_ADDRESS_FIELD("gateway", NetworkRecord, gateway),
    LENSWIRE_ADDRESS_FIELD("dns1", NetworkRecord, dns1),
    LENSWIRE_ADDRESS_FIELD("dns2", NetworkRecord, dns2),
    LENSWIRE_FIELD("mac", NetworkRecord, mac),
    LENSWIRE_FIELD("port", NetworkRecord, port),
    LENSWIRE_FIELD("http-port", NetworkRecord, http_port),
    LENSWIRE_FIELD("host-name", NetworkRecord, host_name),
};

constexpr Field kOsd[] = {
    LENSWIRE_FIELD("channel", OsdRecord, channel),
    LENSWIRE_FIELD("show-name", OsdRecord, show_name).called(kOffOn).within(0, 1),
    LENSWIRE_FIELD("show-time", OsdRecord, show_time).called(kOffOn).within(0, 1),
    LENSWIRE_FIELD("date-format", OsdRecord, date_format),
    LENSWIRE_FIELD("name-x", OsdRecord, name_x),
    LENSWIRE_FIELD("name-y", OsdRecord, name_y),
    LENSWIRE_FIELD("time-x", OsdRecord, time_x),
    LENSWIRE_FIELD("time-y", OsdRecord, time_y),
    LENSWIRE_FIELD("font-size", OsdRecord, font_size),
    LENSWIRE_FIELD("name", OsdRecord, name),
    LENSWIRE_FIELD("line", OsdRecord, line),
};

#define LENSWIRE_WIFI_FIELDS(number, index)                                            \
    LENSWIRE_FIELD("network" number ".ssid", WifiRecord, network[index].ssid),         \
        LENSWIRE_FIELD("network" number ".signal", WifiRecord, network[index].signal), \
        LENSWIRE_FIELD("network" number ".security", WifiRecord, network[index].security)

constexpr Field kWifi[] = {
    LENSWIRE_FIELD("enabled", WifiRecord, enabled).called(kOffOn),
    LENSWIRE_FIELD("connected", WifiRecord, connected).called(kOffOn),
    LENSWIRE_FIELD("signal", WifiRecord, signal),
    LENSWIRE_FIELD("networks", WifiRecord, networks),
    LENSWIRE_FIELD("ssid", WifiRecord, ssid),
    LENSWIRE_FIELD("security", WifiRecord, security),
    LENSWIRE_WIFI_FIELDS("1", 0),
    LENSWIRE_WIFI_FIELDS("2", 1),
    LENSWIRE_WIFI_FIELDS("3", 2),
    LENSWIRE_WIFI_FIELDS("4", 3),
};

constexpr Field kMotion[] = {
    LENSWIRE_FIELD("channel", MotionRecord, channel),
    LENSWIRE_FIELD("enabled", MotionRecord, enabled).called(kOffOn).within(0, 1),
    LENSWIRE_FIELD("sensitivity", MotionRecord, sensitivity),
    LENSWIRE_FIELD("area", MotionRecord, area),
};

#define LENSWIRE_COVER_FIELDS(number, index)                                                                \
    LENSWIRE_FIELD("area" number ".enabled", CoverRecord, area[index].enabled).called(kOffOn).within(0, 1), \
        LENSWIRE_FIELD("area" number ".colour", CoverRecord, area[index].colour),                           \
        LENSWIRE_FIELD("area" number ".left", CoverRecord, area[index].left).within(0, 1000),               \
        LENSWIRE_FIELD("area" number ".top", CoverRecord, area[index].top).within(0, 1000),                 \
        LENSWIRE_FIELD("area" number ".width", CoverRecord, area[index].width).within(0, 1000),             \
        LENSWIRE_FIELD("area" number ".height", CoverRecord, area[index].height).within(0, 1000)

constexpr Field kCover[] = {
    LENSWIRE_FIELD("channel", CoverRecord, channel),
    LENSWIRE_FIELD("areas", CoverRecord, areas).within(0, 4),
    LENSWIRE_COVER_FIELDS("1", 0),
    LENSWIRE_COVER_FIELDS("2", 1),
    LENSWIRE_COVER_FIELDS("3", 2),
    LENSWIRE_COVER_FIELDS("4", 3),
};

constexpr Field kSmartIFrame[] = {
    LENSWIRE_FIELD("channel", SmartIFrameRecord, channel),
    LENSWIRE_FIELD("enabled", SmartIFrameRecord, enabled).called(kOffOn).within(0, 1),
    LENSWIRE_FIELD("interval", SmartIFrameRecord, interval),
};

constexpr Field kAlarm[] = {
    LENSWIRE_FIELD("channel", AlarmRecord, channel),
    LENSWIRE_FIELD("armed", AlarmRecord, armed).called(kOffOn).within(0, 1),
};

constexpr Field kEncoding[] = {
    LENSWIRE_FIELD("channel", EncodingSettings, channel),
    LENSWIRE_FIELD("stream", EncodingSettings, stream).called(kStreamNames).within(0, 2),
    LENSWIRE_FIELD("codec", EncodingSettings, codec).called(kCodecs).within(0, 5),
    LENSWIRE_FIELD("frame-rate", EncodingSettings, frame_rate).within(1, 240),
    LENSWIRE_FIELD("width", EncodingSettings, width),
    LENSWIRE_FIELD("height", EncodingSettings, height),
    LENSWIRE_FIELD("kbit-rate", EncodingSettings, kbit_rate),
    LENSWIRE_FIELD("gop", EncodingSettings, gop),
    LENSWIRE_FIELD("rate-control", EncodingSettings, rate_control).called(kRateControl).within(0, 1),
    LENSWIRE_FIELD("quality", EncodingSettings, quality),
    LENSWIRE_FIELD("audio", EncodingSettings, audio).called(kOffOn).within(0, 1),
    LENSWIRE_FIELD("flag", EncodingSettings, flag).called(kOffOn).within(0, 1),
};

constexpr std::string_view kStreams[] = {"main", "sub", "third"};

constexpr Field kFishEncoding[] = {
    LENSWIRE_FIELD("channel", FishEncodingSettings, channel),
    LENSWIRE_FIELD("copies", FishEncodingSettings, copies),
    LENSWIRE_FIELD("codec", FishEncodingSettings, codec).called(kCodecs).within(0, 5),
    LENSWIRE_FIELD("frame-rate", FishEncodingSettings, frame_rate),
    LENSWIRE_FIELD("width", FishEncodingSettings, width),
    LENSWIRE_FIELD("height", FishEncodingSettings, height),
    LENSWIRE_FIELD("kbit-rate", FishEncodingSettings, kbit_rate),
    LENSWIRE_FIELD("mode", FishEncodingSettings, mode),
};

constexpr std::string_view kViews[] = {"view1", "view2", "view3"};

constexpr Field kPtz[] = {
    LENSWIRE_FIELD("channel", PtzRecord, channel),
    LENSWIRE_FIELD("speed", PtzRecord, speed),
    LENSWIRE_FIELD("pan", PtzRecord, pan),
    LENSWIRE_FIELD("tilt", PtzRecord, tilt),
    LENSWIRE_FIELD("zoom", PtzRecord, zoom),
    LENSWIRE_FIELD("moving", PtzRecord, moving).called(kMoving),
    LENSWIRE_FIELD("preset", PtzRecord, preset),
    LENSWIRE_FIELD("cruise-line", PtzRecord, cruise_line),
    LENSWIRE_FIELD("cruise-point", PtzRecord, cruise_point),
};

constexpr Field kFishEye[] = {
    LENSWIRE_FIELD("channel", FishEyeRecord, channel),
    LENSWIRE_FIELD("type", FishEyeRecord, type).within(0, 3),
    LENSWIRE_FIELD("mounting", FishEyeRecord, mounting),
};

constexpr Field kDevice[] = {
    LENSWIRE_FIELD("type", DeviceRecord, type),         LENSWIRE_FIELD("channels", DeviceRecord, channels),
    LENSWIRE_FIELD("streams", DeviceRecord, streams),   LENSWIRE_FIELD("serial", DeviceRecord, serial),
    LENSWIRE_FIELD("model", DeviceRecord, model),       LENSWIRE_FIELD("hardware", DeviceRecord, hardware),
    LENSWIRE_FIELD("firmware", DeviceRecord, firmware), LENSWIRE_FIELD("platform", DeviceRecord, platform),
    LENSWIRE_FIELD("sensor", DeviceRecord, sensor),
};

constexpr Field kProperty[] = {
    LENSWIRE_FIELD("special-family", PropertyRecord, special_family).called(kOffOn),
};

constexpr Field kTime[] = {
    LENSWIRE_FIELD("year", IpcTimeInfo, usYear).within(1970, 9999),
    LENSWIRE_FIELD("month", IpcTimeInfo, ucMonth).within(1, 12),
    LENSWIRE_FIELD("day", IpcTimeInfo, ucDay).within(1, 31),
    LENSWIRE_FIELD("hour", IpcTimeInfo, ucHour).within(0, 23),
    LENSWIRE_FIELD("minute", IpcTimeInfo, ucMinute).within(0, 59),
    LENSWIRE_FIELD("second", IpcTimeInfo, ucSecond).within(0, 59),
    LENSWIRE_FIELD("mode", IpcTimeInfo, ucTimeMode),
    LENSWIRE_FIELD("zone", IpcTimeInfo, ucTimeZone)
        .called(kZones)
        .within(0, kCameraZones - 1)
        .spelt_by(zone_name),
    LENSWIRE_FIELD("ntp-server", IpcTimeInfo, szNtpServer),
};

}  // namespace

const Layout kImageLayout = {kImage, sizeof(ImageRecord)};
const Layout kNetworkLayout = {kNetwork, sizeof(NetworkRecord)};
const Layout kOsdLayout = {kOsd, sizeof(OsdRecord)};
const Layout kWifiLayout = {kWifi, sizeof(WifiRecord)};
const Layout kMotionLayout = {kMotion, sizeof(MotionRecord)};
const Layout kCoverLayout = {kCover, sizeof(CoverRecord)};
const Layout kSmartIFrameLayout = {kSmartIFrame, sizeof(SmartIFrameRecord)};
const Layout kAlarmLayout = {kAlarm, sizeof(AlarmRecord)};
const Layout kEncodingLayout = {kEncoding, sizeof(EncodingSettings), kStreams};
const Layout kFishEncodingLayout = {kFishEncoding, sizeof(FishEncodingSettings), kViews};
const Layout kPtzLayout = {kPtz, sizeof(PtzRecord)};
const Layout kFishEyeLayout = {kFishEye, sizeof(FishEyeRecord)};
const Layout kDeviceLayout = {kDevice, sizeof(DeviceRecord)};
const Layout kPropertyLayout = {kProperty, sizeof(PropertyRecord)};
const Layout kTimeLayout = {kTime, sizeof(IpcTimeInfo)};

}  // namespace lenswire::recorder
