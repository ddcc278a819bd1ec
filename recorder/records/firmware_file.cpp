#include "recorder/records/firmware_file.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "recorder/support/failure.h"
#include "recorder/support/files.h"

namespace lenswire::recorder {
namespace {

constexpr size_t kTagEnd = LENSWIRE_UPGRADE_TAG_OFFSET + LENSWIRE_UPGRADE_TAG_SIZE;
constexpr size_t kLongestPath = LENSWIRE_UPGRADE_PATH_SIZE - 1;
constexpr size_t kNameSize = sizeof(UpgradeFileHeader::platform);

std::vector<std::string> split(const std::string& text) {
    std::vector<std::string> parts;
    size_t begin = 0;
    while (begin < text.size()) {
        const size_t end = std::min(text.find('_', begin), text.size());
        if (end > begin) parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

// Fields one and two of the camera's name, and the mark that files for feature letter P carry.
std::string name_for_fields(const FirmwareTarget& target) {
    const auto fields = split(target.firmware);
    if (fields.size() < 3) throw bad_input("style name needs a firmware name of at least three fields");
    const bool marked = fields[2].find('P') != std::string::npos;
    return fields[0] + "_" + fields[1] + "_" + (marked ? "BD" : "trial") + ".bin";
}

// All tokens up to the one that is W.
std::string name_for_tokens(const FirmwareTarget& target) {
    std::string name;
    for (const std::string& token : split(target.firmware)) {
        if (token == "W") break;
        name += token + "_";
    }
    if (name.empty()) throw bad_input("style tokens needs a firmware name with a token before W");
    return name + "W_trial.bin";
}

void put_header(const FirmwareTarget& target, Bytes& bytes) {
    if (target.platform.empty() || target.sensor.empty())
        throw bad_input("style header needs a platform and a sensor");
    if (target.platform.size() >= kNameSize || target.sensor.size() >= kNameSize) {
        throw bad_input("platform and sensor names have at most 7 characters");
    }
    UpgradeFileHeader header{};
    std::ranges::copy(target.platform, header.platform);
    std::ranges::copy(target.sensor, header.sensortype);
    header.upgrateDataLen = static_cast<uint32_t>(bytes.size());
    header.ulCheck = 1;
    std::memcpy(bytes.data(), &header, sizeof header);
}

void put_tag(Bytes& bytes) {
    std::memset(bytes.data() + LENSWIRE_UPGRADE_TAG_OFFSET, 0, LENSWIRE_UPGRADE_TAG_SIZE);
    std::memcpy(bytes.data() + LENSWIRE_UPGRADE_TAG_OFFSET, LENSWIRE_UPGRADE_TAG,
                sizeof LENSWIRE_UPGRADE_TAG);
}

// Bytes that differ from place to place, so that a piece sent twice or left out shows.
Bytes content(uint64_t size) {
    Bytes bytes(size);
    uint32_t state = 1;
    for (uint8_t& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

}  // namespace

std::string fixed_text(const char* text, size_t size) {
    return {text, strnlen(text, size)};
}

std::vector<char> path_for_library(const std::string& path) {
    std::vector<char> text(path.begin(), path.end());
    text.resize(LENSWIRE_UPGRADE_PATH_SIZE);
    return text;
}

FirmwareFile look_at_firmware(const std::string& path) {
    if (path.size() > kLongestPath) throw bad_input("the path of the file is longer than 127 characters");
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) throw bad_input(path + " is no readable file");
    std::ifstream file(path, std::ios::binary);
    std::vector<char> start(kTagEnd);
    file.read(start.data(), static_cast<std::streamsize>(start.size()));
    const auto length = static_cast<size_t>(file.gcount());
    if (!file && !file.eof()) throw bad_input(path + " is no readable file");
    FirmwareFile found{.path = path,
                       .name = std::filesystem::path(path).filename(),
                       .size = std::filesystem::file_size(path, error),
                       .header = std::nullopt};
    if (length >= sizeof(UpgradeFileHeader)) {
        found.header.emplace();
        std::memcpy(&*found.header, start.data(), sizeof(UpgradeFileHeader));
    }
    found.tagged = length >= kTagEnd && fixed_text(start.data() + LENSWIRE_UPGRADE_TAG_OFFSET,
                                                   LENSWIRE_UPGRADE_TAG_SIZE) == LENSWIRE_UPGRADE_TAG;
    return found;
}

bool is_firmware_style(const std::string& style) {
    return style == "name" || style == "tokens" || style == "header" || style == "tag";
}

std::string make_firmware(const std::string& style, const FirmwareTarget& target, uint64_t size,
                          const std::string& directory) {
    const uint64_t least = style == "tag" ? kTagEnd : sizeof(UpgradeFileHeader);
    if (size < least)
        throw bad_input("a file of style " + style + " has at least " + std::to_string(least) + " bytes");
    Bytes bytes = content(size);
    std::string name = style + "-trial.bin";
    if (style == "name") name = name_for_fields(target);
    if (style == "tokens") name = name_for_tokens(target);
    if (style == "header") put_header(target, bytes);
    if (style == "tag") put_tag(bytes);
    std::string path = directory + "/" + name;
    write_file(path, bytes);
    return path;
}

}  // namespace lenswire::recorder
