// Little-endian numbers in byte buffers, as the camera puts them on the wire and finds them there.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <system_error>
#include <vector>

namespace lenswire::camera {

using Bytes = std::vector<uint8_t>;

inline uint16_t get_u16(const uint8_t* at) {
    return static_cast<uint16_t>(at[0] | at[1] << 8);
}

inline uint32_t get_u32(const uint8_t* at) {
    return get_u16(at) | static_cast<uint32_t>(get_u16(at + 2)) << 16;
}

inline void put_u16(uint8_t* at, uint16_t value) {
    at[0] = static_cast<uint8_t>(value);
    at[1] = static_cast<uint8_t>(value >> 8);
}

inline void put_u32(uint8_t* at, uint32_t value) {
    put_u16(at, static_cast<uint16_t>(value));
    put_u16(at + 2, static_cast<uint16_t>(value >> 16));
}

// What went wrong, from errno; safe from any thread.
inline std::string error_text(int reason) {
    return std::error_code(reason, std::generic_category()).message();
}

// The text in a fixed field: up to its first NUL or to the end of the field.
inline std::string get_text(std::span<const uint8_t> field) {
    const auto* text = reinterpret_cast<const char*>(field.data());
    return {text, strnlen(text, field.size())};
}

// Writes a text into a fixed field of zeros, cut so that a NUL always fits behind it.
inline void put_text(std::span<uint8_t> field, const std::string& text) {
    std::memset(field.data(), 0, field.size());
    std::memcpy(field.data(), text.data(), std::min(text.size(), field.size() - 1));
}

}  // namespace lenswire::camera
