#include "recorder/records/layouts.h"

#include "lenswire/clock.h"
#include "recorder/records/camera_records.h"

namespace lenswire::recorder {
namespace {

constexpr Field kImage[] = {
    LENSWIRE_FIELD("channel", ImageRecord, channel),
    LENSWIRE_FIELD("stream", ImageRecord, stream),
    LENSWIRE_FIELD("brightness", ImageRecord, brightness),
    LENSWIRE_FIELD("contrast", ImageRecord, contrast),
    LENSWIRE_FIELD("saturation", ImageRecord, saturation),
    LENSWIRE_FIELD("hue", ImageRecord, hue),
    LENSWIRE_FIELD("sharpness", ImageRecord, sharpness),
    LENSWIRE_FIELD("mirror", ImageRecord, mirror),
    LENSWIRE_FIELD("flip", ImageRecord, flip),
    LENSWIRE_FIELD("day-night", ImageRecord, day_night),
    LENSWIRE_FIELD("exposure", ImageRecord, exposure),
    LENSWIRE_FIELD("white-balance", ImageRecord, white_balance),
    LENSWIRE_FIELD("backlight", ImageRecord, backlight),
    LENSWIRE_FIELD("denoise", ImageRecord, denoise),
    LENSWIRE_FIELD("anti-flicker", ImageRecord, anti_flicker),
};

constexpr Field kNetwork[] = {
    LENSWIRE_FIELD("channel", NetworkRecord, channel),
    LENSWIRE_FIELD("dhcp", NetworkRecord, dhcp),
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
    LENSWIRE_FIELD("channel", OsdRecord, channel),     LENSWIRE_FIELD("show-name", OsdRecord, show_name),
    LENSWIRE_FIELD("show-time", OsdRecord, show_time), LENSWIRE_FIELD("date-format", OsdRecord, date_format),
    LENSWIRE_FIELD("name-x", OsdRecord, name_x),       LENSWIRE_FIELD("name-y", OsdRecord, name_y),
    LENSWIRE_FIELD("time-x", OsdRecord, time_x),       LENSWIRE_FIELD("time-y", OsdRecord, time_y),
    LENSWIRE_FIELD("font-size", OsdRecord, font_size), LENSWIRE_FIELD("name", OsdRecord, name),
    LENSWIRE_FIELD("line", OsdRecord, line),
};

#define LENSWIRE_WIFI_FIELDS(number, index)                                            \
    LENSWIRE_FIELD("network" number ".ssid", WifiRecord, network[index].ssid),         \
        LENSWIRE_FIELD("network" number ".signal", WifiRecord, network[index].signal), \
        LENSWIRE_FIELD("network" number ".security", WifiRecord, network[index].security)

constexpr Field kWifi[] = {
    LENSWIRE_FIELD("enabled", WifiRecord, enabled),
    LENSWIRE_FIELD("connected", WifiRecord, connected),
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
    LENSWIRE_FIELD("enabled", MotionRecord, enabled),
    LENSWIRE_FIELD("sensitivity", MotionRecord, sensitivity),
    LENSWIRE_FIELD("area", MotionRecord, area),
};

#define LENSWIRE_COVER_FIELDS(number, index)                                      \
    LENSWIRE_FIELD("area" number ".enabled", CoverRecord, area[index].enabled),   \
        LENSWIRE_FIELD("area" number ".colour", CoverRecord, area[index].colour), \
        LENSWIRE_FIELD("area" number ".left", CoverRecord, area[index].left),     \
        LENSWIRE_FIELD("area" number ".top", CoverRecord, area[index].top),       \
        LENSWIRE_FIELD("area" number ".width", CoverRecord, area[index].width),   \
        LENSWIRE_FIELD("area" number ".height", CoverRecord, area[index].height)

constexpr Field kCover[] = {
    LENSWIRE_FIELD("channel", CoverRecord, channel),
    LENSWIRE_FIELD("areas", CoverRecord, areas),
    LENSWIRE_COVER_FIELDS("1", 0),
    LENSWIRE_COVER_FIELDS("2", 1),
    LENSWIRE_COVER_FIELDS("3", 2),
    LENSWIRE_COVER_FIELDS("4", 3),
};

constexpr Field kSmartIFrame[] = {
    LENSWIRE_FIELD("channel", SmartIFrameRecord, channel),
    LENSWIRE_FIELD("enabled", SmartIFrameRecord, enabled),
    LENSWIRE_FIELD("interval", SmartIFrameRecord, interval),
};

constexpr Field kAlarm[] = {
    LENSWIRE_FIELD("channel", AlarmRecord, channel),
    LENSWIRE_FIELD("armed", AlarmRecord, armed),
};

constexpr Field kEncoding[] = {
    LENSWIRE_FIELD("channel", EncodingSettings, channel),
    LENSWIRE_FIELD("stream", EncodingSettings, stream),
    LENSWIRE_FIELD("codec", EncodingSettings, codec),
    LENSWIRE_FIELD("frame-rate", EncodingSettings, frame_rate),
    LENSWIRE_FIELD("width", EncodingSettings, width),
    LENSWIRE_FIELD("height", EncodingSettings, height),
    LENSWIRE_FIELD("kbit-rate", EncodingSettings, kbit_rate),
    LENSWIRE_FIELD("gop", EncodingSettings, gop),
    LENSWIRE_FIELD("rate-control", EncodingSettings, rate_control),
    LENSWIRE_FIELD("quality", EncodingSettings, quality),
    LENSWIRE_FIELD("audio", EncodingSettings, audio),
    LENSWIRE_FIELD("flag", EncodingSettings, flag),
};

constexpr std::string_view kStreams[] = {"main", "sub", "third"};

constexpr Field kFishEncoding[] = {
    LENSWIRE_FIELD("channel", FishEncodingSettings, channel),
    LENSWIRE_FIELD("copies", FishEncodingSettings, copies),
    LENSWIRE_FIELD("codec", FishEncodingSettings, codec),
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
    LENSWIRE_FIELD("moving", PtzRecord, moving),
    LENSWIRE_FIELD("preset", PtzRecord, preset),
    LENSWIRE_FIELD("cruise-line", PtzRecord, cruise_line),
    LENSWIRE_FIELD("cruise-point", PtzRecord, cruise_point),
};

constexpr Field kFishEye[] = {
    LENSWIRE_FIELD("channel", FishEyeRecord, channel),
    LENSWIRE_FIELD("type", FishEyeRecord, type),
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
    LENSWIRE_FIELD("special-family", PropertyRecord, special_family),
};

constexpr Field kTime[] = {
    LENSWIRE_FIELD("year", IpcTimeInfo, usYear),
    LENSWIRE_FIELD("month", IpcTimeInfo, ucMonth),
    LENSWIRE_FIELD("day", IpcTimeInfo, ucDay),
    LENSWIRE_FIELD("hour", IpcTimeInfo, ucHour),
    LENSWIRE_FIELD("minute", IpcTimeInfo, ucMinute),
    LENSWIRE_FIELD("second", IpcTimeInfo, ucSecond),
    LENSWIRE_FIELD("mode", IpcTimeInfo, ucTimeMode),
    LENSWIRE_FIELD("zone", IpcTimeInfo, ucTimeZone),
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
