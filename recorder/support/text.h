// Texts from cameras and for terminals, in UTF-8.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "recorder/support/bytes.h"

namespace lenswire::recorder {

// A text up to its NUL; what is no UTF-8 or does not print is '?'.
std::string printable(std::span<const uint8_t> bytes);

// Each line cut to so many characters, with an ellipsis where something is left out.
std::string fit_lines(std::string_view text, size_t columns);

// Filled up with spaces to so many characters.
std::string padded(std::string text, size_t columns);

}  // namespace lenswire::recorder
