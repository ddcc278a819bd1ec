// The insides of the settings records that the library carries without looking into them.
//
// They are agreed between host and camera; these are the layouts of the cameras that this recorder knows, the
// simulated ones among them. What has no name here is kept as the camera gave it. All numbers are
// little-endian, texts are padded with NUL and need not end in one.
#pragma once

#include <cstddef>
#include <cstdint>

#include "lenswire/records.h"

namespace lenswire::recorder {

#pragma pack(push, 1)

struct ImageRecord {
    uint8_t channel;
    uint8_t stream;  // LENSWIRE_ALL_STREAMS
    uint8_t brightness;
    uint8_t contrast;
    uint8_t saturation;
    uint8_t hue;
    uint8_t sharpness;
    uint8_t mirror;
    uint8_t flip;
    uint8_t day_night;  // 0 automatic, 1 day, 2 night
    uint8_t exposure;
    uint8_t white_balance;
    uint8_t backlight;
    uint8_t denoise;
    uint8_t anti_flicker;  // Hz
    uint8_t reserved15[21];
};

struct NetworkRecord {
    uint8_t channel;
    uint8_t dhcp;
    uint8_t address[4];
    uint8_t mask[4];
    uint8_t gateway[4];
    uint8_t dns1[4];
    uint8_t dns2[4];
    uint8_t mac[6];
    uint16_t port;
    uint16_t http_port;
    uint8_t reserved32[2];
    char host_name[32];
    uint8_t reserved66[52];
};

struct OsdRecord {
    uint8_t channel;
    uint8_t show_name;
    uint8_t show_time;
    uint8_t date_format;
    uint16_t name_x;
    uint16_t name_y;
    uint16_t time_x;
    uint16_t time_y;
    uint8_t font_size;
    uint8_t reserved13[3];
    char name[64];
    char line[64];
    uint8_t reserved144[84];
};

struct WifiNetwork {
    char ssid[32];
    uint8_t signal;  // percent
    uint8_t security;
    uint8_t reserved34[2];
};

struct WifiRecord {
    uint8_t enabled;
    uint8_t connected;
    uint8_t signal;    // percent
    uint8_t networks;  // in sight
    char ssid[32];     // the one it is in
    uint8_t security;
    uint8_t reserved37[3];
    WifiNetwork network[16];
    uint8_t reserved616[10];
};

struct MotionRecord {
    uint8_t channel;
    uint8_t enabled;
    uint8_t reserved2;
    uint8_t sensitivity;
    uint8_t reserved4[4];
    uint8_t area[72];  // a bit for each field of the picture
    uint8_t reserved80[88];
};

// Places and sizes in thousandths of the picture.
struct CoverArea {
    uint8_t enabled;
    uint8_t colour;
    uint16_t left;
    uint16_t top;
    uint16_t width;
    uint16_t height;
};

struct CoverRecord {
    uint8_t channel;
    uint8_t areas;  // in use
    uint8_t reserved2[2];
    CoverArea area[4];
    uint8_t reserved44[160];
};

struct SmartIFrameRecord {
    uint8_t channel;
    uint8_t enabled;
    uint16_t interval;  // pictures from one key frame to the next
    uint8_t reserved4[508];
};

struct AlarmRecord {
    uint8_t channel;
    uint8_t armed;  // the library sets it to 1
    uint8_t reserved2[558];
};

struct EncodingSettings {
    uint8_t channel;
    uint8_t stream;  // 0 main, 1 sub, 2 third
    uint8_t codec;   // LENSWIRE_CODEC_...
    uint8_t frame_rate;
    uint16_t width;
    uint16_t height;
    uint32_t kbit_rate;
    uint16_t gop;          // pictures from one key frame to the next
    uint8_t rate_control;  // 0 variable, 1 constant
    uint8_t quality;
    uint8_t audio;
    uint8_t reserved17[13];
    uint8_t flag;
    uint8_t reserved31;
};

struct FishEncodingSettings {
    uint8_t channel;
    uint8_t copies;  // more records that are the same
    uint8_t codec;
    uint8_t frame_rate;
    uint16_t width;
    uint16_t height;
    uint32_t kbit_rate;
    uint8_t mode;
    uint8_t reserved13[243];
};

struct PtzRecord {
    uint8_t channel;
    uint8_t speed;
    uint16_t pan;  // this and the next two in hundredths, of a degree and of the widest view
    uint16_t tilt;
    uint16_t zoom;
    uint8_t moving;        // 0 not, 1 by hand, 2 to a preset, 3 on a cruise line
    uint8_t preset;        // the one reached last, counted from 1; this and the next two 0 for none
    uint8_t cruise_line;   // that runs
    uint8_t cruise_point;  // where the camera is in it, or goes
    uint8_t reserved12[12];
};

struct FishEyeRecord {
    uint8_t channel;
    uint8_t type;  // 0 to 3
    uint8_t mounting;
    uint8_t reserved3[61];
};

struct DeviceRecord {
    uint8_t reserved0;
    uint8_t type;
    uint8_t channels;
    uint8_t streams;
    uint8_t reserved4[4];
    char serial[32];
    char model[32];
    char hardware[32];
    uint8_t reserved104[264];
    char firmware[64];
    char platform[8];
    uint8_t reserved440[8];
    char sensor[8];
    uint8_t reserved456[8];
};

struct PropertyRecord {
    uint8_t reserved0[27];
    uint8_t special_family;
    uint8_t reserved28[996];
};

#pragma pack(pop)

static_assert(sizeof(ImageRecord) == LENSWIRE_IMAGE_SIZE);
static_assert(sizeof(NetworkRecord) == LENSWIRE_NETWORK_SIZE);
static_assert(sizeof(OsdRecord) == LENSWIRE_OSD_SIZE);
static_assert(sizeof(WifiRecord) == LENSWIRE_WIFI_SIZE);
static_assert(sizeof(MotionRecord) == LENSWIRE_MOTION_SIZE);
static_assert(offsetof(MotionRecord, area) == 8);
static_assert(sizeof(CoverRecord) == LENSWIRE_COVER_SIZE);
static_assert(sizeof(SmartIFrameRecord) == LENSWIRE_SMART_IFRAME_SIZE);
static_assert(sizeof(AlarmRecord) == LENSWIRE_ALARM_EX_SIZE);
static_assert(sizeof(EncodingSettings) == LENSWIRE_ENCODING_SIZE);
static_assert(offsetof(EncodingSettings, flag) == 30);
static_assert(sizeof(FishEncodingSettings) == LENSWIRE_FISH_ENCODING_SIZE);
static_assert(sizeof(PtzRecord) == LENSWIRE_PTZ_SIZE);
static_assert(sizeof(FishEyeRecord) == LENSWIRE_FISH_PROPERTY_SIZE);
static_assert(sizeof(DeviceRecord) == LENSWIRE_DEVICE_INFO_SIZE);
static_assert(offsetof(DeviceRecord, firmware) == offsetof(IpcDeviceInfo, szFirmwareName));
static_assert(sizeof(PropertyRecord) == LENSWIRE_PROPERTY_BLOCK_SIZE);
static_assert(offsetof(PropertyRecord, special_family) == 27);

}  // namespace lenswire::recorder
