// The camera's side of the login: the serial number that it hands out, and the check of what comes back.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "camera/wire/des.h"

namespace lenswire::camera {

// A new random number for each login exchange; never the same byte eight times.
DesBlock random_serial();
// A random login identifier, never 0.
uint32_t random_login_id();

enum class LoginVerdict {
    kAccepted,
    kMalformed,   // not a login record, or no serial number was asked for before
    kWrongProof,  // the last 8 bytes are not the serial number encrypted under itself
    kWrongUser,
    kWrongPassword
};

// Checks the 76-byte payload of a login request. User and password are compared up to their first NUL.
LoginVerdict check_login(std::span<const uint8_t> payload, const DesBlock& serial, const std::string& user,
                         const std::string& password);

}  // namespace lenswire::camera
