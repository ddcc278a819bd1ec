#include "layouts.h"

#include "lenswire/camera_records.h"
#include "lenswire/clock.h"

namespace lenswire::recorder {
namespace {

constexpr Field kImage[] = {
    LENSWIRE_FIELD("channel", IpcImageProperty, ucChannelNo),
    LENSWIRE_FIELD("streams", IpcImageProperty, ucStreams),
    LENSWIRE_FIELD("brightness", IpcImageProperty, ucBrightness),
    LENSWIRE_FIELD("contrast", IpcImageProperty, ucContrast),
    LENSWIRE_FIELD("saturation", IpcImageProperty, ucSaturation),
    LENSWIRE_FIELD("hue", IpcImageProperty, ucHue),
    LENSWIRE_FIELD("sharpness", IpcImageProperty, ucSharpness),
    LENSWIRE_FIELD("mirror", IpcImageProperty, ucMirror),
    LENSWIRE_FIELD("day-night", IpcImageProperty, ucDayNight),
    LENSWIRE_FIELD("backlight", IpcImageProperty, ucBacklight),
    LENSWIRE_FIELD("wide-range", IpcImageProperty, ucWideRange),
    LENSWIRE_FIELD("denoise", IpcImageProperty, ucDenoise),
    LENSWIRE_FIELD("shutter", IpcImageProperty, usShutter),
    LENSWIRE_FIELD("flicker", IpcImageProperty, ucFlicker),
};

constexpr Field kNetwork[] = {
    LENSWIRE_FIELD("channel", IpcNetworkProperty, ucChannelNo),
    LENSWIRE_FIELD("dhcp", IpcNetworkProperty, ucDhcp),
    LENSWIRE_FIELD("port", IpcNetworkProperty, usPort),
    LENSWIRE_FIELD("http-port", IpcNetworkProperty, usHttpPort),
    LENSWIRE_FIELD("address", IpcNetworkProperty, szIpAddr),
    LENSWIRE_FIELD("mask", IpcNetworkProperty, szMask),
    LENSWIRE_FIELD("gateway", IpcNetworkProperty, szGateway),
    LENSWIRE_FIELD("dns1", IpcNetworkProperty, szDns1),
    LENSWIRE_FIELD("dns2", IpcNetworkProperty, szDns2),
    LENSWIRE_FIELD("mac", IpcNetworkProperty, szMac),
};

constexpr Field kOsd[] = {
    LENSWIRE_FIELD("channel", IpcOsd, ucChannelNo),  LENSWIRE_FIELD("show-name", IpcOsd, ucShowName),
    LENSWIRE_FIELD("show-time", IpcOsd, ucShowTime), LENSWIRE_FIELD("date-format", IpcOsd, ucDateFormat),
    LENSWIRE_FIELD("name-x", IpcOsd, usNameX),       LENSWIRE_FIELD("name-y", IpcOsd, usNameY),
    LENSWIRE_FIELD("time-x", IpcOsd, usTimeX),       LENSWIRE_FIELD("time-y", IpcOsd, usTimeY),
    LENSWIRE_FIELD("name", IpcOsd, szName),
};

#define LENSWIRE_WIFI_FIELDS(number, index)                                            \
    LENSWIRE_FIELD("network" number ".ssid", IpcWifi, networks[index].szSsid),         \
        LENSWIRE_FIELD("network" number ".signal", IpcWifi, networks[index].ucSignal), \
        LENSWIRE_FIELD("network" number ".secured", IpcWifi, networks[index].ucSecured)

constexpr Field kWifi[] = {
    LENSWIRE_FIELD("connected", IpcWifi, ucConnected),
    LENSWIRE_FIELD("signal", IpcWifi, ucSignal),
    LENSWIRE_FIELD("networks", IpcWifi, ucNetworks),
    LENSWIRE_FIELD("ssid", IpcWifi, szSsid),
    LENSWIRE_WIFI_FIELDS("1", 0),
    LENSWIRE_WIFI_FIELDS("2", 1),
    LENSWIRE_WIFI_FIELDS("3", 2),
    LENSWIRE_WIFI_FIELDS("4", 3),
    LENSWIRE_WIFI_FIELDS("5", 4),
    LENSWIRE_WIFI_FIELDS("6", 5),
    LENSWIRE_WIFI_FIELDS("7", 6),
    LENSWIRE_WIFI_FIELDS("8", 7),
};

constexpr Field kMotion[] = {
    LENSWIRE_FIELD("channel", IpcMotionConfig, ucChannelNo),
    LENSWIRE_FIELD("switch", IpcMotionConfig, ucSwitch),
    LENSWIRE_FIELD("sensitivity", IpcMotionConfig, ucSensitivity),
    LENSWIRE_FIELD("area", IpcMotionConfig, aucArea),
};

#define LENSWIRE_COVER_FIELDS(number, index)                                         \
    LENSWIRE_FIELD("area" number ".x", IpcVideoCover, areas[index].usX),             \
        LENSWIRE_FIELD("area" number ".y", IpcVideoCover, areas[index].usY),         \
        LENSWIRE_FIELD("area" number ".width", IpcVideoCover, areas[index].usWidth), \
        LENSWIRE_FIELD("area" number ".height", IpcVideoCover, areas[index].usHeight)

constexpr Field kCover[] = {
    LENSWIRE_FIELD("channel", IpcVideoCover, ucChannelNo),
    LENSWIRE_FIELD("enable", IpcVideoCover, ucEnable),
    LENSWIRE_FIELD("areas", IpcVideoCover, ucAreas),
    LENSWIRE_COVER_FIELDS("1", 0),
    LENSWIRE_COVER_FIELDS("2", 1),
    LENSWIRE_COVER_FIELDS("3", 2),
    LENSWIRE_COVER_FIELDS("4", 3),
};

constexpr Field kSmartIFrame[] = {
    LENSWIRE_FIELD("channel", IpcSmartIFrame, ucChannelNo),
    LENSWIRE_FIELD("enable", IpcSmartIFrame, ucEnable),
    LENSWIRE_FIELD("interval", IpcSmartIFrame, usInterval),
};

constexpr Field kEncoding[] = {
    LENSWIRE_FIELD("channel", IpcEncoding, ucChannelNo),
    LENSWIRE_FIELD("stream-type", IpcEncoding, ucStreamType),
    LENSWIRE_FIELD("codec", IpcEncoding, ucCodec),
    LENSWIRE_FIELD("bitrate-mode", IpcEncoding, ucBitrateMode),
    LENSWIRE_FIELD("width", IpcEncoding, usWidth),
    LENSWIRE_FIELD("height", IpcEncoding, usHeight),
    LENSWIRE_FIELD("frame-rate", IpcEncoding, ucFrameRate),
    LENSWIRE_FIELD("quality", IpcEncoding, ucQuality),
    LENSWIRE_FIELD("key-interval", IpcEncoding, usKeyInterval),
    LENSWIRE_FIELD("bitrate", IpcEncoding, ulBitrate),
    LENSWIRE_FIELD("audio", IpcEncoding, ucAudio),
    LENSWIRE_FIELD("flag", IpcEncoding, ucFlag),
};
constexpr std::string_view kStreams[] = {"main", "sub", "third"};

constexpr Field kFishEncoding[] = {
    {.name = "copies", .kind = Field::kUnsigned, .offset = 1, .width = 1},
};
constexpr std::string_view kViews[] = {"view1", "view2", "view3"};

constexpr Field kPtz[] = {
    LENSWIRE_FIELD("ptz-channel", IpcPtz, ucPtzChannel),
    LENSWIRE_FIELD("speed", IpcPtz, ucSpeed),
    LENSWIRE_FIELD("pan", IpcPtz, sPan),
    LENSWIRE_FIELD("tilt", IpcPtz, sTilt),
    LENSWIRE_FIELD("zoom", IpcPtz, usZoom),
    LENSWIRE_FIELD("moving", IpcPtz, ucMoving),
    LENSWIRE_FIELD("preset", IpcPtz, ucPreset),
    LENSWIRE_FIELD("cruise-line", IpcPtz, ucCruiseLine),
};

constexpr Field kTime[] = {
    LENSWIRE_FIELD("year", IpcTimeInfo, usYear),        LENSWIRE_FIELD("month", IpcTimeInfo, ucMonth),
    LENSWIRE_FIELD("day", IpcTimeInfo, ucDay),          LENSWIRE_FIELD("hour", IpcTimeInfo, ucHour),
    LENSWIRE_FIELD("minute", IpcTimeInfo, ucMinute),    LENSWIRE_FIELD("second", IpcTimeInfo, ucSecond),
    LENSWIRE_FIELD("mode", IpcTimeInfo, ucTimeMode),    LENSWIRE_FIELD("zone", IpcTimeInfo, ucTimeZone),
    LENSWIRE_FIELD("server", IpcTimeInfo, szNtpServer),
};

constexpr Field kFishEye[] = {LENSWIRE_FIELD("type", IpcFishEye, ucType)};

constexpr Field kProperty[] = {LENSWIRE_FIELD("special-platform", IpcPropertyBlock, ucSpecialPlatform)};

constexpr Field kDevice[] = {
    LENSWIRE_FIELD("device-type", IpcDeviceInfo, ndevType),
    LENSWIRE_FIELD("firmware", IpcDeviceInfo, szFirmwareName),
    LENSWIRE_FIELD("chip", IpcDeviceInfo, platform),
    LENSWIRE_FIELD("sensor", IpcDeviceInfo, sensortype),
};

}  // namespace

const Layout kImageLayout = {kImage, sizeof(IpcImageProperty)};
const Layout kNetworkLayout = {kNetwork, sizeof(IpcNetworkProperty)};
const Layout kOsdLayout = {kOsd, sizeof(IpcOsd)};
const Layout kWifiLayout = {kWifi, sizeof(IpcWifi)};
const Layout kMotionLayout = {kMotion, sizeof(IpcMotionConfig)};
const Layout kCoverLayout = {kCover, sizeof(IpcVideoCover)};
const Layout kSmartIFrameLayout = {kSmartIFrame, sizeof(IpcSmartIFrame)};
const Layout kEncodingLayout = {kEncoding, sizeof(IpcEncoding), kStreams};
const Layout kFishEncodingLayout = {kFishEncoding, LENSWIRE_FISH_ENCODING_SIZE, kViews};
const Layout kPtzLayout = {kPtz, sizeof(IpcPtz)};
const Layout kTimeLayout = {kTime, sizeof(IpcTimeInfo)};
const Layout kFishEyeLayout = {kFishEye, sizeof(IpcFishEye)};
const Layout kPropertyLayout = {kProperty, sizeof(IpcPropertyBlock)};
const Layout kAlarmLayout = {{}, LENSWIRE_ALARM_EX_SIZE};
const Layout kDeviceLayout = {kDevice, sizeof(IpcDeviceInfo)};

}  // namespace lenswire::recorder
