// Firmware files: what one is, and small ones for trying.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lenswire/upgrade.h"

namespace lenswire::recorder {

// What can be seen of a file.
struct FirmwareFile {
    std::string path;
    std::string name;  // after the last '/'
    uint64_t size = 0;
    std::optional<UpgradeFileHeader> header;  // when the file is long enough for one
    bool tagged = false;
};

// Throws a bad-input Failure when the file cannot be read, or its path is longer than the library takes.
FirmwareFile look_at_firmware(const std::string& path);

// A text of a fixed field, as far as it goes.
std::string fixed_text(const char* text, size_t size);

// A path as the library's upgrade functions take it, which may write to it: a whole field, padded with NUL.
std::vector<char> path_for_library(const std::string& path);

// What a file is made for.
struct FirmwareTarget {
    std::string firmware;  // the camera's firmware name
    std::string platform;  // the name of the chip
    std::string sensor;
};

// The styles that files come in: "name", "tokens", "header", "tag".
bool is_firmware_style(const std::string& style);

// Writes a file of that style and of `size` bytes into `directory`, named so that it fits. The path. Throws a
// bad-input Failure when the target lacks what the style needs.
std::string make_firmware(const std::string& style, const FirmwareTarget& target, uint64_t size,
                          const std::string& directory);

}  // namespace lenswire::recorder
