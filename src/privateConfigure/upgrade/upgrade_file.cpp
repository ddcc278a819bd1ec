#include "privateConfigure/upgrade/upgrade_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "common/log.h"
#include "common/wire.h"

namespace lenswire::upgrade {

namespace {

// What the texts of a check hold at most. One that is longer is never cut to fit: it fits no camera by its
// names.
constexpr size_t kFirmwareNameMax = 63;
constexpr size_t kPathMax = LENSWIRE_UPGRADE_PATH_SIZE - 1;
constexpr size_t kFileNameMax = 63;
constexpr size_t kFieldMax = 31;
constexpr size_t kTokensMax = 16;
constexpr auto kNone = std::string_view::npos;

struct TypeRange {
    uint8_t first, last;
    Check check;
};

// Every other type: by name alone.
constexpr TypeRange kTypeRanges[] = {
    {5, 5, Check::kNameThenHeader},     {11, 13, Check::kTag},
    {60, 68, Check::kTokens},           {71, 77, Check::kTokens},
    {90, 97, Check::kNameThenHeader},   {130, 134, Check::kNameThenHeader},
    {137, 137, Check::kNameThenHeader}, {140, 143, Check::kTokens},
    {150, 150, Check::kNameThenHeader}, {200, 208, Check::kNameThenHeader},
    {220, 221, Check::kNameThenHeader}, {230, 234, Check::kNameThenHeader},
};

struct RequiredNames {
    uint8_t device_type;
    std::string_view platform, sensortype;
};

// For cameras that do not name their chip and sensor.
constexpr RequiredNames kRequiredNames[] = {
    {5, "HI3516A", "IMX178"},  {100, "GM8136", "OV2715"}, {100, "GM8135", "OV9732"},
    {101, "GM8138", "OV4689"}, {102, "GM8135", "OV9750"}, {200, "HI3516D", "OV4689"},
};

// Takes the text up to the next separator off the front.
std::string_view take_part(std::string_view& text) {
    const size_t end = text.find('_');
    const std::string_view part(text.data(), std::min(end, text.size()));
    text.remove_prefix(end == kNone ? text.size() : end + 1);
    return part;
}

std::string_view file_name(std::string_view path) {
    const size_t slash = path.rfind('/');
    if (slash != kNone) path.remove_prefix(slash + 1);
    return path;
}

// As a scan for "text_text_text" reads: an empty field ends it, that field and the rest are empty.
template <size_t N>
std::array<std::string_view, N> split_fields(std::string_view text) {
    std::array<std::string_view, N> fields{};
    for (std::string_view& field : fields) {
        field = take_part(text);
        if (field.empty()) break;
    }
    return fields;
}

template <typename Fields>
bool within_limits(const Fields& fields) {
    return std::ranges::all_of(fields, [](std::string_view field) { return field.size() <= kFieldMax; });
}

bool has(std::string_view text, char letter) {
    return text.find(letter) != kNone;
}

bool has_letter_set(std::string_view text) {
    const bool common = has(text, 'T') && has(text, 'A') && has(text, 'M') && has(text, 'C');
    return common && (has(text, 'B') || has(text, 'X') || has(text, 'F') || has(text, 'W'));
}

struct Tokens {
    std::array<std::string_view, kTokensMax> token{};
    size_t count = 0;
    bool within_limits = true;
};

// The tokens before the first that is exactly W. Separators in a row separate once.
Tokens split_tokens(std::string_view text) {
    Tokens tokens;
    while (!text.empty()) {
        const std::string_view token = take_part(text);
        if (token.empty()) continue;
        if (token == "W") break;
        if (tokens.count == kTokensMax || token.size() > kFieldMax) {
            tokens.within_limits = false;
            break;
        }
        tokens.token[tokens.count++] = token;
    }
    return tokens;
}

// Where std::string_view would go through a throwing function, the library stays without.
bool begins_with(std::string_view text, std::string_view start) {
    return text.size() >= start.size() && std::memcmp(text.data(), start.data(), start.size()) == 0;
}

bool same_text(std::string_view left, std::string_view right, size_t field_size) {
    return left.size() < field_size && left == right;
}

bool names_match(const UpgradeFileHeader& header, std::string_view platform, std::string_view sensortype) {
    return same_text(text_of(header.platform), platform, sizeof header.platform) &&
           same_text(text_of(header.sensortype), sensortype, sizeof header.sensortype);
}

bool meets_requirement(uint8_t device_type, const UpgradeFileHeader& header) {
    bool listed = false;
    for (const RequiredNames& row : kRequiredNames) {
        if (row.device_type != device_type) continue;
        listed = true;
        if (!names_match(header, row.platform, row.sensortype)) continue;
        return header.upgrateDataLen != 0 && header.ulCheck != 0;
    }
    return !listed;
}

HeaderVerdict judge_names(const IpcDeviceInfo& camera, const UpgradeFileHeader& header) {
    if (camera.platform[0] != '\0' && camera.sensortype[0] != '\0') {
        const bool match = names_match(header, text_of(camera.platform), text_of(camera.sensortype)) &&
                           header.upgrateDataLen != 0 && header.ulCheck != 0;
        return match ? HeaderVerdict::kFits : HeaderVerdict::kCameraNames;
    }
    return meets_requirement(camera.ndevType, header) ? HeaderVerdict::kFits : HeaderVerdict::kDeviceType;
}

}  // namespace

Check check_of(uint8_t device_type) {
    for (const TypeRange& range : kTypeRanges) {
        if (device_type >= range.first && device_type <= range.last) return range.check;
    }
    return Check::kName;
}

std::string_view path_text(const char* path) {
    return {path, strnlen(path, LENSWIRE_UPGRADE_PATH_SIZE)};
}

int compare_names(std::string_view firmware_name, std::string_view path) {
    const auto camera = split_fields<4>(firmware_name);
    const std::string_view letters = camera[2];
    if (letters.size() > kFieldMax) return kMisfit;
    if (!has_letter_set(letters)) return kNoLetterSet;
    if (firmware_name.size() > kFirmwareNameMax || path.size() > kPathMax) return kMisfit;
    if (has(letters, 'P') && path.find("BD") == kNone) return kMisfit;

    const std::string_view name = file_name(path);
    const auto file = split_fields<3>(name);
    if (name.size() > kFileNameMax || !within_limits(camera) || !within_limits(file)) return kMisfit;
    return camera[0] == file[0] && camera[1] == file[1] ? kFits : kMisfit;
}

TokenVerdict compare_tokens(std::string_view firmware_name, std::string_view path) {
    const Tokens camera = split_tokens(firmware_name);
    const std::string_view name = file_name(path);
    const Tokens file = split_tokens(name);
    if (firmware_name.size() > kFirmwareNameMax || path.size() > kPathMax || name.size() > kFileNameMax ||
        !camera.within_limits || !file.within_limits) {
        return TokenVerdict::kMisfit;
    }
    if (camera.count == 0) return TokenVerdict::kNothingToCompare;
    for (size_t i = 0; i < camera.count; ++i) {
        if (!begins_with(file.token[i], camera.token[i])) return TokenVerdict::kMisfit;
    }
    return TokenVerdict::kFits;
}

HeaderVerdict judge_header(const IpcDeviceInfo& camera, const UpgradeFileHeader& header, uint64_t file_size) {
    const HeaderVerdict names = judge_names(camera, header);
    if (names != HeaderVerdict::kFits) return names;
    return file_size == header.upgrateDataLen ? HeaderVerdict::kFits : HeaderVerdict::kLength;
}

bool has_tag(std::span<const char, kTagFileSize> start) {
    // The literal's NUL is part of the tag.
    return std::memcmp(start.data() + LENSWIRE_UPGRADE_TAG_OFFSET, LENSWIRE_UPGRADE_TAG,
                       sizeof LENSWIRE_UPGRADE_TAG) == 0;
}

File open_file(const char* path) {
    if (path == nullptr || path_text(path).size() > kPathMax) {
        errno = path == nullptr ? EINVAL : ENAMETOOLONG;
        return nullptr;
    }
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) return nullptr;
    struct stat status {};
    const bool regular = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    std::FILE* const file = regular ? fdopen(descriptor, "rb") : nullptr;
    if (file == nullptr) {
        if (!regular) errno = EINVAL;
        close(descriptor);
    }
    return File(file);
}

}  // namespace lenswire::upgrade

