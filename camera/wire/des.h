// The block cipher of the login, written for the camera alone: the recorder's side has its own, so that a
// mistake in one of the two shows as a refused login.
#pragma once

#include <array>
#include <cstdint>

namespace lenswire::camera {

using DesBlock = std::array<uint8_t, 8>;

DesBlock des_encrypt(const DesBlock& block, const DesBlock& key);
DesBlock des_decrypt(const DesBlock& block, const DesBlock& key);

}  // namespace lenswire::camera
