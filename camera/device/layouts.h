// How the simulated camera lays out its settings. Where the protocol leaves a record to host and camera, the
// layout is this camera's own; bytes that no field names are kept as they come.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "camera/wire/bytes.h"
#include "camera/wire/message.h"

namespace lenswire::camera {

enum class FieldType { kU8, kU16, kU32, kText, kAddress, kHex };

struct Field {
    const char* name;
    uint16_t offset;
    FieldType type;
    uint16_t length;  // of texts and hex; the others have their own
};

struct Layout {
    const char* name;
    uint16_t get;  // 0: cannot be read
    uint16_t set;  // 0: cannot be written
    uint16_t size;
    std::span<const Field> fields;
};

// The layout of the record that a command reads, or writes; null for every other command.
const Layout* layout_of_get(uint16_t code);
const Layout* layout_of_set(uint16_t code);

// The named field of a record; the field must exist and be of that kind.
void set_field(Bytes& record, const Layout& layout, std::string_view name, uint32_t value);
void set_field(Bytes& record, const Layout& layout, std::string_view name, const std::string& text);
void set_field(Bytes& record, const Layout& layout, std::string_view name, std::span<const uint8_t> bytes);

// The text in a field with everything that is not printable ASCII replaced.
std::string printable(std::span<const uint8_t> field);

// What a received command says, on one line. Never shows a login's password.
std::string describe(const Command& command);

}  // namespace lenswire::camera
