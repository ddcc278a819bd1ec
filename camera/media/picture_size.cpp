#include "camera/media/picture_size.h"

#include <vector>

#include "camera/media/annexb.h"

namespace lenswire::camera {
namespace {

// Reads the bits of one NAL unit; beyond the end it reads zeros and remembers that it did.
class BitReader {
  public:
    explicit BitReader(std::span<const uint8_t> nal) {
        int zeros = 0;
        for (const uint8_t byte : nal) {  // a 3 behind two zeros is there only to avoid a start code
            if (zeros >= 2 && byte == 3) {
                zeros = 0;
                continue;
            }
            zeros = byte == 0 ? zeros + 1 : 0;
            bytes_.push_back(byte);
        }
    }

    uint32_t bits(int count) {
        uint32_t value = 0;
        for (; count > 0; --count) {
            const size_t byte = at_ / 8;
            const uint32_t bit = byte < bytes_.size() ? bytes_[byte] >> (7 - at_ % 8) & 1 : 0;
            value = value << 1 | bit;
            ++at_;
        }
        return value;
    }

    void skip(size_t count) { at_ += count; }

    uint32_t exp_golomb() {
        int zeros = 0;
        while (zeros < 31 && inside() && bits(1) == 0) ++zeros;
        return (1U << zeros) - 1 + bits(zeros);
    }

    bool inside() const { return at_ < bytes_.size() * 8; }

