// A file of camera settings that anybody may have written. Whatever it holds, reading it says what is wrong
// and throws nothing; what is right stays the same when it is written as the program writes it, and read
// again.
#include "recorder/records/settings_file.h"

#include <string>

#include "fuzz/support/target.h"
#include "recorder/records/layouts.h"

namespace lenswire::fuzz {

namespace {

using recorder::Field;
using recorder::FileSetting;
using recorder::NamedField;
using recorder::SettingsFile;

const FileSetting kKnown[] = {
    {"image", &recorder::kImageLayout},       {"osd", &recorder::kOsdLayout},
    {"motion", &recorder::kMotionLayout},     {"cover", &recorder::kCoverLayout},
    {"encoding", &recorder::kEncodingLayout}, {"fish-encoding", &recorder::kFishEncodingLayout}};

SettingsFile parse(std::string_view text) {
    return recorder::parse_settings(text, "fuzz.toml", kKnown);
}

// A camera's record with the file's values in it. A 1 fits every number.
Bytes record_of(const SettingsFile::Table& table, const recorder::Layout& layout) {
    Bytes record(layout.whole_size(), 1);
    for (const NamedField& each : recorder::fields_of(layout)) {
        if (each.field.kind == Field::kText) std::fill_n(&record[each.field.offset], each.field.width, 0);
    }
    for (const SettingsFile::Value& value : table.values)
        recorder::store_value(value.field, value.text, record);
    return record;
}

void check_table(const SettingsFile::Table& table) {
    const auto& known = *std::ranges::find(kKnown, table.setting, &FileSetting::name);
    const Bytes record = record_of(table, *known.layout);
    const std::string text = recorder::settings_table(known, record);
    const SettingsFile again = parse(text);
    require(again.problems.empty() && again.tables.size() == 1, "what is written can be read");
    const Bytes read = record_of(again.tables[0], *known.layout);
    for (const auto& [name, field] : recorder::fields_of(*known.layout)) {
        const bool left_out = text.find("\n# " + name + " is no text") != text.npos;
        require(!left_out || field.kind == Field::kText, "numbers are not left out");
        const auto* at = &record[field.offset];
        require(left_out || std::equal(at, at + field.width, &read[field.offset]), "it reads the same");
    }
}

void check_cruise_line(const CruiseLine& line) {
    const SettingsFile again = parse(recorder::settings_table(line));
    require(again.problems.empty() && again.cruise_lines.size() == 1, "a written line can be read");
    require(std::memcmp(&again.cruise_lines[0], &line, sizeof line) == 0, "a line reads the same");
}

}  // namespace

void run(Input input) {
    const auto bytes = input.rest();
    const SettingsFile file = parse({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    for (const std::string& problem : file.problems)
        require(problem.starts_with("fuzz.toml:"), "a problem names its place");
    for (const SettingsFile::Table& table : file.tables) check_table(table);
    for (const CruiseLine& line : file.cruise_lines) check_cruise_line(line);
}

}  // namespace lenswire::fuzz
