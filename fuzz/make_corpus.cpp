// Writes the seeds of every target: what simulated cameras say, cut to a few hundred bytes each.
//
//   lenswire-make-corpus FOLDER
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "camera/device/settings.h"
#include "camera/media/clip.h"
#include "camera/wire/message.h"
#include "camera/wire/packet.h"
#include "lenswire/protocol.h"
#include "recorder/records/cruise_line.h"
#include "recorder/records/layouts.h"
#include "recorder/records/settings_file.h"

namespace {

using namespace lenswire::camera;

std::filesystem::path g_folder;

void seed(const std::string& target, const std::string& name, const Bytes& bytes) {
    std::filesystem::create_directories(g_folder / target);
    std::ofstream file(g_folder / target / name, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes bytes_of(const std::string& text) {
    return {text.begin(), text.end()};
}

Bytes number(size_t value, size_t width) {
    Bytes bytes;
    for (size_t i = 0; i < width; ++i) bytes.push_back(static_cast<uint8_t>(value >> 8 * i));
    return bytes;
}

Command request(uint16_t code, Bytes payload = {}) {
    Command command;
    command.code = code;
    command.buffer_size = static_cast<uint32_t>(payload.size());
    command.buffer_num = payload.empty() ? 0 : 1;
    command.payload = std::move(payload);
    return command;
}

// What the rows of gets.cpp ask for, in their order.
constexpr uint16_t kGets[] = {
    LENSWIRE_CMD_IMAGE_GET,         LENSWIRE_CMD_NETWORK_GET,       LENSWIRE_CMD_OSD_GET,
    LENSWIRE_CMD_WIFI_GET,          LENSWIRE_CMD_COVER_GET,         LENSWIRE_CMD_TIME_GET,
    LENSWIRE_CMD_MOTION_GET,        LENSWIRE_CMD_PTZ_GET,           LENSWIRE_CMD_CRUISE_GET,
    LENSWIRE_CMD_CRUISE_GET,        LENSWIRE_CMD_ENCODING_SCOPE,    LENSWIRE_CMD_ENCODING_GET,
    LENSWIRE_CMD_ENCODING_GET,      LENSWIRE_CMD_ENCODING_GET,      LENSWIRE_CMD_ENCODING_SCOPE,
    LENSWIRE_CMD_FISH_ENCODING_GET, LENSWIRE_CMD_FISH_PROPERTY_GET, LENSWIRE_CMD_PROPERTY_BLOCK,
    LENSWIRE_CMD_DEVICE_INFO,       LENSWIRE_CMD_DEVICE_INFO,
};

// As a recorder asks: a record of the right size whose first bytes name channel and streams.
Command ask(uint16_t code, size_t size) {
    Bytes payload(code == LENSWIRE_CMD_TIME_GET || code == LENSWIRE_CMD_PTZ_GET ? 0 : size);
    if (payload.size() > 1 && (code == LENSWIRE_CMD_ENCODING_GET || code == LENSWIRE_CMD_IMAGE_GET))
        payload[1] = LENSWIRE_ALL_STREAMS;
    Command command = request(code, payload);
    if (code == LENSWIRE_CMD_TIME_GET) command.buffer_size = LENSWIRE_TIME_SIZE;
    return command;
}

// The camera takes one size only: all are tried.
std::optional<Command> answer(Settings& settings, uint16_t code) {
    for (size_t size = 0; size <= LENSWIRE_ENCODING_SCOPE_SIZE; ++size) {
        const auto outcome = settings.handle(ask(code, size));
        if (outcome.understood && outcome.answer && outcome.answer->state == 0) return outcome.answer;
    }
    return std::nullopt;
}

void write_commands() {
    Settings settings({.device = {}, .address = "127.0.0.1", .port = 9, .streams = {}});
    Bytes asked, said;
    const Bytes push = to_bytes(request(LENSWIRE_CMD_MOTION_PUSH, {0, 0, 1}));
    for (size_t i = 0; i < std::size(kGets); ++i) {
        const auto found = answer(settings, kGets[i]);
        if (!found) continue;
        Bytes bytes = to_bytes(*found);
        if (kGets[i] == LENSWIRE_CMD_ENCODING_SCOPE)
            bytes = bytes + to_bytes(*answer(settings, LENSWIRE_CMD_ENCODING_GET));
        seed("gets", std::to_string(i), number(i, 1) + bytes);
        if (bytes.size() < 200) said = said + bytes + push;
    }
    for (const uint16_t code : kGets) asked = asked + to_bytes(ask(code, 4));
    Bytes refused = to_bytes(request(LENSWIRE_CMD_IMAGE_GET));
    refused[6] = kStateUnsupported;
    seed("gets", "refused", number(0, 1) + refused);
    seed("event_loop", "answers", number(255, 1) + said);
    seed("event_loop", "pieces", number(1, 1) + said);
    seed("cutter", "answers", said);
    // The largest message there may be, and one byte more, of which the header announces more still.
    for (const size_t length : {MAX_CMD_SIZE - ARG_HEAD_LEN, MAX_CMD_SIZE - ARG_HEAD_LEN + 1}) {
        Command command = request(LENSWIRE_CMD_IMAGE_GET, Bytes(length));
        if (length > MAX_CMD_SIZE - ARG_HEAD_LEN) command.buffer_size = 5000;
        const Bytes message = to_bytes(command);
        seed("event_loop", std::to_string(length), number(255, 1) + message + push);
        seed("cutter", std::to_string(length), message + push);
        seed("gets", std::to_string(length), number(0, 1) + message);
    }
    seed("motion", "push", push);
    seed("simulator", "asked", number(255, 1) + asked);
    for (const uint16_t code : {LENSWIRE_CMD_TIME_SET, LENSWIRE_CMD_CRUISE_SET, LENSWIRE_CMD_ENCODING_SET,
                                LENSWIRE_CMD_PTZ_OPTION, LENSWIRE_CMD_LOGIN}) {
        const size_t size = code == LENSWIRE_CMD_TIME_SET       ? LENSWIRE_TIME_SIZE
                            : code == LENSWIRE_CMD_CRUISE_SET   ? LENSWIRE_CRUISE_SIZE
                            : code == LENSWIRE_CMD_ENCODING_SET ? LENSWIRE_ENCODING_SIZE * 3
                            : code == LENSWIRE_CMD_PTZ_OPTION   ? LENSWIRE_PTZ_OPTION_SIZE
                                                                : LENSWIRE_LOGIN_SIZE;
        Command set = request(code, Bytes(size, 1));
        if (code == LENSWIRE_CMD_ENCODING_SET) set.buffer_size /= 3, set.buffer_num = 3;
        seed("simulator", std::to_string(code),
             number(4, 1) + to_bytes(set) + to_bytes(ask(LENSWIRE_CMD_PTZ_GET, 0)));
    }
    const Bytes scope = answer(settings, LENSWIRE_CMD_ENCODING_SCOPE)->payload;
    seed("texts", "resolutions",
         number(0, 1) + Bytes(scope.begin(), std::find(scope.begin() + 3, scope.end(), 0)));
    for (const char* zone : {"GMT+08:00", "GMT-03:30", "GMT"})
        seed("texts", zone, number(1, 1) + number(8, 2) + bytes_of(zone));
    seed("login", "accepted",
         number(0, 1) + number(40, 1) + to_bytes(request(LENSWIRE_CMD_SERIAL, Bytes(8, 7))) + number(0, 1) +
             number(32, 1) + to_bytes(request(LENSWIRE_CMD_LOGIN)));
}

void write_firmware() {
    const std::string name = "LW_20_BTAMC_1.0.0", file = "/tmp/LW_20_BTAMC_1.0.1.bin\n";
    for (const uint8_t type : {20, 5, 11, 60, 100}) {
        Bytes texts = bytes_of(name);
        texts.resize(64 + 32);
        std::memcpy(&texts[64], "HI3516A", 7);
        std::memcpy(&texts[80], "IMX178", 6);
        const Bytes header = bytes_of(std::string("HI3516A\0IMX178\0\0", 16)) + number(308, 4) + number(1, 4);
        Bytes content = header;
        content.resize(308);
        std::memcpy(&content[180], "APPLICATION", 11);
        seed("firmware", std::to_string(type),
             number(1, 1) + bytes_of(file) + number(type, 1) + texts + content);
    }
}

void write_streams(const std::string& clips) {
    constexpr size_t kShort = 400;
    const std::pair<const char*, uint8_t> kinds[] = {
        {"h264-sub.h264", 0}, {"h265-sub.h265", 1}, {"jpeg-sub.mjpeg", 2}};
    for (const auto& [file, codec] : kinds) {
        std::string error;
        const auto clip = Clip::open(clips + "/" + file, &error);
        if (!clip) continue;
        Bytes packets = {255, 0}, units = {codec};
        for (size_t i = 0; i < 3; ++i) {
            const auto whole = clip->payload(i);
            const Bytes data(whole.begin(),
                             whole.begin() + static_cast<long>(std::min(whole.size(), kShort)));
            const auto head = to_bytes(PacketHead{.video = i != 2,
                                                  .codec = i != 2 ? clip->codec() : kCodecALaw,
                                                  .length = static_cast<uint32_t>(data.size()),
                                                  .timestamp_ms = static_cast<uint32_t>(40 * i),
                                                  .width = 640,
                                                  .height = 360});
            packets = packets + Bytes(head.begin(), head.end()) + data;
            units = units + number(data.size() + 5, 2) + number(i == 2 ? 7 : 0, 1) + number(40 * i, 4) + data;
        }
        const auto next = to_bytes(PacketHead{});
        seed("packets", file, packets + Bytes(next.begin(), next.end()) + Bytes(1));
        seed("pictures", file, units);
    }
}

// What a dump of a camera says, a setting a file; and a file in which little is right.
void write_settings_files() {
    Settings settings({.device = {}, .address = "127.0.0.1", .port = 9, .streams = {}});
    const std::pair<lenswire::recorder::FileSetting, uint16_t> rows[] = {
        {{"image", &lenswire::recorder::kImageLayout}, LENSWIRE_CMD_IMAGE_GET},
        {{"osd", &lenswire::recorder::kOsdLayout}, LENSWIRE_CMD_OSD_GET},
        {{"motion", &lenswire::recorder::kMotionLayout}, LENSWIRE_CMD_MOTION_GET},
        {{"cover", &lenswire::recorder::kCoverLayout}, LENSWIRE_CMD_COVER_GET},
        {{"encoding", &lenswire::recorder::kEncodingLayout}, LENSWIRE_CMD_ENCODING_GET},
        {{"fish-encoding", &lenswire::recorder::kFishEncodingLayout}, LENSWIRE_CMD_FISH_ENCODING_GET}};
    for (const auto& [setting, code] : rows) {
        const auto found = answer(settings, code);
        if (found && found->payload.size() == setting.layout->whole_size())
            seed("settings_file", std::string(setting.name),
                 bytes_of(settings_table(setting, found->payload)));
    }
    const auto line = lenswire::recorder::parse_cruise_line(2, {"1", "256:42:255"}, true);
    seed("settings_file", "cruise", bytes_of(lenswire::recorder::settings_table(line)));
    seed("settings_file", "broken",
         bytes_of("camera = 3\n[image]\nchannel = 1\nhue = 256\nmirror = 1.5\n[encoding.main]\n"
                  "codec = \"mpeg\"\n[osd]\nname = 3\nline = \"\\u0001\"\n[[cruise]]\nline = 1\n"
                  "points = [\"0\"]\n[[cruise]]\nline = 4\n"));
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", arguments[0]);
        return 2;
    }
    g_folder = arguments[1];
    write_commands();
    write_firmware();
    write_settings_files();
    write_streams(LENSWIRE_CLIPS);
    return 0;
}
