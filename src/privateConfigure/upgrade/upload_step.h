// Sending a firmware file: one step of one camera's upload.
#pragma once

#include <cstdint>
#include <cstdio>

namespace lenswire::upgrade {

// The most that a step sends of the file.
constexpr uint32_t kPieceSize = 256 * 1024;

// As upload_process, but never beyond `total` bytes, header included: a file that grew meanwhile stays as
// long as it was announced.
void upload_step(int sock, std::FILE* file, const void* header32, uint32_t total, uint32_t& sent);

}  // namespace lenswire::upgrade
