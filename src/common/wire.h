// Bytes become records here and nowhere else: a record is copied in and out of a byte buffer, never
// overlaid on it, so alignment does not matter and no length is left unchecked.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>

#include "lenswire/records.h"

namespace lenswire::wire {

static_assert(std::endian::native == std::endian::little, "wire records are copied as they stand");

// The record at `bytes`; the caller vouches for sizeof(T) readable bytes.
template <typename T>
T load(const void* bytes) {
    static_assert(std::is_trivially_copyable_v<T>);
    T record;
    std::memcpy(&record, bytes, sizeof record);
    return record;
}

// The record at the start of `bytes`; what lies beyond them reads as zero.
template <typename T>
T load_padded(std::span<const uint8_t> bytes) {
    static_assert(std::is_trivially_copyable_v<T>);
    T record{};
    if (!bytes.empty()) std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof record));
    return record;
}

template <typename T>
void store(void* bytes, const T& record) {
    static_assert(std::is_trivially_copyable_v<T>);
    std::memcpy(bytes, &record, sizeof record);
}

inline PrivateCmd load_header(const void* message) {
    return load<PrivateCmd>(message);
}

// The protocol forms the payload length as a 32-bit product, wrapping included.
inline uint32_t payload_length(const PrivateCmd& header) {
    return header.ulBufferNum * header.ulBufferSize;
}

// Header and payload; 64 bits wide, so that a huge payload length never looks small.
inline uint64_t message_length(const PrivateCmd& header) {
    return uint64_t{ARG_HEAD_LEN} + payload_length(header);
}

inline bool is_over_long(const PrivateCmd& header) {
    return message_length(header) > MAX_CMD_SIZE;
}

// The header of every command that this side builds.
inline PrivateCmd command_header(uint16_t command, uint32_t buffer_num, uint32_t buffer_size) {
    PrivateCmd header{};
    header.ucTag1 = 1;
    header.ucTag2 = 1;
    header.usCmd = command;
    header.ulBufferSize = buffer_size;
    header.ulBufferNum = buffer_num;
    return header;
}

// The payload of a whole message, never longer than a message can be.
inline std::span<const uint8_t> payload(const void* message) {
    const PrivateCmd header = load_header(message);
    const auto length = std::min<uint32_t>(payload_length(header), MAX_CMD_SIZE - ARG_HEAD_LEN);
    return {static_cast<const uint8_t*>(message) + ARG_HEAD_LEN, length};
}

}  // namespace lenswire::wire
