#include "recorder/media/h265_sequence.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace lenswire::recorder {
namespace {

constexpr size_t kHeader = 2;  // of a unit, as it stands
constexpr uint32_t kMostSets = 64;
constexpr uint32_t kMostPictures = 32;  // of one set; the standard allows 16

// The bits of a unit without the bytes that keep start codes out of it. Beyond the end it reads zeros.
class Bits {
  public:
    explicit Bits(std::span<const uint8_t> unit) {
        int zeros = 0;
        bytes_.assign(unit.begin(), unit.begin() + static_cast<long>(std::min(unit.size(), kHeader)));
        for (const uint8_t byte : unit.subspan(bytes_.size())) {
            const bool inserted = zeros >= 2 && byte == 3;
            zeros = byte == 0 ? zeros + 1 : 0;
            if (!inserted) bytes_.push_back(byte);
        }
    }

    bool overrun() const { return broken_ || at_ > bytes_.size() * 8; }
    void expect(bool holds) { broken_ = broken_ || !holds; }
    void skip(size_t bits) { at_ += bits; }
    bool flag() {
        const size_t byte = at_ / 8;
        const bool set = byte < bytes_.size() && (bytes_[byte] >> (7 - at_ % 8) & 1) != 0;
        ++at_;
        return set;
    }
    uint32_t number(int bits) {
        uint32_t value = 0;
        for (int i = 0; i < bits; ++i) value = value << 1 | (flag() ? 1 : 0);
        return value;
    }
    // An Exp-Golomb number.
    uint32_t golomb() {
        int zeros = 0;
        while (zeros < 32 && !overrun() && !flag()) ++zeros;
        expect(zeros < 32);
        return overrun() ? 0 : (uint32_t{1} << zeros) - 1 + number(zeros);
    }
    void skip_golombs(int count) {
        for (int i = 0; i < count; ++i) golomb();
    }

  private:
    std::vector<uint8_t> bytes_;
    size_t at_ = 0;
    bool broken_ = false;  // what no set says, and others read as they like
};

void skip_profile(Bits& bits, uint32_t sub_layers) {
    constexpr size_t kProfile = 88, kLevel = 8;
    bits.skip(kProfile + kLevel);
    std::array<bool, 8> profile{}, level{};
    for (uint32_t i = 0; i < sub_layers; ++i) {
        profile[i] = bits.flag();
        level[i] = bits.flag();
    }
    if (sub_layers > 0) bits.skip(2 * size_t{8 - sub_layers});
    for (uint32_t i = 0; i < sub_layers; ++i)
        bits.skip((profile[i] ? kProfile : 0) + (level[i] ? kLevel : 0));
}

void skip_scaling_lists(Bits& bits) {
    for (int size = 0; size < 4; ++size) {
        const int coefficients = size == 0 ? 16 : 64;
        for (int matrix = 0; matrix < 6; matrix += size == 3 ? 3 : 1) {
            bits.flag() ? bits.skip_golombs(coefficients + (size > 1 ? 1 : 0)) : bits.skip_golombs(1);
        }
    }
}

// What stands before the reference picture sets.
void skip_to_reference_sets(Bits& bits) {
    bits.skip(8 * kHeader + 4);
    const uint32_t sub_layers = bits.number(3);
    bits.skip(1);
    skip_profile(bits, sub_layers);
    bits.golomb();
    const uint32_t chroma = bits.golomb();
    bits.expect(chroma <= 3);
    if (chroma == 3) bits.skip(1);  // colour planes apart
    bits.skip_golombs(2);           // the size
    if (bits.flag()) bits.skip_golombs(4);
    bits.skip_golombs(3);
    const uint32_t orders = bits.flag() ? sub_layers + 1 : 1;
    bits.skip_golombs(static_cast<int>(3 * orders));
    bits.skip_golombs(6);
    if (bits.flag() && bits.flag()) skip_scaling_lists(bits);
    bits.skip(2);
    if (!bits.flag()) return;
    bits.skip(8);  // samples as they are
    bits.skip_golombs(2);
    bits.skip(1);
}

// One set; the number of its pictures, which the next one may build on.
uint32_t skip_reference_set(Bits& bits, bool first, uint32_t before) {
    if (!first && bits.flag()) {
        bits.skip(1);
        bits.golomb();
        uint32_t pictures = 0;
        for (uint32_t i = 0; i <= before; ++i) pictures += bits.flag() || bits.flag() ? 1 : 0;
        return pictures;
    }
    const uint32_t negative = bits.golomb(), positive = bits.golomb();
    if (negative > kMostPictures || positive > kMostPictures) return UINT32_MAX;
    for (uint32_t i = 0; i < negative + positive; ++i) {
        bits.golomb();
        bits.skip(1);
    }
    return negative + positive;
}

bool is_whole_sequence(std::span<const uint8_t> unit) {
    Bits bits(unit);
    skip_to_reference_sets(bits);
    const uint32_t sets = bits.golomb();
    if (sets > kMostSets) return false;
    uint32_t pictures = 0;
    for (uint32_t i = 0; i < sets && !bits.overrun(); ++i) {
        pictures = skip_reference_set(bits, i == 0, pictures);
        if (pictures > 2 * kMostPictures) return false;
    }
    return !bits.overrun();
}

}  // namespace

bool are_whole_h265_sequences(std::span<const uint8_t> parameter_sets) {
    constexpr uint8_t kStartCode[] = {0, 0, 1};
    constexpr int kSequence = 33;
    const auto next = [&](auto from) {
        return std::search(from, parameter_sets.end(), std::begin(kStartCode), std::end(kStartCode));
    };
    for (auto start = next(parameter_sets.begin()); start != parameter_sets.end();) {
        const auto unit = start + sizeof kStartCode;
        start = next(unit);
        const bool is_sequence = unit != parameter_sets.end() && (*unit >> 1 & 0x3F) == kSequence;
        if (is_sequence && !is_whole_sequence({unit, start})) return false;
    }
    return true;
}

}  // namespace lenswire::recorder
