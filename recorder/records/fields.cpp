#include "recorder/records/fields.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>

#include "recorder/support/failure.h"
#include "recorder/support/text.h"

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

std::span<const uint8_t> place(const Field& field, std::span<const uint8_t> record) {
    return record.subspan(field.offset, field.width);
}

bool all_zero(std::span<const uint8_t> bytes) {
    return std::ranges::all_of(bytes, [](uint8_t byte) { return byte == 0; });
}

Failure refused(std::string_view name, const std::string& why) {
    return bad_input(std::string(name) + ": " + why);
}

// The lowest and the highest value that a field takes.
std::pair<int64_t, int64_t> range_of(const Field& field) {
    if (field.lowest <= field.highest) return {field.lowest, field.highest};
    const unsigned bits = 8 * static_cast<unsigned>(field.width);
    if (field.kind == Field::kUnsigned) return {0, (int64_t{1} << bits) - 1};
    const int64_t highest = (int64_t{1} << (bits - 1)) - 1;
    return {-highest - 1, highest};
}

const ValueName* name_of(const Field& field, int64_t value) {
    const auto found = std::ranges::find(field.names, value, &ValueName::value);
    return found != field.names.end() ? &*found : nullptr;
}

// "on, off, or a number from 0 to 255"
std::string values_text(const Field& field) {
    constexpr size_t kMostNames = 12;
    std::string text;
    for (const ValueName& each : field.names.first(std::min(field.names.size(), kMostNames)))
        text += std::string(each.name) + ", ";
    if (field.names.size() > kMostNames) text += "..., ";
    const auto [lowest, highest] = range_of(field);
    return text + (text.empty() ? "" : "or ") + "a number from " + std::to_string(lowest) + " to " +
           std::to_string(highest);
}

int64_t number_of(std::string_view name, const Field& field, std::string_view text) {
    const std::string spelt = field.spell != nullptr ? field.spell(text) : std::string(text);
    const auto named = std::ranges::find(field.names, spelt, &ValueName::name);
    if (named != field.names.end()) return named->value;
    int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const auto [lowest, highest] = range_of(field);
    const bool number = error == std::errc{} && end == text.data() + text.size();
    if (number && value >= lowest && value <= highest) return value;
    throw refused(name, "must be " + values_text(field));
}

void store_number(std::string_view name, const Field& field, std::string_view text, std::span<uint8_t> to) {
    int64_t value = number_of(name, field, text);
    for (uint8_t& byte : to) {
        byte = static_cast<uint8_t>(value);
        value >>= 8;
    }
}

void store_text(std::string_view name, std::string_view text, std::span<uint8_t> to) {
    if (text.size() > to.size()) {
        throw refused(name, "must not be longer than " + std::to_string(to.size()) + " bytes");
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

int64_t load_number(const Field& field, std::span<const uint8_t> bytes) {
    return field.kind == Field::kSigned ? load_signed(bytes) : static_cast<int64_t>(load_unsigned(bytes));
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
        case Field::kSigned: {
            const int64_t value = load_number(field, bytes);
            const ValueName* name = name_of(field, value);
            return name != nullptr ? std::string(name->name) : std::to_string(value);
        }
        case Field::kText:
            return printable(bytes);
        case Field::kAddress:
            return load_address(bytes);
        case Field::kBytes:
            break;
    }
    return hex(bytes);
}

nlohmann::ordered_json field_json(const Field& field, std::span<const uint8_t> record) {
    if (field.kind != Field::kUnsigned && field.kind != Field::kSigned) return field_text(field, record);
    const int64_t value = load_number(field, place(field, record));
    const ValueName* name = name_of(field, value);
    if (name != nullptr) return name->name;
    return value;
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
    store_value(*found, value, record);
    return *found;
}

void store_value(const NamedField& named, std::string_view value, std::span<uint8_t> record) {
    const Field& field = named.field;
    const auto to = record.subspan(field.offset, field.width);
    switch (field.kind) {
        case Field::kUnsigned:
        case Field::kSigned:
            return store_number(named.name, field, value, to);
        case Field::kText:
            return store_text(named.name, value, to);
        case Field::kAddress:
            return store_address(named.name, value, to);
        case Field::kBytes:
            return store_hex(named.name, value, to);
    }
}

}  // namespace lenswire::recorder
