#include "camera/wire/login.h"

#include <algorithm>
#include <random>

#include "camera/wire/bytes.h"
#include "lenswire/protocol.h"

namespace lenswire::camera {
namespace {

constexpr size_t kUserAt = 0;
constexpr size_t kPasswordAt = 32;
constexpr size_t kTextLength = 32;
constexpr size_t kProofAt = 68;

DesBlock block_at(std::span<const uint8_t> bytes, size_t at) {
    DesBlock block;
    std::copy_n(bytes.begin() + static_cast<ptrdiff_t>(at), block.size(), block.begin());
    return block;
}

std::string decrypt_password(std::span<const uint8_t> payload, const DesBlock& serial) {
    Bytes clear;
    for (size_t at = kPasswordAt; at < kPasswordAt + kTextLength; at += sizeof(DesBlock)) {
        const DesBlock block = des_decrypt(block_at(payload, at), serial);
        clear.insert(clear.end(), block.begin(), block.end());
    }
    return get_text(clear);
}

}  // namespace

DesBlock random_serial() {
    std::random_device random;
    DesBlock serial;
    do {
        for (uint8_t& byte : serial) byte = static_cast<uint8_t>(random());
    } while (std::count(serial.begin(), serial.end(), serial[0]) == 8);
    return serial;
}

uint32_t random_login_id() {
    std::random_device random;
    uint32_t id = 0;
    while (id == 0) id = random();
    return id;
}

LoginVerdict check_login(std::span<const uint8_t> payload, const DesBlock& serial, const std::string& user,
                         const std::string& password) {
    if (payload.size() != LENSWIRE_LOGIN_SIZE) return LoginVerdict::kMalformed;
    if (block_at(payload, kProofAt) != des_encrypt(serial, serial)) return LoginVerdict::kWrongProof;
    if (get_text(payload.subspan(kUserAt, kTextLength)) != user) return LoginVerdict::kWrongUser;
    if (decrypt_password(payload, serial) != password) return LoginVerdict::kWrongPassword;
    return LoginVerdict::kAccepted;
}

}  // namespace lenswire::camera
