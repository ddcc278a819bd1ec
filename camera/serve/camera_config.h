// What a camera is told to be, and what it tells of the commands that it received.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "camera/device/device.h"
#include "camera/media/frame_source.h"
#include "camera/wire/message.h"

namespace lenswire::camera {

struct CameraConfig {
    std::string address = "127.0.0.1";
    uint16_t port = 0;  // 0: any free one, see Camera::port
    std::string user = "admin";
    std::string password = "admin";
    uint32_t number = 0;  // of this camera in its farm; part of the seed of synthetic streams
    std::vector<StreamConfig> streams = std::vector<StreamConfig>(2);  // by stream number: main, sub
    bool answer_heartbeats = true;
    // Refuse commands and streams that do not carry a login id of this camera. They are counted either way.
    bool require_login = true;
    // Pushes motion that often, and its end half that time later, while its detection is on; 0: never.
    int64_t motion_every_ms = 0;
    DeviceConfig device = {};
    std::string keep_firmware_dir = {};   // good uploads are kept in this folder, ADDRESS-NUMBER.bin
    std::string next_firmware_name = {};  // after a good upload; the present one counted up when empty
    int64_t reboot_ms = 500;              // how long the camera is away then
    int64_t gather_us = 4000;             // frames that fall due within such a span are sent in one go
};

inline constexpr size_t kMostCommandsKept = 4096;

// Where a received command came from.
struct Received {
    uint32_t connection = 0;  // numbered from 1 in the order of accepting
    Command command;
};

// What takes a command in place of the camera, see Camera::on_command.
using CommandHook = std::function<std::optional<Command>(const Command& request)>;

}  // namespace lenswire::camera
