// The camera's side of the wire, byte by byte: built here from plain numbers, with nothing of the library,
// so that a mistake of the library's cannot hide in its tests.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lenswire::test {

using Bytes = std::vector<uint8_t>;

// A command message as a camera sends or receives it. The sizes of the header may disagree with the
// payload: they go out as given.
struct Message {
    uint16_t flag = 0;
    uint8_t tag1 = 1;
    uint8_t tag2 = 1;
    uint16_t command = 0;
    uint16_t state = 0;
    uint32_t login_id = 0;
    uint32_t buffer_size = 0;
    uint32_t buffer_num = 0;
    Bytes reserved = Bytes(12);
    Bytes payload = {};

    Bytes bytes() const;
};

// A message of one payload buffer, or of none when the payload is empty.
Message command(uint16_t code, Bytes payload = {}, uint16_t state = 0, uint32_t login_id = 0);
// A message whose header says other than its payload holds.
struct Product {
    uint32_t number;
    uint32_t size;
};
Message announcing(uint16_t code, Product product, Bytes payload = {});
// Products above 4064, also such as a 32-bit sum or a signed one would take for small.
inline constexpr Product kOverLong[] = {{1, 4065},         {4065, 1},       {1, 0xFFFFFFE0},
                                        {1, 0xFFFFFFFF},   {1, 0xFFFFFFDF}, {0xFFFF, 0xFFFF},
                                        {0x10001, 0xFFFF}, {2, 0x7FFFFFF0}};
// Reads a header of 32 bytes; the payload is left empty.
Message header_of(const Bytes& bytes);

// A packet of a stream connection.
struct Packet {
    uint16_t flag = 1;
    uint8_t frame_type = 0;
    bool video = true;
    uint8_t codec = 0;
    uint32_t time_stamp = 0;
    uint16_t width = 0;
    uint16_t height = 0;
    uint16_t frame_rate = 0;
    uint16_t attr = 0;
    uint8_t filler = 0;      // in every byte that nobody reads
    uint32_t info_bits = 0;  // bits 1..5 and 28..31 of the info word, which nobody reads
    Bytes payload = {};

    Bytes bytes() const;
};

Bytes operator+(Bytes left, const Bytes& right);
Bytes repeated(uint8_t byte, size_t count);
// Bytes that differ from place to place and from seed to seed.
Bytes pattern(size_t count, uint32_t seed = 1);
Bytes bytes_of(const std::string& text);
// The bytes of a record as they stand.
template <typename T>
Bytes record_bytes(const T& record) {
    const auto* start = reinterpret_cast<const uint8_t*>(&record);
    return Bytes(start, start + sizeof record);
}
Bytes padded(Bytes bytes, size_t size);
// A message in a buffer for the largest one, as the library wants it.
Bytes in_buffer(const Message& message);
uint16_t u16_at(const Bytes& bytes, size_t offset);
uint32_t u32_at(const Bytes& bytes, size_t offset);
void put_u32(Bytes& bytes, size_t offset, uint32_t value);
Bytes slice(const Bytes& bytes, size_t offset, size_t length);

}  // namespace lenswire::test
