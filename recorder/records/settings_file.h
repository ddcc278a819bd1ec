// The settings of a camera as a TOML file: a table for each setting, a [[cruise]] for each cruise line.
//
//     [encoding]
//     main.codec = "h265"
//
//     [[cruise]]
//     line = 1
//     points = ["1:5:64", "2"]
//     enabled = false
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "lenswire/cruise.h"
#include "recorder/records/fields.h"

namespace lenswire::recorder {

// A setting that a file may have.
struct FileSetting {
    std::string_view name;
    const Layout* layout;
};

// What a file says, checked: every value fits its field.
struct SettingsFile {
    struct Value {
        NamedField field;
        std::string text;
        unsigned line = 0;
    };
    struct Table {
        std::string setting;
        std::vector<Value> values;
    };
    std::vector<Table> tables;
    std::vector<CruiseLine> cruise_lines;
    std::vector<std::string> problems;  // each with the file's name and the line; nothing may be used then
};

// Reads a file that anybody may have written. Throws a bad-input Failure when it cannot be read.
SettingsFile read_settings_file(const std::string& path, std::span<const FileSetting> known);

// The same from its text.
SettingsFile parse_settings(std::string_view text, const std::string& path,
                            std::span<const FileSetting> known);

// What a file should say. Where a record was put in by the camera's numbering stays out of it, so that it can
// go to another camera.
std::string settings_table(const FileSetting& setting, std::span<const uint8_t> record);
std::string settings_table(const CruiseLine& line);

}  // namespace lenswire::recorder