  private:
    std::vector<uint8_t> bytes_;
    size_t at_ = 0;
};

std::optional<PictureSize> check(const BitReader& reader, uint64_t width, uint64_t height) {
    if (!reader.inside() || width == 0 || height == 0 || width > 0xFFFF || height > 0xFFFF)
        return std::nullopt;
    return PictureSize{static_cast<uint16_t>(width), static_cast<uint16_t>(height)};
}

// The cropping of one direction, at most as much as there is to crop.
uint64_t crop_size(uint64_t size, uint64_t crop) {
    return crop < size ? size - crop : 0;
}

void skip_scaling_lists(BitReader& reader, int count) {
    for (int list = 0; list < count; ++list) {
        if (reader.bits(1) == 0) continue;
        int last = 8;
        int next = 8;
        for (int i = 0; i < (list < 6 ? 16 : 64) && reader.inside(); ++i) {
            if (next != 0) {
                const uint32_t code = reader.exp_golomb();
                const int delta =
                    code % 2 != 0 ? static_cast<int>(code / 2 + 1) : -static_cast<int>(code / 2);
                next = (last + delta + 256) % 256;
            }
            last = next == 0 ? last : next;
        }
    }
}

bool has_chroma_format(uint32_t profile) {
    for (const uint32_t high : {100U, 110U, 122U, 244U, 44U, 83U, 86U, 118U, 128U, 138U, 139U, 134U, 135U}) {
        if (profile == high) return true;
    }
    return false;
}

std::optional<PictureSize> read_h264_set(std::span<const uint8_t> nal) {
    BitReader reader(nal);
    reader.skip(8);
    const uint32_t profile = reader.bits(8);
    reader.skip(16);
    reader.exp_golomb();  // set id
    uint32_t chroma = 1;
    if (has_chroma_format(profile)) {
        chroma = reader.exp_golomb();
        if (chroma == 3) reader.skip(1);
        reader.exp_golomb();
        reader.exp_golomb();
        reader.skip(1);
        if (reader.bits(1) != 0) skip_scaling_lists(reader, chroma == 3 ? 12 : 8);
    }
    reader.exp_golomb();  // log2_max_frame_num
    const uint32_t order_type = reader.exp_golomb();
    if (order_type == 0) {
        reader.exp_golomb();
    } else if (order_type == 1) {
        reader.skip(1);
        reader.exp_golomb();
        reader.exp_golomb();
        for (uint32_t left = reader.exp_golomb(); left > 0 && reader.inside(); --left) reader.exp_golomb();
    }
    reader.exp_golomb();  // reference frames
    reader.skip(1);
    const uint64_t width = (uint64_t{reader.exp_golomb()} + 1) * 16;
    const uint64_t map_units = uint64_t{reader.exp_golomb()} + 1;
    const uint32_t frames_only = reader.bits(1);
    const uint64_t height = map_units * 16 * (2 - frames_only);
    if (frames_only == 0) reader.skip(1);
    reader.skip(1);
    if (reader.bits(1) == 0) return check(reader, width, height);
    const uint64_t unit_x = chroma == 1 || chroma == 2 ? 2 : 1;
    const uint64_t unit_y = (chroma == 1 ? 2 : 1) * (2 - frames_only);
    uint64_t crop[4];  // left, right, top, bottom
    for (uint64_t& side : crop) side = reader.exp_golomb();
    return check(reader, crop_size(width, (crop[0] + crop[1]) * unit_x),
                 crop_size(height, (crop[2] + crop[3]) * unit_y));
}

// The general part takes 96 bits, then each sub-layer says which of its two parts it brings.
void skip_profile_tier_level(BitReader& reader, uint32_t sub_layers) {
    reader.skip(96);
    if (sub_layers == 0) return;
    bool profile[8];
    bool level[8];
    for (uint32_t i = 0; i < 8; ++i) {
        profile[i] = reader.bits(1) != 0 && i < sub_layers;
        level[i] = reader.bits(1) != 0 && i < sub_layers;
    }
    for (uint32_t i = 0; i < sub_layers; ++i) reader.skip((profile[i] ? 88 : 0) + (level[i] ? 8 : 0));
}

std::optional<PictureSize> read_h265_set(std::span<const uint8_t> nal) {
    BitReader reader(nal);
    reader.skip(16 + 4);
    const uint32_t sub_layers = reader.bits(3);
    reader.skip(1);
    skip_profile_tier_level(reader, sub_layers);
    reader.exp_golomb();  // set id
    const uint32_t chroma = reader.exp_golomb();
    if (chroma == 3) reader.skip(1);
    const uint64_t width = reader.exp_golomb();
    const uint64_t height = reader.exp_golomb();
    if (reader.bits(1) == 0) return check(reader, width, height);
    uint64_t crop[4];  // left, right, top, bottom
    for (uint64_t& side : crop) side = reader.exp_golomb();
    const uint64_t unit_x = chroma == 1 || chroma == 2 ? 2 : 1;
    const uint64_t unit_y = chroma == 1 ? 2 : 1;
    return check(reader, crop_size(width, (crop[0] + crop[1]) * unit_x),
                 crop_size(height, (crop[2] + crop[3]) * unit_y));
}

}  // namespace

std::optional<PictureSize> h264_picture_size(std::span<const uint8_t> stream) {
    for (const NalUnit& nal : find_nal_units(stream)) {
        const auto bytes = stream.subspan(nal.body, nal.end - nal.body);
        if (!bytes.empty() && (bytes[0] & 0x1F) == 7) return read_h264_set(bytes);
    }
    return std::nullopt;
}

std::optional<PictureSize> h265_picture_size(std::span<const uint8_t> stream) {
    for (const NalUnit& nal : find_nal_units(stream)) {
        const auto bytes = stream.subspan(nal.body, nal.end - nal.body);
        if (!bytes.empty() && (bytes[0] >> 1 & 0x3F) == 33) return read_h265_set(bytes);
    }
    return std::nullopt;
}

std::optional<PictureSize> jpeg_picture_size(std::span<const uint8_t> stream) {
    size_t at = 2;
    while (at + 9 <= stream.size() && stream[at] == 0xFF) {
        const uint8_t marker = stream[at + 1];
        const bool frame_header =
            marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        const auto number = [&](size_t offset) {
            return static_cast<uint16_t>(stream[at + offset] << 8 | stream[at + offset + 1]);
        };
        if (frame_header) return PictureSize{.width = number(7), .height = number(5)};
        at += 2 + number(2);
    }
    return std::nullopt;
}

}  // namespace lenswire::camera
