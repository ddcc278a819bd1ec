#include "camera/media/annexb.h"

#include <cstring>
#include <optional>

namespace lenswire::camera {
namespace {

// What a NAL unit means for the division into access units.
struct NalRole {
    bool picture = false;      // carries a slice
    bool first_slice = false;  // and it is the first one of its picture
    bool opens_unit = false;   // belongs to the next picture: delimiter, parameter sets, leading information
    bool key = false;
};

NalRole role_h264(std::span<const uint8_t> nal) {
    const int type = nal[0] & 0x1F;
    NalRole role;
    role.picture = type == 1 || type == 2 || type == 5;
    // first_mb_in_slice is an Exp-Golomb number: a leading 1 bit is the number 0.
    role.first_slice = role.picture && nal.size() > 1 && (nal[1] & 0x80) != 0;
    role.opens_unit = (type >= 6 && type <= 9) || (type >= 14 && type <= 18);
    role.key = type == 5;
    return role;
}

NalRole role_h265(std::span<const uint8_t> nal) {
    const int type = nal[0] >> 1 & 0x3F;
    NalRole role;
    role.picture = type <= 31;
    role.first_slice = role.picture && nal.size() > 2 && (nal[2] & 0x80) != 0;
    role.opens_unit =
        (type >= 32 && type <= 35) || type == 39 || (type >= 41 && type <= 44) || (type >= 48 && type <= 55);
    role.key = type >= 16 && type <= 23;
    return role;
}

std::vector<AccessUnit> split(std::span<const uint8_t> stream, NalRole (*role_of)(std::span<const uint8_t>)) {
    std::vector<AccessUnit> units;
    std::optional<AccessUnit> open;
    bool has_picture = false;
    const auto close_at = [&](size_t end) {
        if (open && has_picture) {
            open->length = end - open->offset;
            units.push_back(*open);
        }
    };
    const auto nals = find_nal_units(stream);
    for (const NalUnit& nal : nals) {
        if (nal.body == nal.end) continue;
        const NalRole role = role_of(stream.subspan(nal.body, nal.end - nal.body));
        const bool starts_next = has_picture && (role.opens_unit || role.first_slice);
        if (starts_next) close_at(nal.start);
        if (!open || starts_next) {
            open = AccessUnit{.offset = nal.start};
            has_picture = false;
        }
        has_picture = has_picture || role.picture;
        open->key = open->key || role.key;
    }
    if (!nals.empty()) close_at(nals.back().end);
    return units;
}

// The end of the image that starts at `start`, or nothing when it does not end. Segments are skipped by
// their lengths, so that a thumbnail inside of one does not end the image.
std::optional<size_t> jpeg_end(std::span<const uint8_t> stream, size_t start) {
    size_t at = start + 2;
    while (at + 4 <= stream.size() && stream[at] == 0xFF) {
        const uint8_t marker = stream[at + 1];
        if (marker == 0xFF) {
            ++at;
            continue;
        }
        if (marker == 0xD9) return at + 2;
        at += 2 + (stream[at + 2] << 8 | stream[at + 3]);
        if (marker != 0xDA) continue;
        // Entropy-coded data: the next marker is an FF that is not followed by 00 or a restart number.
        while (at + 2 <= stream.size() && (stream[at] != 0xFF || stream[at + 1] == 0 ||
                                           (stream[at + 1] >= 0xD0 && stream[at + 1] <= 0xD7))) {
            ++at;
        }
        if (at + 2 <= stream.size() && stream[at + 1] == 0xD9) return at + 2;
    }
    return std::nullopt;
}

}  // namespace

std::vector<NalUnit> find_nal_units(std::span<const uint8_t> stream) {
    std::vector<NalUnit> nals;
    size_t at = 0;
    while (at + 3 <= stream.size()) {
        const auto* one =
            static_cast<const uint8_t*>(std::memchr(&stream[at + 2], 1, stream.size() - at - 2));
        if (one == nullptr) break;
        const size_t code = static_cast<size_t>(one - stream.data()) - 2;
        at = code + 1;
        if (stream[code] != 0 || stream[code + 1] != 0) continue;
        const size_t start = code > 0 && stream[code - 1] == 0 ? code - 1 : code;
        if (!nals.empty()) nals.back().end = start;
        nals.push_back({.start = start, .body = code + 3, .end = stream.size()});
        at = code + 3;
    }
    return nals;
}

std::vector<AccessUnit> split_h264(std::span<const uint8_t> stream) {
    return split(stream, role_h264);
}

std::vector<AccessUnit> split_h265(std::span<const uint8_t> stream) {
    return split(stream, role_h265);
}

std::vector<AccessUnit> split_jpeg(std::span<const uint8_t> stream) {
    std::vector<AccessUnit> units;
    size_t at = 0;
    while (at + 2 <= stream.size()) {
        if (stream[at] != 0xFF || stream[at + 1] != 0xD8) {
            ++at;
            continue;
        }
        const auto end = jpeg_end(stream, at);
        if (!end) break;
        units.push_back({.offset = at, .length = *end - at, .key = true});
        at = *end;
    }
    return units;
}

}  // namespace lenswire::camera
