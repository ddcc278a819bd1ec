#include "support/camera_bytes.h"

#include <algorithm>

namespace lenswire::test {

namespace {

Bytes little(uint32_t value, size_t width) {
    Bytes bytes(4);
    put_u32(bytes, 0, value);
    bytes.resize(width);
    return bytes;
}

}  // namespace

Bytes Message::bytes() const {
    return little(flag, 2) + Bytes{tag1, tag2} + little(command, 2) + little(state, 2) + little(login_id, 4) +
           little(buffer_size, 4) + little(buffer_num, 4) + reserved + payload;
}

Message command(uint16_t code, Bytes payload, uint16_t state, uint32_t login_id) {
    return {.command = code,
            .state = state,
            .login_id = login_id,
            .buffer_size = static_cast<uint32_t>(payload.size()),
            .buffer_num = payload.empty() ? 0u : 1u,
            .payload = std::move(payload)};
}

Message announcing(uint16_t code, Product product, Bytes payload) {
    Message message = command(code, std::move(payload));
    message.buffer_num = product.number;
    message.buffer_size = product.size;
    return message;
}

Message header_of(const Bytes& bytes) {
    if (bytes.size() < 32) return {};
    return {.flag = u16_at(bytes, 0),
            .tag1 = bytes[2],
            .tag2 = bytes[3],
            .command = u16_at(bytes, 4),
            .state = u16_at(bytes, 6),
            .login_id = u32_at(bytes, 8),
            .buffer_size = u32_at(bytes, 12),
            .buffer_num = u32_at(bytes, 16),
            .reserved = slice(bytes, 20, 12)};
}

Bytes Packet::bytes() const {
    const uint32_t info = info_bits | static_cast<uint32_t>(payload.size()) << 6 | (video ? 1u : 0u);
    return little(flag, 2) + Bytes{filler, frame_type} + little(info, 4) + Bytes{filler, codec} +
           repeated(filler, 6) + little(time_stamp, 4) + little(width, 2) + little(height, 2) +
           little(frame_rate, 2) + little(attr, 2) + repeated(filler, 4) + payload;
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes repeated(uint8_t byte, size_t count) {
    return Bytes(count, byte);
}

Bytes pattern(size_t count, uint32_t seed) {
    Bytes bytes(count);
    uint32_t state = seed * 2654435761u + 1;
    for (uint8_t& byte : bytes) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<uint8_t>(state >> 24);
    }
    return bytes;
}

Bytes bytes_of(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

Bytes padded(Bytes bytes, size_t size) {
    bytes.resize(size);
    return bytes;
}

Bytes in_buffer(const Message& message) {
    return padded(message.bytes(), 4096);
}

uint16_t u16_at(const Bytes& bytes, size_t offset) {
    return static_cast<uint16_t>(bytes.at(offset) | bytes.at(offset + 1) << 8);
}

uint32_t u32_at(const Bytes& bytes, size_t offset) {
    return u16_at(bytes, offset) | static_cast<uint32_t>(u16_at(bytes, offset + 2)) << 16;
}

void put_u32(Bytes& bytes, size_t offset, uint32_t value) {
    for (size_t i = 0; i < 4; ++i) bytes.at(offset + i) = static_cast<uint8_t>(value >> 8 * i);
}

Bytes slice(const Bytes& bytes, size_t offset, size_t length) {
    const size_t begin = std::min(offset, bytes.size());
    const size_t end = std::min(begin + length, bytes.size());
    return Bytes(bytes.begin() + static_cast<long>(begin), bytes.begin() + static_cast<long>(end));
}

}  // namespace lenswire::test
