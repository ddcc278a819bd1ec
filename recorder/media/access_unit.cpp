#include "recorder/media/access_unit.h"

#include <algorithm>

namespace lenswire::recorder {
namespace {

struct Unit {
    enum Role { kOther, kParameterSet, kKeyPicture, kPicture } role = kOther;
    int kind = 0;  // of a parameter set: 0, 1, ...
};

constexpr int kSequence = 0;  // of H.264
constexpr int kPictures = 1;

Unit classify_h264(uint8_t first) {
    switch (first & 0x1F) {
        case 1:
        case 2:
            return {Unit::kPicture};
        case 5:
            return {Unit::kKeyPicture};
        case 7:
            return {Unit::kParameterSet, kSequence};
        case 8:
            return {Unit::kParameterSet, kPictures};
        default:
            return {};
    }
}

Unit classify_h265(uint8_t first) {
    const int type = first >> 1 & 0x3F;
    if (type >= 16 && type <= 23) return {Unit::kKeyPicture};
    if (type < 32) return {Unit::kPicture};
    if (type <= 34) return {Unit::kParameterSet, type - 32};
    return {};
}

Unit classify(VideoCodec codec, uint8_t first) {
    return codec == VideoCodec::kH264 ? classify_h264(first) : classify_h265(first);
}

uint32_t all_kinds(VideoCodec codec) {
    return codec == VideoCodec::kH264 ? 0b11 : 0b111;
}

constexpr uint8_t kStartCode[] = {0, 0, 0, 1};

// The part of `bytes` that begins after the next start code; empty when there is none.
std::span<const uint8_t> after_start_code(std::span<const uint8_t> bytes) {
    for (size_t i = 0; i + 3 < bytes.size(); ++i) {
        if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1) return bytes.subspan(i + 3);
    }
    return {};
}

// The unit at the start of `bytes`, up to the next start code.
std::span<const uint8_t> unit_at(std::span<const uint8_t> bytes) {
    const auto next = after_start_code(bytes);
    size_t length = next.empty() ? bytes.size() : static_cast<size_t>(next.data() - bytes.data()) - 3;
    while (length > 0 && bytes[length - 1] == 0) --length;
    return bytes.first(length);
}

bool begins_jpeg(std::span<const uint8_t> bytes) {
    return bytes.size() > 2 && bytes[0] == 0xFF && bytes[1] == 0xD8;
}

}  // namespace

const char* codec_name(VideoCodec codec) {
    switch (codec) {
        case VideoCodec::kH264:
            return "H264";
        case VideoCodec::kH265:
            return "H265";
        case VideoCodec::kJpeg:
            return "JPEG";
    }
    return "";
}

std::optional<VideoCodec> codec_of_head(uint8_t code) {
    switch (code) {
        case 0:
        case 4:
            return VideoCodec::kH264;
        case 2:
            return VideoCodec::kJpeg;
        case 3:
        case 5:
            return VideoCodec::kH265;
        default:
            return std::nullopt;
    }
}

bool AccessUnitReader::read(std::span<const uint8_t> access_unit) {
    if (codec_ == VideoCodec::kJpeg) return begins_jpeg(access_unit);
    bool sequence_begins = false;
    for (auto rest = after_start_code(access_unit); !rest.empty(); rest = after_start_code(rest)) {
        const Unit unit = classify(codec_, rest[0]);
        if (unit.role == Unit::kParameterSet) collect(unit_at(rest), unit.kind);
        // A picture that comes with its sequence's parameters is one to begin with, also where it does not
        // end all reference to earlier ones.
        if (unit.role == Unit::kParameterSet && codec_ == VideoCodec::kH264 && unit.kind == kSequence) {
            sequence_begins = true;
        }
        if (unit.role == Unit::kPicture || unit.role == Unit::kKeyPicture) {
            picture_since_run_ = true;
            return unit.role == Unit::kKeyPicture || sequence_begins;
        }
    }
    return false;
}

// The sets between two pictures belong together, also when each came in a packet of its own.
void AccessUnitReader::collect(std::span<const uint8_t> unit, int kind) {
    if (picture_since_run_) {
        run_.clear();
        kinds_ = 0;
        picture_since_run_ = false;
    }
    run_.insert(run_.end(), std::begin(kStartCode), std::end(kStartCode));
    run_.insert(run_.end(), unit.begin(), unit.end());
    kinds_ |= 1u << kind;
    if (kinds_ == all_kinds(codec_) && !std::ranges::equal(complete_, run_)) complete_ = run_;
}

}  // namespace lenswire::recorder
