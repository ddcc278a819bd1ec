#include "recorder/support/text.h"

#include <algorithm>

namespace lenswire::recorder {
namespace {

bool continues(uint8_t byte) {
    return (byte & 0xC0) == 0x80;
}

// Bytes of the character that begins a text; 0 when none does. What spells a character longer than need be,
// half of a pair and what is beyond the last character are none.
size_t character_length(std::span<const uint8_t> text) {
    const uint8_t first = text[0];
    if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
    if (!std::ranges::all_of(text.subspan(1, length - 1), continues)) return 0;
    const uint8_t second = text[1];
    const bool too_long = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool no_character = (first == 0xED && second >= 0xA0) || (first == 0xF4 && second >= 0x90);
    const bool control = first == 0xC2 && second < 0xA0;
    return too_long || no_character || control ? 0 : length;
}

size_t characters(std::string_view text) {
    return static_cast<size_t>(
        std::ranges::count_if(text, [](char c) { return !continues(static_cast<uint8_t>(c)); }));
}

std::string fit(std::string_view line, size_t columns) {
    if (columns == 0 || characters(line) <= columns) return std::string(line);
    size_t end = 0;
    for (size_t count = 0; end < line.size(); ++end) {
        if (!continues(static_cast<uint8_t>(line[end])) && ++count == columns) break;
    }
    return std::string(line.substr(0, end)) + "…";
}

}  // namespace

std::string printable(std::span<const uint8_t> bytes) {
    std::string text;
    while (!bytes.empty() && bytes[0] != 0) {
        const size_t length = character_length(bytes);
        if (length == 0) text += '?';
        text.append(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(length));
        bytes = bytes.subspan(std::max<size_t>(length, 1));
    }
    return text;
}

std::string fit_lines(std::string_view text, size_t columns) {
    std::string fitted;
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        fitted += fit(text.substr(0, end), columns);
        if (end < text.size()) fitted += '\n';
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return fitted;
}

std::string padded(std::string text, size_t columns) {
    const size_t have = characters(text);
    if (have < columns) text.append(columns - have, ' ');
    return text;
}

}  // namespace lenswire::recorder
