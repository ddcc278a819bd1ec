#include "camera/wire/des.h"

#include <algorithm>
#include <span>

namespace lenswire::camera {
namespace {

// The tables of FIPS 46-3. Bits are counted from 1, the most significant one first.
constexpr uint8_t kInitialPermutation[] = {58, 50, 42, 34, 26, 18, 10, 2, 60, 52, 44, 36, 28, 20, 12, 4,
                                           62, 54, 46, 38, 30, 22, 14, 6, 64, 56, 48, 40, 32, 24, 16, 8,
                                           57, 49, 41, 33, 25, 17, 9,  1, 59, 51, 43, 35, 27, 19, 11, 3,
                                           61, 53, 45, 37, 29, 21, 13, 5, 63, 55, 47, 39, 31, 23, 15, 7};
constexpr uint8_t kExpansion[] = {32, 1,  2,  3,  4,  5,  4,  5,  6,  7,  8,  9,  8,  9,  10, 11,
                                  12, 13, 12, 13, 14, 15, 16, 17, 16, 17, 18, 19, 20, 21, 20, 21,
                                  22, 23, 24, 25, 24, 25, 26, 27, 28, 29, 28, 29, 30, 31, 32, 1};
constexpr uint8_t kRoundPermutation[] = {16, 7, 20, 21, 29, 12, 28, 17, 1,  15, 23, 26, 5,  18, 31, 10,
                                         2,  8, 24, 14, 32, 27, 3,  9,  19, 13, 30, 6,  22, 11, 4,  25};
constexpr uint8_t kKeyChoice[] = {57, 49, 41, 33, 25, 17, 9,  1,  58, 50, 42, 34, 26, 18, 10, 2,  59, 51, 43,
                                  35, 27, 19, 11, 3,  60, 52, 44, 36, 63, 55, 47, 39, 31, 23, 15, 7,  62, 54,
                                  46, 38, 30, 22, 14, 6,  61, 53, 45, 37, 29, 21, 13, 5,  28, 20, 12, 4};
constexpr uint8_t kRoundKeyChoice[] = {14, 17, 11, 24, 1,  5,  3,  28, 15, 6,  21, 10, 23, 19, 12, 4,
                                       26, 8,  16, 7,  27, 20, 13, 2,  41, 52, 31, 37, 47, 55, 30, 40,
                                       51, 45, 33, 48, 44, 49, 39, 56, 34, 53, 46, 42, 50, 36, 29, 32};
constexpr uint8_t kKeyShifts[16] = {1, 1, 2, 2, 2, 2, 2, 2, 1, 2, 2, 2, 2, 2, 2, 1};
constexpr uint8_t kBoxes[8][64] = {
    {14, 4,  13, 1, 2,  15, 11, 8, 3, 10, 6, 12, 5,  9,  0,  7,  0,  15, 7,  4,  14, 2,
     13, 1,  10, 6, 12, 11, 9,  5, 3, 8,  4, 1,  14, 8,  13, 6,  2,  11, 15, 12, 9,  7,
     3,  10, 5,  0, 15, 12, 8,  2, 4, 9,  1, 7,  5,  11, 3,  14, 10, 0,  6,  13},
    {15, 1,  8,  14, 6,  11, 3,  4, 9,  7,  2, 13, 12, 0,  5,  10, 3,  13, 4,  7, 15, 2,
     8,  14, 12, 0,  1,  10, 6,  9, 11, 5,  0, 14, 7,  11, 10, 4,  13, 1,  5,  8, 12, 6,
     9,  3,  2,  15, 13, 8,  10, 1, 3,  15, 4, 2,  11, 6,  7,  12, 0,  5,  14, 9},
    {10, 0,  9,  14, 6, 3,  15, 5,  1,  13, 12, 7, 11, 4,  2,  8,  13, 7, 0,  9, 3, 4,
     6,  10, 2,  8,  5, 14, 12, 11, 15, 1,  13, 6, 4,  9,  8,  15, 3,  0, 11, 1, 2, 12,
     5,  10, 14, 7,  1, 10, 13, 0,  6,  9,  8,  7, 4,  15, 14, 3,  11, 5, 2,  12},
    {7, 13, 14, 3, 0, 6,  9, 10, 1,  2, 8,  5, 11, 12, 4,  15, 13, 8,  11, 5, 6, 15,
     0, 3,  4,  7, 2, 12, 1, 10, 14, 9, 10, 6, 9,  0,  12, 11, 7,  13, 15, 1, 3, 14,
     5, 2,  8,  4, 3, 15, 0, 6,  10, 1, 13, 8, 9,  4,  5,  11, 12, 7,  2,  14},
    {2,  12, 4, 1,  7,  10, 11, 6, 8, 5,  3, 15, 13, 0,  14, 9,  14, 11, 2,  12, 4,  7,
     13, 1,  5, 0,  15, 10, 3,  9, 8, 6,  4, 2,  1,  11, 10, 13, 7,  8,  15, 9,  12, 5,
     6,  3,  0, 14, 11, 8,  12, 7, 1, 14, 2, 13, 6,  15, 0,  9,  10, 4,  5,  3},
    {12, 1,  10, 15, 9,  2,  6, 8,  0, 13, 3,  4,  14, 7,  5, 11, 10, 15, 4, 2, 7, 12,
     9,  5,  6,  1,  13, 14, 0, 11, 3, 8,  9,  14, 15, 5,  2, 8,  12, 3,  7, 0, 4, 10,
     1,  13, 11, 6,  4,  3,  2, 12, 9, 5,  15, 10, 11, 14, 1, 7,  6,  0,  8, 13},
    {4, 11, 2,  14, 15, 0,  8,  13, 3, 12, 9,  7, 5,  10, 6,  1,  13, 0,  11, 7,  4, 9,
     1, 10, 14, 3,  5,  12, 2,  15, 8, 6,  1,  4, 11, 13, 12, 3,  7,  14, 10, 15, 6, 8,
     0, 5,  9,  2,  6,  11, 13, 8,  1, 4,  10, 7, 9,  5,  0,  15, 14, 2,  3,  12},
    {13, 2, 8,  4, 6, 15, 11, 1,  10, 9,  3, 14, 5,  0,  12, 7,  1,  15, 13, 8, 10, 3,
     7,  4, 12, 5, 6, 11, 0,  14, 9,  2,  7, 11, 4,  1,  9,  12, 14, 2,  0,  6, 10, 13,
     15, 3, 5,  8, 2, 1,  14, 7,  4,  10, 8, 13, 15, 12, 9,  0,  3,  5,  6,  11}};

// The bits of a `width`-bit value that a table names, packed in the order in which it names them.
uint64_t choose(uint64_t value, int width, std::span<const uint8_t> table) {
    uint64_t chosen = 0;
    for (const uint8_t bit : table) chosen = chosen << 1 | (value >> (width - bit) & 1);
    return chosen;
}

// The final permutation is the initial one undone.
uint64_t final_permutation(uint64_t value) {
    uint64_t result = 0;
    for (int i = 0; i < 64; ++i) result |= (value >> (63 - i) & 1) << (64 - kInitialPermutation[i]);
    return result;
}

std::array<uint64_t, 16> round_keys(uint64_t key) {
    const uint64_t chosen = choose(key, 64, kKeyChoice);
    auto left = static_cast<uint32_t>(chosen >> 28);
    auto right = static_cast<uint32_t>(chosen & 0x0FFFFFFF);
    const auto rotate = [](uint32_t half, int by) { return (half << by | half >> (28 - by)) & 0x0FFFFFFF; };
    std::array<uint64_t, 16> keys{};
    for (int round = 0; round < 16; ++round) {
        left = rotate(left, kKeyShifts[round]);
        right = rotate(right, kKeyShifts[round]);
        keys[round] = choose(static_cast<uint64_t>(left) << 28 | right, 56, kRoundKeyChoice);
    }
    return keys;
}

uint32_t round_function(uint32_t half, uint64_t key) {
    const uint64_t mixed = choose(half, 32, kExpansion) ^ key;
    uint32_t substituted = 0;
    for (int box = 0; box < 8; ++box) {
        const auto six = static_cast<unsigned>(mixed >> (42 - 6 * box) & 0x3F);
        const unsigned row = (six >> 4 & 2) | (six & 1);
        substituted = substituted << 4 | kBoxes[box][row * 16 + (six >> 1 & 0xF)];
    }
    return static_cast<uint32_t>(choose(substituted, 32, kRoundPermutation));
}

uint64_t to_number(const DesBlock& block) {
    uint64_t number = 0;
    for (const uint8_t byte : block) number = number << 8 | byte;
    return number;
}

DesBlock to_block(uint64_t number) {
    DesBlock block;
    for (int i = 7; i >= 0; --i, number >>= 8) block[i] = static_cast<uint8_t>(number);
    return block;
}

DesBlock run(const DesBlock& block, const std::array<uint64_t, 16>& keys) {
    const uint64_t start = choose(to_number(block), 64, kInitialPermutation);
    auto left = static_cast<uint32_t>(start >> 32);
    auto right = static_cast<uint32_t>(start);
    for (const uint64_t key : keys) {
        const uint32_t next = left ^ round_function(right, key);
        left = right;
        right = next;
    }
    return to_block(final_permutation(static_cast<uint64_t>(right) << 32 | left));
}

}  // namespace

DesBlock des_encrypt(const DesBlock& block, const DesBlock& key) {
    return run(block, round_keys(to_number(key)));
}

DesBlock des_decrypt(const DesBlock& block, const DesBlock& key) {
    auto keys = round_keys(to_number(key));
    std::reverse(keys.begin(), keys.end());
    return run(block, keys);
}

}  // namespace lenswire::camera
