// The camera's cipher and its check of a login, against bytes computed elsewhere.
#include "camera/wire/login.h"

#include <gtest/gtest.h>

#include "camera/wire/des.h"
#include "support/camera_bytes.h"

namespace lenswire::test {
namespace {

using camera::DesBlock;
using camera::LoginVerdict;

Bytes hex(const std::string& text) {
    Bytes bytes;
    for (size_t at = 0; at < text.size(); at += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

DesBlock block(const std::string& text) {
    DesBlock block;
    std::ranges::copy(hex(text), block.begin());
    return block;
}

TEST(Cipher, KnownBlocksEncryptAndDecrypt) {
    const char* const cases[][3] = {
        // key, clear, encrypted
        {"133457799bbcdff1", "0123456789abcdef", "85e813540f0ab405"},
        {"0e329232ea6d0d73", "8787878787878787", "0000000000000000"},
        {"ffffffffffffffff", "ffffffffffffffff", "7359b2163e4edc58"},
        {"3000000000000000", "1000000000000001", "958e6e627a05557b"},
        {"7ca110454a1a6e57", "01a1d6d039776742", "690f5b0d9a26939b"},
    };
    for (const auto& [key, clear, cipher] : cases) {
        EXPECT_EQ(camera::des_encrypt(block(clear), block(key)), block(cipher));
        EXPECT_EQ(camera::des_decrypt(block(cipher), block(key)), block(clear));
    }
}

// Logins of "admin" for the serial number a1b2c3d4e5f60718, encrypted with another program.
TEST(LoginCheck, JudgesRecordsComputedElsewhere) {
    const std::string proof = "281929bd786ccc25", wrong_proof = "281929bd786ccc24";
    const std::string sesame = "3886f0a60ebb47c09554bb7fb9c421265ffe00094cca91bc5ffe00094cca91bc";
    const std::string thirty_two = "eb7c25345ab4a7655bda92b8adbf28682f3d09f68e0846782177adb8105557d8";
    const struct {
        std::string record_password, record_proof, user, password;
        LoginVerdict verdict;
    } cases[] = {
        {sesame, proof, "admin", "sesame-street-77", LoginVerdict::kAccepted},
        {sesame, proof, "admin", "sesame-street-7", LoginVerdict::kWrongPassword},
        {sesame, proof, "admin", "sesame-street-777", LoginVerdict::kWrongPassword},
        {sesame, proof, "root", "sesame-street-77", LoginVerdict::kWrongUser},
        {sesame, wrong_proof, "admin", "sesame-street-77", LoginVerdict::kWrongProof},
        {sesame, proof + "00", "admin", "sesame-street-77", LoginVerdict::kMalformed},
        {sesame, "281929bd786ccc", "admin", "sesame-street-77", LoginVerdict::kMalformed},
        // A password that fills its field has no NUL.
        {thirty_two, proof, "admin", "0123456789abcdefghijklmnopqrstuv", LoginVerdict::kAccepted},
    };
    for (const auto& each : cases) {
        const Bytes record =
            bytes_of("admin") + Bytes(27) + hex(each.record_password) + Bytes(4) + hex(each.record_proof);
        EXPECT_EQ(camera::check_login(record, block("a1b2c3d4e5f60718"), each.user, each.password),
                  each.verdict)
            << each.user << " " << each.password;
    }
}

}  // namespace
}  // namespace lenswire::test
