// Does a firmware file fit a camera: the rules, over texts and records, without files. The exported checks
// of lenswire/upgrade.h are thin shells around them.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <string_view>

#include "lenswire/upgrade.h"

namespace lenswire::upgrade {

// Results of the checks.
constexpr int kFits = 0;
constexpr int kMisfit = -1;
constexpr int kNoLetterSet = -2;

// What a device type asks of a file.
enum class Check : uint8_t { kName, kNameThenHeader, kTag, kTokens };
Check check_of(uint8_t device_type);

// The text of a record's field; one that fills its field has no end and is beyond every limit.
template <size_t N>
std::string_view text_of(const char (&field)[N]) {
    size_t length = 0;
    while (length < N && field[length] != '\0') ++length;
    return {field, length};
}

// A path as far as it may be read; one of LENSWIRE_UPGRADE_PATH_SIZE characters is too long.
std::string_view path_text(const char* path);

// First grammar. kFits, kMisfit or kNoLetterSet.
int compare_names(std::string_view firmware_name, std::string_view path);

// Second grammar.
enum class TokenVerdict : uint8_t { kFits, kMisfit, kNothingToCompare };
TokenVerdict compare_tokens(std::string_view firmware_name, std::string_view path);

// Header style; what fails first.
enum class HeaderVerdict : uint8_t { kFits, kCameraNames, kDeviceType, kLength };
HeaderVerdict judge_header(const IpcDeviceInfo& camera, const UpgradeFileHeader& header, uint64_t file_size);

// Tag style, over the start of a file.
constexpr size_t kTagFileSize = LENSWIRE_UPGRADE_TAG_OFFSET + LENSWIRE_UPGRADE_TAG_SIZE;
bool has_tag(std::span<const char, kTagFileSize> start);

struct FileCloser {
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// Opens a regular file for reading; null with errno set otherwise. Never waits, whatever the path names.
File open_file(const char* path);

}  // namespace lenswire::upgrade
