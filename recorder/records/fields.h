// Records as named fields: shown, changed by name, and carried unchanged where nothing is known of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "recorder/support/bytes.h"

namespace lenswire::recorder {

// What a number stands for.
struct ValueName {
    int64_t value;
    std::string_view name;
};

struct Field {
    enum Kind { kUnsigned, kSigned, kText, kAddress, kBytes };
    std::string_view name;
    Kind kind;
    size_t offset;
    size_t width;
    // -- Of numbers: the values that have names, and what may be set; all that fits when the range is empty.
    std::span<const ValueName> names = {};
    int64_t lowest = 0;
    int64_t highest = -1;
    // Turns other names for a value into the one in `names`.
    std::string (*spell)(std::string_view text) = nullptr;

    // -- Columns of a row.
    constexpr Field called(std::span<const ValueName> values) const {
        Field field = *this;
        field.names = values;
        return field;
    }
    constexpr Field within(int64_t least, int64_t most) const {
        Field field = *this;
        field.lowest = least;
        field.highest = most;
        return field;
    }
    constexpr Field spelt_by(std::string (*function)(std::string_view text)) const {
        Field field = *this;
        field.spell = function;
        return field;
    }
};

template <typename T>
constexpr Field::Kind kind_of_field() {
    if constexpr (std::is_array_v<T>) {
        return std::is_same_v<std::remove_extent_t<T>, char> ? Field::kText : Field::kBytes;
    } else {
        return std::is_signed_v<T> ? Field::kSigned : Field::kUnsigned;
    }
}

// A row of a field table: the field's name here, and where it stands in the record.
#define LENSWIRE_FIELD(name, record, member)                                                         \
    ::lenswire::recorder::Field {                                                                    \
        name, ::lenswire::recorder::kind_of_field<std::remove_cvref_t<decltype(record{}.member)>>(), \
            offsetof(record, member), sizeof(record{}.member)                                        \
    }

// The same for four bytes that are an IPv4 address.
#define LENSWIRE_ADDRESS_FIELD(name, record, member)                             \
    ::lenswire::recorder::Field {                                                \
        name, ::lenswire::recorder::Field::kAddress, offsetof(record, member), 4 \
    }

// One record, or several of a kind one behind the other, whose fields are then called PREFIX.NAME.
struct Layout {
    std::span<const Field> fields;
    size_t size;                                      // of one record
    std::span<const std::string_view> prefixes = {};  // one per record when there are several

    size_t records() const { return prefixes.empty() ? 1 : prefixes.size(); }
    size_t whole_size() const { return size * records(); }
};

// Every field with its place in the whole, and what lies between them as fields called bytes@OFFSET.
struct NamedField {
    std::string name;
    Field field;
};
std::vector<NamedField> fields_of(const Layout& layout);

// A value as a text: numbers by their name, else in decimal, bytes in hex. Text stops at its NUL; what does
// not print is '?'.
std::string field_text(const Field& field, std::span<const uint8_t> record);

// A table of "name  value" lines, leaving out unnamed bytes that are all zero; or all fields as one object.
std::string record_text(const Layout& layout, std::span<const uint8_t> record);
nlohmann::ordered_json record_json(const Layout& layout, std::span<const uint8_t> record);

// A field's value as JSON.
nlohmann::ordered_json field_json(const Field& field, std::span<const uint8_t> record);

// Puts a value into its place. Throws a bad-input Failure that says what the field takes.
void store_value(const NamedField& field, std::string_view value, std::span<uint8_t> record);

// One NAME=VALUE. Throws a bad-input Failure, with the known names when there is no such field.
const NamedField& apply_assignment(const std::vector<NamedField>& fields, std::string_view assignment,
                                   std::span<uint8_t> record);

}  // namespace lenswire::recorder
