#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "lenswire/cipher.h"

namespace {

using Block = std::array<uint8_t, 8>;

Block block_of(uint64_t value) {
    Block block;
    for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<uint8_t>(value >> (56 - 8 * i));
    return block;
}

uint64_t value_of(const uint8_t* block) {
    uint64_t value = 0;
    for (int i = 0; i < 8; ++i) value = value << 8 | block[i];
    return value;
}

uint64_t des(uint64_t source, uint64_t key, int mode) {
    Block result{};
    PP_Des(block_of(source).data(), block_of(key).data(), result.data(), mode);
    return value_of(result.data());
}

constexpr uint64_t kKey = 0x133457799BBCDFF1;

// 300 times over, the last block and the one before are the next block and its key: every entry of every
// S-box has its part in the end.
TEST(Des, AChainOfBlocksEndsWhereAnotherProgramsDoesAndLeadsBack) {
    uint64_t key = kKey, block = 0x0123456789ABCDEF;
    for (int i = 0; i < 300; ++i) {
        const uint64_t next = des(block, key, 0);
        ASSERT_EQ(des(next, key, 1), block);
        key = std::exchange(block, next);
    }
    EXPECT_EQ(block, 0x94E7B23CD2569CAD);
}

TEST(Des, ClearsTheIndexAtEveryBlockAndEveryDecode) {
    g_index = 7;
    des(1, kKey, 0);
    EXPECT_EQ(g_index, 0);
    g_index = 7;
    PP_DES_Decode(nullptr, nullptr, nullptr, 8);
    EXPECT_EQ(g_index, 0);
    g_index = 7;
    PP_DES_Encode(nullptr, nullptr, nullptr, 8);
    EXPECT_EQ(g_index, 7);
}

TEST(DesBuffers, ProcessWholeBlocksAndNothingBeyond) {
    constexpr std::pair<int, size_t> kLengths[] = {{-8, 0}, {-3, 0}, {0, 0},   {1, 8},
                                                   {8, 8},  {9, 16}, {16, 16}, {17, 24}};
    const Block key = block_of(kKey);
    for (const auto& [length, touched] : kLengths) {
        std::array<uint8_t, 32> source, buffer;
        for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<uint8_t>(i * 37);
        buffer.fill(0xEE);
        auto expected = buffer, decoded = buffer;
        for (size_t at = 0; at < touched; at += 8) PP_Des(&source[at], key.data(), &expected[at], 0);
        std::copy_n(source.begin(), touched, decoded.begin());
        PP_DES_Encode(buffer.data(), source.data(), key.data(), length);
        EXPECT_EQ(buffer, expected) << length;
        PP_DES_Decode(buffer.data(), buffer.data(), key.data(), length);  // in place
        EXPECT_EQ(buffer, decoded) << length;
    }
}

TEST(DesBuffers, LeaveEverythingAloneWhenAPointerIsMissing) {
    Block bytes = block_of(1);
    PP_DES_Encode(nullptr, bytes.data(), bytes.data(), 8);
    PP_DES_Encode(bytes.data(), nullptr, bytes.data(), 8);
    PP_DES_Encode(bytes.data(), bytes.data(), nullptr, 8);
    PP_DES_Decode(bytes.data(), bytes.data(), nullptr, 8);
    PP_Scramb_Decode(bytes.data(), bytes.data(), nullptr, 8);
    PP_Scramb_Decode(bytes.data(), nullptr, bytes.data(), 8);
    PP_Scramb_Decode(nullptr, bytes.data(), bytes.data(), 8);
    EXPECT_EQ(bytes, block_of(1));
}

TEST(Scramble, RepeatsItsKeyEveryEightBytes) {
    const Block key = block_of(0x1122334455667788);
    const std::vector<uint8_t> source(12, 0xF0);
    std::vector<uint8_t> result(12, 0);
    for (const int length : {10, 0, -1}) PP_Scramb_Decode(result.data(), source.data(), key.data(), length);
    EXPECT_EQ(result,
              (std::vector<uint8_t>{0xE1, 0xD2, 0xC3, 0xB4, 0xA5, 0x96, 0x87, 0x78, 0xE1, 0xD2, 0, 0}));
}

TEST(Scramble, RecoversAKeyHiddenUnderTheFixedOne) {
    Block hidden;
    PP_DES_Encode(hidden.data(), block_of(kKey).data(), reinterpret_cast<const uint8_t*>("58301647"), 8);
    PP_Scramb_GetKey(hidden.data(), hidden.data());
    EXPECT_EQ(hidden, block_of(kKey));
}

std::string bits_of(const uint8_t* buf, size_t n) {
    std::string bits;
    for (size_t i = 0; i < n; ++i) bits += (buf[i / 8] >> (7 - i % 8) & 1) ? '1' : '0';
    return bits;
}

// Every range of two bytes with every shift against a rotation of the same bits as text.
TEST(Bits, RotateWithinTheirRangeOnly) {
    for (int i = 0; i < 16 * 16 * 5; ++i) {
        const int first = i / 80, last = i / 5 % 16, shift = i % 5 - 2, width = last - first + 1;
        if (width < 1) continue;
        uint8_t buf[2] = {0xB4, 0x6D};
        std::string rotated = bits_of(buf, 16);
        std::rotate(rotated.begin() + first, rotated.begin() + first + (shift + 2 * width) % width,
                    rotated.begin() + last + 1);
        move_bits(buf, first, last, shift);
        EXPECT_EQ(bits_of(buf, 16), rotated) << first << ' ' << last << ' ' << shift;
    }
}

TEST(Bits, PermuteIntoTheFirstBitsAndKeepTheRest) {
    const uint8_t source[2] = {0x80, 0x01}, table[] = {16, 2, 1, 15};
    uint8_t result[2] = {0x0F, 0xAA};
    Permutation(source, result, table, 4);
    EXPECT_EQ(bits_of(result, 16), "1010111110101010");
}

TEST(Bits, XorFromTheLastByteToTheFirst) {
    uint8_t buf[3] = {1, 2, 4};
    PP_Xor(buf + 1, buf, 2);  // an overlap shows the order
    PP_Xor(buf, buf + 1, 0);
    EXPECT_EQ(bits_of(buf, 24), "000000010000001100000110");
}

}  // namespace
