#include "recorder/records/fields.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>

#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

uint64_t load_unsigned(std::span<const uint8_t> bytes) {
    uint64_t value = 0;
    for (size_t i = bytes.size(); i-- > 0;) value = value << 8 | bytes[i];
    return value;
}

int64_t load_signed(std::span<const uint8_t> bytes) {
    const unsigned unused = 64 - 8 * static_cast<unsigned>(bytes.size());
    return static_cast<int64_t>(load_unsigned(bytes) << unused) >> unused;
}

std::string load_text(std::span<const uint8_t> bytes) {
    const auto end = std::ranges::find(bytes, uint8_t{0});
    std::string text(bytes.begin(), end);
    std::ranges::replace_if(
        text, [](char c) { return c < 0x20 || c > 0x7E; }, '?');
    return text;
}

std::span<const uint8_t> place(const Field& field, std::span<const uint8_t> record) {
    return record.subspan(field.offset, field.width);
}

bool all_zero(std::span<const uint8_t> bytes) {
    return std::ranges::all_of(bytes, [](uint8_t byte) { return byte == 0; });
}

Failure refused(std::string_view name, const std::string& why) {
    return bad_input(std::string(name) + ": " + why);
}

void store_number(std::string_view name, const Field& field, std::string_view text, std::span<uint8_t> to) {
    int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const unsigned bits = 8 * static_cast<unsigned>(field.width);
    const int64_t highest =
        field.kind == Field::kSigned ? (int64_t{1} << (bits - 1)) - 1 : (int64_t{1} << bits) - 1;
    const int64_t lowest = field.kind == Field::kSigned ? -highest - 1 : 0;
    if (error != std::errc{} || end != text.data() + text.size() || value < lowest || value > highest) {
        throw refused(name,
                      "must be a number from " + std::to_string(lowest) + " to " + std::to_string(highest));
    }
    for (uint8_t& byte : to) {
        byte = static_cast<uint8_t>(value);
        value >>= 8;
    }
}

void store_text(std::string_view name, std::string_view text, std::span<uint8_t> to) {
    if (text.size() > to.size()) {
        throw refused(name, "must not be longer than " + std::to_string(to.size()) + " characters");
    }
    std::ranges::fill(to, uint8_t{0});
    std::ranges::copy(text, to.begin());
}

std::optional<uint8_t> hex_digit(char c) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    const size_t value = kDigits.find(static_cast<char>(std::tolower(static_cast<unsigned char>(c))));
    return value == std::string_view::npos ? std::nullopt : std::optional(static_cast<uint8_t>(value));
}

std::string hex(std::span<const uint8_t> bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

void store_hex(std::string_view name, std::string_view text, std::span<uint8_t> to) {
    Bytes bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        const auto high = hex_digit(text[i]), low = hex_digit(text[i + 1]);
        if (high && low) bytes.push_back(static_cast<uint8_t>(*high << 4 | *low));
    }
    if (text.size() != 2 * to.size() || bytes.size() != to.size()) {
        throw refused(name, "must be " + std::to_string(2 * to.size()) + " hex digits");
    }
    std::ranges::copy(bytes, to.begin());
}

std::string load_address(std::span<const uint8_t> bytes) {
    std::string text;
    for (const uint8_t byte : bytes) text += (text.empty() ? "" : ".") + std::to_string(byte);
    return text;
}

void store_address(std::string_view name, std::string_view text, std::span<uint8_t> to) {
    in_addr address{};
    if (inet_pton(AF_INET, std::string(text).c_str(), &address) != 1) {
        throw refused(name, "must be an IPv4 address");
    }
    std::memcpy(to.data(), &address.s_addr, to.size());
}

nlohmann::ordered_json field_json(const Field& field, std::span<const uint8_t> record) {
    if (field.kind == Field::kUnsigned) return load_unsigned(place(field, record));
    if (field.kind == Field::kSigned) return load_signed(place(field, record));
    return field_text(field, record);
}

void add_gap(size_t from, size_t to, size_t base, std::vector<NamedField>& fields) {
    if (from >= to) return;
    std::string name = "bytes@" + std::to_string(base + from);
    fields.push_back({name, {.name = {}, .kind = Field::kBytes, .offset = base + from, .width = to - from}});
}

// One record's fields in the order of their places, with the gaps between them.
void add_record(const Layout& layout, const std::string& prefix, size_t base,
                std::vector<NamedField>& fields) {
    size_t covered = 0;
    for (const Field& field : layout.fields) {
        add_gap(covered, field.offset, base, fields);
        Field placed = field;
        placed.offset += base;
        fields.push_back({prefix + std::string(field.name), placed});
        covered = std::max(covered, field.offset + field.width);
    }
    add_gap(covered, layout.size, base, fields);
}

std::string known_names(const std::vector<NamedField>& fields) {
    std::string names;
    for (const NamedField& field : fields) names += (names.empty() ? "" : ", ") + field.name;
    return names;
}

}  // namespace

std::vector<NamedField> fields_of(const Layout& layout) {
    std::vector<NamedField> fields;
    if (layout.prefixes.empty()) add_record(layout, "", 0, fields);
    for (size_t i = 0; i < layout.prefixes.size(); ++i) {
        add_record(layout, std::string(layout.prefixes[i]) + ".", i * layout.size, fields);
    }
    return fields;
}

std::string field_text(const Field& field, std::span<const uint8_t> record) {
    const auto bytes = place(field, record);
    switch (field.kind) {
        case Field::kUnsigned:
            return std::to_string(load_unsigned(bytes));
        case Field::kSigned:
            return std::to_string(load_signed(bytes));
        case Field::kText:
            return load_text(bytes);
        case Field::kAddress:
            return load_address(bytes);
        case Field::kBytes:
            break;
    }
    return hex(bytes);
}

std::string record_text(const Layout& layout, std::span<const uint8_t> record) {
    std::string text;
    for (const NamedField& named : fields_of(layout)) {
        const bool unnamed = named.field.name.empty();
        if (unnamed && all_zero(place(named.field, record))) continue;
        std::string line = named.name;
        line.resize(std::max<size_t>(line.size() + 1, 20), ' ');
        text += line + field_text(named.field, record) + "\n";
    }
    return text;
}

nlohmann::ordered_json record_json(const Layout& layout, std::span<const uint8_t> record) {
    nlohmann::ordered_json object = nlohmann::ordered_json::object();
    for (const NamedField& named : fields_of(layout)) object[named.name] = field_json(named.field, record);
    return object;
}

const NamedField& apply_assignment(const std::vector<NamedField>& fields, std::string_view assignment,
                                   std::span<uint8_t> record) {
    const size_t equals = assignment.find('=');
    if (equals == std::string_view::npos) throw refused(assignment, "expected FIELD=VALUE");
    const std::string_view name = assignment.substr(0, equals), value = assignment.substr(equals + 1);
    const auto found = std::ranges::find(fields, name, &NamedField::name);
    if (found == fields.end()) throw refused(name, "no such field; there are " + known_names(fields));
    const auto to = record.subspan(found->field.offset, found->field.width);
    switch (found->field.kind) {
        case Field::kUnsigned:
        case Field::kSigned:
            store_number(name, found->field, value, to);
            break;
        case Field::kText:
            store_text(name, value, to);
            break;
        case Field::kAddress:
            store_address(name, value, to);
            break;
        case Field::kBytes:
            store_hex(name, value, to);
            break;
    }
    return *found;
}

}  // namespace lenswire::recorder