namespace {

using lenswire::upgrade::Check;
using lenswire::upgrade::File;
using lenswire::upgrade::HeaderVerdict;
using lenswire::upgrade::kFits;
using lenswire::upgrade::kMisfit;
using lenswire::upgrade::kNoLetterSet;
using lenswire::upgrade::TokenVerdict;

bool is_missing(const char* operation, const void* camera, const char* path) {
    if (camera != nullptr && path != nullptr) return false;
    PRI_ERROR_AS(operation, ":input param error\n");
    return true;
}

IpcDeviceInfo device_info(const void* info464) {
    return lenswire::wire::load<IpcDeviceInfo>(info464);
}

uint64_t size_of(const File& file) {
    struct stat status {};
    return fstat(fileno(file.get()), &status) == 0 ? static_cast<uint64_t>(status.st_size) : 0;
}

}  // namespace

int CompareUpgradeFile(const void* info464, char* path) {
    if (is_missing(__func__, info464, path)) return kMisfit;
    IpcDeviceInfo info = device_info(info464);
    switch (lenswire::upgrade::check_of(info.ndevType)) {
        case Check::kTag:
            return CheckUpgradFile2(info.ndevType, path);
        case Check::kTokens:
            return CheckUpgradFile3(&info, path);
        case Check::kName:
            return QM_VT_NewUpgradeFileCheck(info.szFirmwareName, path);
        case Check::kNameThenHeader:
            break;
    }
    const int by_name = QM_VT_NewUpgradeFileCheck(info.szFirmwareName, path);
    return by_name == kNoLetterSet ? CheckUpgradFile(&info, path) : by_name;
}

