// Whole small files, for --raw and --from.
#pragma once

#include <span>
#include <string>

#include "recorder/support/bytes.h"

namespace lenswire::recorder {

// Both throw a bad-input Failure. A file to be read must have exactly `size` bytes.
Bytes read_file(const std::string& path, size_t size);
void write_file(const std::string& path, std::span<const uint8_t> bytes);

}  // namespace lenswire::recorder
