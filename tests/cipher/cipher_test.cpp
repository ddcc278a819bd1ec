#include <gtest/gtest.h>

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

struct Vector {
    uint64_t key, plain, cipher;
};

// The published substitution-table vectors: together they use every entry of every S-box and both
// permutations of the key; and one worked example.
constexpr Vector kVectors[] = {
    {kKey, 0x0123456789ABCDEF, 0x85E813540F0AB405},
    {0x7CA110454A1A6E57, 0x01A1D6D039776742, 0x690F5B0D9A26939B},
    {0x0131D9619DC1376E, 0x5CD54CA83DEF57DA, 0x7A389D10354BD271},
    {0x07A1133E4A0B2686, 0x0248D43806F67172, 0x868EBB51CAB4599A},
    {0x3849674C2602319E, 0x51454B582DDF440A, 0x7178876E01F19B2A},
    {0x04B915BA43FEB5B6, 0x42FD443059577FA2, 0xAF37FB421F8C4095},
    {0x0113B970FD34F2CE, 0x059B5E0851CF143A, 0x86A560F10EC6D85B},
    {0x0170F175468FB5E6, 0x0756D8E0774761D2, 0x0CD3DA020021DC09},
    {0x43297FAD38E373FE, 0x762514B829BF486A, 0xEA676B2CB7DB2B7A},
    {0x07A7137045DA2A16, 0x3BDD119049372802, 0xDFD64A815CAF1A0F},
    {0x04689104C2FD3B2F, 0x26955F6835AF609A, 0x5C513C9C4886C088},
    {0x37D06BB516CB7546, 0x164D5E404F275232, 0x0A2AEEAE3FF4AB77},
    {0x1F08260D1AC2465E, 0x6B056E18759F5CCA, 0xEF1BF03E5DFA575A},
    {0x584023641ABA6176, 0x004BD6EF09176062, 0x88BF0DB6D70DEE56},
    {0x025816164629B007, 0x480D39006EE762F2, 0xA1F9915541020B56},
    {0x49793EBC79B3258F, 0x437540C8698F3CFA, 0x6FBF1CAFCFFD0556},
    {0x4FB05E1515AB73A7, 0x072D43A077075292, 0x2F22E49BAB7CA1AC},
    {0x49E95D6D4CA229BF, 0x02FE55778117F12A, 0x5A6B612CC26CCE4A},
    {0x018310DC409B26D6, 0x1D9D5C5018F728C2, 0x5F4C038ED12B2E41},
    {0x1C587F1C13924FEF, 0x305532286D6F295A, 0x63FAC0D034D9F793},
};

TEST(Des, MatchesThePublishedVectorsBothWays) {
    for (const Vector& v : kVectors) {
        EXPECT_EQ(des(v.plain, v.key, 0), v.cipher) << std::hex << v.key;
        EXPECT_EQ(des(v.cipher, v.key, 1), v.plain) << std::hex << v.key;
    }
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
    const std::vector<std::pair<int, size_t>> lengths = {{-8, 0}, {-3, 0}, {0, 0},   {1, 8},
                                                         {8, 8},  {9, 16}, {16, 16}, {17, 24}};
    for (const auto& [length, touched] : lengths) {
        std::vector<uint8_t> source(32);
        for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<uint8_t>(i * 37);
        std::vector<uint8_t> expected(32, 0xEE);
        for (size_t at = 0; at < touched; at += 8) {
            PP_Des(&source[at], block_of(kKey).data(), &expected[at], 0);
        }
        std::vector<uint8_t> encoded(32, 0xEE);
        PP_DES_Encode(encoded.data(), source.data(), block_of(kKey).data(), length);
        EXPECT_EQ(encoded, expected) << length;

        std::vector<uint8_t> decoded = encoded;
        PP_DES_Decode(decoded.data(), decoded.data(), block_of(kKey).data(), length);  // in place
        const auto end = static_cast<std::ptrdiff_t>(touched);
        EXPECT_TRUE(std::equal(decoded.begin(), decoded.begin() + end, source.begin())) << length;
        EXPECT_TRUE(std::equal(decoded.begin() + end, decoded.end(), encoded.begin() + end)) << length;
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
    PP_Scramb_Decode(result.data(), source.data(), key.data(), 10);
    const std::vector<uint8_t> expected = {0xE1, 0xD2, 0xC3, 0xB4, 0xA5, 0x96, 0x87, 0x78, 0xE1, 0xD2, 0, 0};
    EXPECT_EQ(result, expected);
    PP_Scramb_Decode(result.data(), source.data(), key.data(), 0);
    PP_Scramb_Decode(result.data(), source.data(), key.data(), -1);
    EXPECT_EQ(result, expected);
}

TEST(Scramble, RecoversAKeyHiddenUnderTheFixedOne) {
    Block hidden;
    PP_DES_Encode(hidden.data(), block_of(kKey).data(), reinterpret_cast<const uint8_t*>("58301647"), 8);
    PP_Scramb_GetKey(hidden.data(), hidden.data());
    EXPECT_EQ(hidden, block_of(kKey));
}

std::string bits_of(const uint8_t* buf, int n) {
    std::string bits;
    for (int i = 0; i < n; ++i) bits += (buf[i / 8] >> (7 - i % 8) & 1) ? '1' : '0';
    return bits;
}

// Every range of two bytes with every shift against a rotation of the same bits as text.
TEST(Bits, RotateWithinTheirRangeOnly) {
    for (int first = 0; first < 16; ++first) {
        for (int last = first; last < 16; ++last) {
            for (int shift = -2; shift <= 2; ++shift) {
                uint8_t buf[2] = {0xB4, 0x6D};
                std::string expected = bits_of(buf, 16);
                const int width = last - first + 1;
                std::string rotated = expected;
                for (int i = 0; i < width; ++i) {
                    rotated[static_cast<size_t>(first + i)] =
                        expected[static_cast<size_t>(first + (i + shift + 2 * width) % width)];
                }
                move_bits(buf, first, last, shift);
                EXPECT_EQ(bits_of(buf, 16), rotated) << first << ' ' << last << ' ' << shift;
            }
        }
    }
}

TEST(Bits, PermuteIntoTheFirstBitsAndKeepTheRest) {
    const uint8_t source[2] = {0x80, 0x01};
    const uint8_t table[] = {16, 2, 1, 15};
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
