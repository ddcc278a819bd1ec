// The camera's cipher and its check of a login, against bytes computed elsewhere, and logins over loopback.
#include "camera/wire/login.h"

#include <gtest/gtest.h>

#include "camera/wire/des.h"
#include "recorder_side.h"

namespace lenswire::test {
namespace {

using camera::DesBlock;
using camera::LoginVerdict;

constexpr DesBlock block(uint64_t value) {
    DesBlock bytes{};
    for (int i = 7; i >= 0; --i, value >>= 8) bytes[i] = static_cast<uint8_t>(value);
    return bytes;
}

Bytes hex(const std::string& text) {
    Bytes bytes;
    for (size_t at = 0; at < text.size(); at += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

TEST(Cipher, KnownBlocksEncryptAndDecrypt) {
    const struct {
        uint64_t key, clear, cipher;
    } cases[] = {
        {0x133457799BBCDFF1, 0x0123456789ABCDEF, 0x85E813540F0AB405},
        {0x0E329232EA6D0D73, 0x8787878787878787, 0x0000000000000000},
        {0xFFFFFFFFFFFFFFFF, 0xFFFFFFFFFFFFFFFF, 0x7359B2163E4EDC58},
        {0x3000000000000000, 0x1000000000000001, 0x958E6E627A05557B},
        {0x7CA110454A1A6E57, 0x01A1D6D039776742, 0x690F5B0D9A26939B},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(camera::des_encrypt(block(each.clear), block(each.key)), block(each.cipher));
        EXPECT_EQ(camera::des_decrypt(block(each.cipher), block(each.key)), block(each.clear));
    }
}

// A login record for the serial number A1 B2 C3 D4 E5 F6 07 18, encrypted with another program.
constexpr DesBlock kSerial = block(0xA1B2C3D4E5F60718);
const std::string kProof = "281929bd786ccc25";
const std::string kSesame77 = "3886f0a60ebb47c09554bb7fb9c421265ffe00094cca91bc5ffe00094cca91bc";
const std::string kThirtyTwo = "eb7c25345ab4a7655bda92b8adbf28682f3d09f68e0846782177adb8105557d8";

Bytes login_record(const std::string& user, const std::string& password_hex, const std::string& proof_hex) {
    Bytes field = bytes_of(user);
    field.resize(32);
    return field + hex(password_hex) + repeated(0, 4) + hex(proof_hex);
}

TEST(LoginCheck, JudgesRecordsComputedElsewhere) {
    const Bytes good = login_record("admin", kSesame77, kProof);
    const auto judge = [](const Bytes& record, const std::string& user, const std::string& password) {
        return camera::check_login(record, kSerial, user, password);
    };
    EXPECT_EQ(judge(good, "admin", "sesame-street-77"), LoginVerdict::kAccepted);
    EXPECT_EQ(judge(good, "admin", "sesame-street-7"), LoginVerdict::kWrongPassword);
    EXPECT_EQ(judge(good, "admin", "sesame-street-777"), LoginVerdict::kWrongPassword);
    EXPECT_EQ(judge(good, "root", "sesame-street-77"), LoginVerdict::kWrongUser);
    EXPECT_EQ(judge(login_record("admin", kSesame77, "281929bd786ccc24"), "admin", "sesame-street-77"),
              LoginVerdict::kWrongProof);
    EXPECT_EQ(judge(slice(good, 0, 75), "admin", "sesame-street-77"), LoginVerdict::kMalformed);
    EXPECT_EQ(judge(login_record("admin", kThirtyTwo, kProof), "admin", "0123456789abcdefghijklmnopqrstuv"),
              LoginVerdict::kAccepted)
        << "a password that fills its field has no NUL";
}

TEST(Login, GivesEachConnectionItsOwnIdentifier) {
    OneCamera one;
    const Session first = log_in(*one);
    const Session second = log_in(*one);
    EXPECT_EQ(first.state, 0);
    EXPECT_NE(first.login_id, 0U);
    EXPECT_NE(first.login_id, second.login_id);
    EXPECT_EQ(one->stats().control_open, 2U);
}

TEST(Login, RefusesWrongCredentialsAndRecordsWithoutASerial) {
    OneCamera one({.user = "operator", .password = "right"});
    EXPECT_NE(log_in(*one, "operator", "wrong").state, 0);
    EXPECT_NE(log_in(*one, "admin", "right").state, 0);
    Wire wire = connect_to(*one);
    wire.sends(command(0x0000, login_record("operator", kSesame77, kProof)));
    EXPECT_NE(wire.reads_command().state, 0);
    EXPECT_EQ(one->stats().refused_logins, 3U);
    EXPECT_EQ(log_in(*one, "operator", "right").state, 0);
}

TEST(Login, CommandsAndStreamsNeedItsIdentifier) {
    OneCamera one(small_streams());
    Session session = log_in(*one);
    ++session.login_id;
    EXPECT_NE(session.asks(0x1004, Bytes(36)).state, 0);
    Wire stream = connect_to(*one);
    stream.sends(command(0x0102, Bytes(4), 0, session.login_id));
    EXPECT_NE(stream.reads_command().state, 0);
    EXPECT_EQ(one->stats().wrong_login_ids, 2U);
    EXPECT_EQ(one->stats().streams_open, 0U);
    --session.login_id;
    EXPECT_EQ(session.asks(0x1004, Bytes(36)).state, 0);
    EXPECT_EQ(one->stats().wrong_login_ids, 2U);
}

TEST(Login, AnIdentifierEndsWithItsConnection) {
    OneCamera one(small_streams());
    Session gone = log_in(*one);
    gone.wire.closes();
    ASSERT_TRUE(one->wait([](const camera::CameraStats& stats) { return stats.control_open == 0; }));
    Wire stream = connect_to(*one);
    stream.sends(command(0x0102, Bytes(4), 0, gone.login_id));
    EXPECT_NE(stream.reads_command().state, 0);
}

}  // namespace
}  // namespace lenswire::test