int QM_VT_NewUpgradeFileCheck(const char* name, char* path) {
    if (is_missing(__func__, name, path)) return kMisfit;
    const std::string_view firmware_name(name, strnlen(name, sizeof IpcDeviceInfo::szFirmwareName));
    return lenswire::upgrade::compare_names(firmware_name, lenswire::upgrade::path_text(path));
}

int CheckUpgradFile(const void* info464, const char* path) {
    if (is_missing(__func__, info464, path)) return kMisfit;
    const File file = lenswire::upgrade::open_file(path);
    if (file == nullptr) {
        std::printf("fopen %.*s error\n", LENSWIRE_UPGRADE_PATH_SIZE, path);
        return kMisfit;
    }
    UpgradeFileHeader header;
    if (std::fread(&header, sizeof header, 1, file.get()) != 1) {
        std::fputs("fread error", stdout);
        return kMisfit;
    }
    switch (lenswire::upgrade::judge_header(device_info(info464), header, size_of(file))) {
        case HeaderVerdict::kFits:
            return kFits;
        case HeaderVerdict::kCameraNames:
            PRI_ERROR_AS(__func__, " #######!platform.empty() && !sensortype.empty() error########\n");
            break;
        case HeaderVerdict::kDeviceType:
            PRI_ERROR_AS(__func__, " ndevType error\n");
            break;
        case HeaderVerdict::kLength:
            PRI_ERROR_AS(__func__, " upgrateDataLen error\n");
            break;
    }
    return kMisfit;
}

int CheckUpgradFile2(int, const char* path) {
    std::fputs("#####################checkUpgradFile2###################", stdout);
    const File file = lenswire::upgrade::open_file(path);
    if (file == nullptr) {
        PRI_ERROR_AS(__func__, " fopen error\n");
        return kMisfit;
    }
    char start[lenswire::upgrade::kTagFileSize];
    if (std::fread(start, sizeof start, 1, file.get()) != 1) {
        PRI_ERROR_AS(__func__, " fread error\n");
        return kMisfit;
    }
    if (!lenswire::upgrade::has_tag(start)) {
        PRI_ERROR_AS(__func__, " strcmp APPLICATION error\n");
        return kMisfit;
    }
    return kFits;
}

int CheckUpgradFile3(void* info464, const char* path) {
    if (is_missing(__func__, info464, path)) return kMisfit;
    const IpcDeviceInfo info = device_info(info464);
    const TokenVerdict verdict = lenswire::upgrade::compare_tokens(
        lenswire::upgrade::text_of(info.szFirmwareName), lenswire::upgrade::path_text(path));
    if (verdict == TokenVerdict::kMisfit) std::fputs("###################CheckUpgrafe error", stdout);
    if (verdict != TokenVerdict::kFits) return kMisfit;
    std::fputs("#####################S2L CheckUpgrade successful", stdout);
    return kFits;
}
