#include "support/camera_bytes.h"

#include <algorithm>

namespace lenswire::test {

namespace {

void add_u16(Bytes& bytes, uint16_t value) {
    bytes.push_back(static_cast<uint8_t>(value));
    bytes.push_back(static_cast<uint8_t>(value >> 8));
}

void add_u32(Bytes& bytes, uint32_t value) {
    add_u16(bytes, static_cast<uint16_t>(value));
    add_u16(bytes, static_cast<uint16_t>(value >> 16));
}

void add(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

}  // namespace

Bytes Message::bytes() const {
    Bytes bytes;
    add_u16(bytes, flag);
    bytes.push_back(tag1);
    bytes.push_back(tag2);
    add_u16(bytes, command);
    add_u16(bytes, state);
    add_u32(bytes, login_id);
    add_u32(bytes, buffer_size);
    add_u32(bytes, buffer_num);
    add(bytes, reserved);
    add(bytes, payload);
    return bytes;
}

Message command(uint16_t code, Bytes payload, uint16_t state, uint32_t login_id) {
    Message message;
    message.command = code;
    message.state = state;
    message.login_id = login_id;
    message.buffer_size = static_cast<uint32_t>(payload.size());
    message.buffer_num = payload.empty() ? 0 : 1;
    message.payload = std::move(payload);
    return message;
}

Message announcing(uint16_t code, Product product, Bytes payload) {
    Message message = command(code, std::move(payload));
    message.buffer_num = product.number;
    message.buffer_size = product.size;
    return message;
}

Message header_of(const Bytes& bytes) {
    Message message;
    if (bytes.size() < 32) return message;
    message.flag = u16_at(bytes, 0);
    message.tag1 = bytes[2];
    message.tag2 = bytes[3];
    message.command = u16_at(bytes, 4);
    message.state = u16_at(bytes, 6);
    message.login_id = u32_at(bytes, 8);
    message.buffer_size = u32_at(bytes, 12);
    message.buffer_num = u32_at(bytes, 16);
    message.reserved = slice(bytes, 20, 12);
    return message;
}

Bytes Packet::bytes() const {
    const auto length = static_cast<uint32_t>(payload.size());
    Bytes bytes;
    add_u16(bytes, flag);
    bytes.push_back(filler);
    bytes.push_back(frame_type);
    add_u32(bytes, info_bits | length << 6 | (video ? 1u : 0u));
    bytes.push_back(filler);
    bytes.push_back(codec);
    add(bytes, repeated(filler, 6));
    add_u32(bytes, time_stamp);
    add_u16(bytes, width);
    add_u16(bytes, height);
    add_u16(bytes, frame_rate);
    add_u16(bytes, attr);
    add(bytes, repeated(filler, 4));
    add(bytes, payload);
    return bytes;
}

Bytes operator+(Bytes left, const Bytes& right) {
    add(left, right);
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
