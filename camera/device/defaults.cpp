#include "camera/device/defaults.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>

#include "camera/device/layouts.h"
#include "lenswire/protocol.h"

namespace lenswire::camera {
namespace {

// A record being filled, field by field.
class Filler {
  public:
    explicit Filler(const Layout& layout) : layout_(layout), bytes_(layout.size) {}
    Filler& number(std::string_view name, uint32_t value) {
        set_field(bytes_, layout_, name, value);
        return *this;
    }
    Filler& text(std::string_view name, const std::string& value) {
        set_field(bytes_, layout_, name, value);
        return *this;
    }
    Filler& bytes(std::string_view name, const Bytes& value) {
        set_field(bytes_, layout_, name, std::span<const uint8_t>(value));
        return *this;
    }
    Filler& address(std::string_view name, const std::string& dotted) {
        in_addr address{};
        inet_pton(AF_INET, dotted.c_str(), &address);
        const auto* at = reinterpret_cast<const uint8_t*>(&address.s_addr);
        return bytes(name, {at, at + 4});
    }
    Bytes take() { return std::move(bytes_); }

  private:
    const Layout& layout_;
    Bytes bytes_;
};

Filler of_get(uint16_t code) {
    return Filler(*layout_of_get(code));
}

Bytes image() {
    return of_get(LENSWIRE_CMD_IMAGE_GET)
        .number("stream", LENSWIRE_ALL_STREAMS)
        .number("brightness", 128)
        .number("contrast", 128)
        .number("saturation", 128)
        .number("hue", 128)
        .number("sharpness", 96)
        .number("denoise", 2)
        .number("anti-flicker", 50)
        .take();
}

Bytes network(const Surroundings& around) {
    in_addr address{};
    inet_pton(AF_INET, around.address.c_str(), &address);
    const auto* at = reinterpret_cast<const uint8_t*>(&address.s_addr);
    return of_get(LENSWIRE_CMD_NETWORK_GET)
        .address("address", around.address)
        .address("mask", "255.0.0.0")
        .address("gateway", "127.0.0.1")
        .address("dns1", "127.0.0.1")
        .bytes("mac", {0x02, 0x00, at[0], at[1], at[2], at[3]})
        .number("port", around.port)
        .number("http-port", 80)
        .text("host-name", around.device.name)
        .take();
}

Bytes osd(const Surroundings& around) {
    return of_get(LENSWIRE_CMD_OSD_GET)
        .number("show-name", 1)
        .number("show-time", 1)
        .number("name-x", 16)
        .number("name-y", 320)
        .number("time-x", 16)
        .number("time-y", 16)
        .number("font-size", 24)
        .text("name", around.device.name)
        .take();
}

Bytes wifi() {
    return of_get(LENSWIRE_CMD_WIFI_GET)
        .number("enabled", 1)
        .number("connected", 1)
        .number("signal", 78)
        .number("networks", 2)
        .text("ssid", "workshop")
        .number("security", 4)
        .text("network1.ssid", "workshop")
        .number("network1.signal", 78)
        .number("network1.security", 4)
        .text("network2.ssid", "visitors")
        .number("network2.signal", 41)
        .take();
}

Bytes motion() {
    return of_get(LENSWIRE_CMD_MOTION_GET)
        .number("enabled", 1)
        .number("sensitivity", 5)
        .bytes("area", Bytes(72, 0xFF))
        .take();
}

Bytes device_info(const Surroundings& around) {
    Bytes record = of_get(LENSWIRE_CMD_DEVICE_INFO)
                       .number("channels", 1)
                       .number("streams", static_cast<uint32_t>(around.streams.size()))
                       .text("serial", "LW-" + around.address)
                       .text("model", "LW-SIM")
                       .text("hardware", "1.0")
                       .take();
    put_device(record, around.device);
    return record;
}

Bytes encoding(const Surroundings& around) {
    Bytes records;
    for (uint32_t i = 0; i < 3; ++i) {
        StreamShape shape{.width = 320, .height = 240, .kbit_rate = 256, .there = false};
        if (i < around.streams.size()) shape = around.streams[i];
        const Bytes record = of_get(LENSWIRE_CMD_ENCODING_GET)
                                 .number("stream", i)
                                 .number("codec", shape.codec)
                                 .number("frame-rate", shape.frame_rate)
                                 .number("width", shape.width)
                                 .number("height", shape.height)
                                 .number("kbit-rate", shape.kbit_rate)
                                 .number("gop", 2 * shape.frame_rate)
                                 .number("quality", 3)
                                 .number("audio", shape.audio ? 1 : 0)
                                 .number("flag", shape.there ? 1 : 0)
                                 .take();
        records.insert(records.end(), record.begin(), record.end());
    }
    return records;
}

// One picture of the whole circle: the recorder files the first record for all three of its streams.
Bytes fish_encoding() {
    Bytes records;
    for (int i = 0; i < 3; ++i) {
        const Bytes record = of_get(LENSWIRE_CMD_FISH_ENCODING_GET)
                                 .number("copies", 2)
                                 .number("codec", LENSWIRE_CODEC_H265)
                                 .number("frame-rate", 20)
                                 .number("width", 2880)
                                 .number("height", 2880)
                                 .number("kbit-rate", 6144)
                                 .take();
        records.insert(records.end(), record.begin(), record.end());
    }
    return records;
}

Bytes scope() {
    static const std::string kText =
        "H264:2592x1944;H265:2592x1944;H264:1920x1080;H265:1920x1080;H264:1280x720;H265:1280x720;"
        "@H264:1920x1080,H264:640x360;H265:1920x1080,H265:640x360;H264:1280x720,H264:320x180;"
        "@H264:1920x1080,H264:640x360,H264:320x240;H265:1920x1080,H265:640x360,H264:320x240;";
    Bytes record(LENSWIRE_ENCODING_SCOPE_SIZE);
    record[1] = 7;  // one, two and three streams
    std::copy(kText.begin(), kText.end(), record.begin() + 3);
    return record;
}

// A tour of the first three presets.
Bytes cruise_lines() {
    Bytes records(size_t{3} * LENSWIRE_CRUISE_SIZE);
    for (uint8_t line = 0; line < 3; ++line) records[line * size_t{LENSWIRE_CRUISE_SIZE} + 1] = line;
    for (uint8_t point = 0; point < 3; ++point) {
        uint8_t* entry = &records[68 + size_t{28} * point];
        entry[2] = point;
        entry[4] = 1;
        entry[5] = point;
        entry[6] = 30;
        entry[8] = 64;
    }
    return records;
}

}  // namespace

void put_device(Bytes& device_info, const DeviceConfig& device) {
    const Layout& layout = *layout_of_get(LENSWIRE_CMD_DEVICE_INFO);
    set_field(device_info, layout, "type", device.type);
    set_field(device_info, layout, "firmware", device.firmware_name);
    set_field(device_info, layout, "platform", device.platform);
    set_field(device_info, layout, "sensor", device.sensor);
}

std::map<uint16_t, Bytes> default_records(const Surroundings& around) {
    std::map<uint16_t, Bytes> records{
        {LENSWIRE_CMD_IMAGE_GET, image()},
        {LENSWIRE_CMD_NETWORK_GET, network(around)},
        {LENSWIRE_CMD_OSD_GET, osd(around)},
        {LENSWIRE_CMD_WIFI_GET, wifi()},
        {LENSWIRE_CMD_MOTION_GET, motion()},
        {LENSWIRE_CMD_COVER_GET, Bytes(LENSWIRE_COVER_SIZE)},
        {LENSWIRE_CMD_DEVICE_INFO, device_info(around)},
        {LENSWIRE_CMD_ENCODING_GET, encoding(around)},
        {LENSWIRE_CMD_FISH_ENCODING_GET, fish_encoding()},
        {LENSWIRE_CMD_ENCODING_SCOPE, scope()},
        {LENSWIRE_CMD_CRUISE_GET, cruise_lines()},
        {LENSWIRE_CMD_SMART_IFRAME_SET, Bytes(LENSWIRE_SMART_IFRAME_SIZE)},
        {LENSWIRE_CMD_ALARM_EX, Bytes(LENSWIRE_ALARM_EX_SIZE)},
        {LENSWIRE_CMD_PTZ_GET, of_get(LENSWIRE_CMD_PTZ_GET).number("speed", 64).take()},
    };
    records[LENSWIRE_CMD_FISH_PROPERTY_GET] =
        of_get(LENSWIRE_CMD_FISH_PROPERTY_GET).number("type", around.device.fisheye_type).take();
    records[LENSWIRE_CMD_PROPERTY_BLOCK] = of_get(LENSWIRE_CMD_PROPERTY_BLOCK)
                                               .number("special-family", around.device.special_family ? 1 : 0)
                                               .take();
    return records;
}

}  // namespace lenswire::camera
