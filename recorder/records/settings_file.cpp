#include "recorder/records/settings_file.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>

#include "recorder/records/cruise_line.h"
#include "recorder/support/failure.h"
#include "recorder/support/text.h"

#define TOML_EXCEPTIONS 0
#define TOML_MAX_NESTED_VALUES 8
// What the parser asserts of a text does not hold of every text ("[=" is one), and is handled behind the
// assertion. With NDEBUG some compilers would take it for true.
#pragma push_macro("NDEBUG")
#undef NDEBUG
#define TOML_ASSERT(expression) static_assert(true)
#include <toml++/toml.h>
#pragma pop_macro("NDEBUG")

namespace lenswire::recorder {
namespace {

constexpr size_t kLargestFile = 1024 * 1024;

constexpr ptrdiff_t kMostDots = 256;  // in a line

// The parser is given ASCII only: of other characters it takes some for white space in an undefined way. They
// stand as ~ and two hex digits for each byte, as ~ itself does; one that is spelt \u007e is not told from
// these.
std::string in_ascii(std::string_view text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string ascii;
    for (const char c : text.substr(text.starts_with("\xEF\xBB\xBF") ? 3 : 0)) {
        const auto byte = static_cast<uint8_t>(c);
        if (byte < '~')
            ascii += c;
        else
            ascii += {'~', kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return ascii;
}

std::string from_ascii(std::string_view ascii) {
    std::string text;
    for (size_t i = 0; i < ascii.size(); ++i) {
        unsigned byte = 0;
        const char* digits = ascii.data() + i + 1;
        const bool stands_for = ascii[i] == '~' && ascii.size() - i > 2 &&
                                std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2;
        text += stands_for ? static_cast<char>(byte) : ascii[i];
        if (stands_for) i += 2;
    }
    return text;
}

// The first line with more dots than names have; 0 if there is none. The parser makes a table of every part
// of a name, and tables within tables need the stack when they go.
unsigned line_of_dots(std::string_view text) {
    for (unsigned line = 1; !text.empty(); ++line) {
        const size_t end = std::min(text.find('\n'), text.size() - 1);
        if (std::ranges::count(text.substr(0, end), '.') > kMostDots) return line;
        text.remove_prefix(end + 1);
    }
    return 0;
}

// The camera's own numbering, not a setting.
bool is_place(const std::string& name) {
    return name == "channel" || name == "stream" || name.ends_with(".channel") || name.ends_with(".stream");
}

bool prints(const std::string& text) {
    return printable(std::span(reinterpret_cast<const uint8_t*>(text.data()), text.size())) == text;
}

class Reader {
  public:
    Reader(const std::string& path, std::span<const FileSetting> known, SettingsFile& file)
        : path_(path), known_(known), file_(file) {}

    void read(const toml::table& root) {
        for (const auto& [key, node] : root) {
            if (key == "cruise") {
                read_cruise_lines(node);
                continue;
            }
            const auto setting = std::ranges::find(known_, key.str(), &FileSetting::name);
            if (setting == known_.end()) {
                problem(key.source(), std::string(key.str()), "no such setting; there are " + known_names());
            } else if (!node.is_table()) {
                problem(key.source(), std::string(key.str()), "must be a table");
            } else {
                read_setting(*setting, *node.as_table());
            }
        }
    }
    void problem(const toml::source_region& where, const std::string& what, const std::string& why) {
        problem(where.begin.line, (what.empty() ? "" : from_ascii(what) + ": ") + why);
    }
    void problem(unsigned line, const std::string& why) {
        file_.problems.push_back(path_ + ":" + std::to_string(line) + ": " + why);
    }

  private:
    void read_setting(const FileSetting& setting, const toml::table& table) {
        SettingsFile::Table values{.setting = std::string(setting.name), .values = {}};
        Bytes trial(setting.layout->whole_size());
        const auto fields = fields_of(*setting.layout);
        read_fields(values, fields, "", table, trial);
        file_.tables.push_back(std::move(values));
    }
    // main.codec may stand as a table in a table.
    void read_fields(SettingsFile::Table& values, const std::vector<NamedField>& fields,
                     const std::string& prefix, const toml::table& table, Bytes& trial) {
        for (const auto& [key, node] : table) {
            const std::string name = prefix + std::string(key.str());
            if (const toml::table* inner = node.as_table()) {
                if (std::ranges::count(name, '.') < 2)
                    read_fields(values, fields, name + ".", *inner, trial);
                else
                    problem(key.source(), name, "no such field");
                continue;
            }
            const auto field = std::ranges::find(fields, name, &NamedField::name);
            if (field == fields.end() || is_place(name)) {
                problem(key.source(), values.setting + "." + name, "no such field");
                continue;
            }
            read_value(values, *field, node, trial);
        }
    }
    void read_value(SettingsFile::Table& values, const NamedField& field, const toml::node& node,
                    Bytes& trial) {
        const std::string what = values.setting + "." + field.name;
        const bool number = field.field.kind == Field::kUnsigned || field.field.kind == Field::kSigned;
        std::string text;
        if (const auto* string = node.as_string()) {
            text = from_ascii(string->get());
        } else if (const auto* integer = node.as_integer(); integer != nullptr && number) {
            text = std::to_string(integer->get());
        } else if (const auto* truth = node.as_boolean(); truth != nullptr && number) {
            text = truth->get() ? "on" : "off";
        } else {
            return problem(node.source(), what, number ? "must be a number or a name" : "must be a text");
        }
        const bool twice = std::ranges::any_of(
            values.values, [&](const SettingsFile::Value& each) { return each.field.name == field.name; });
        if (twice) return problem(node.source(), what, "stands there twice");
        if (field.field.kind == Field::kText && !prints(text))
            return problem(node.source(), what, "must be a text that prints");
        try {
            store_value(field, text, trial);
            values.values.push_back({field, text, node.source().begin.line});
        } catch (const Failure& failure) {
            const std::string why = failure.what();  // begins with the field's name
            problem(node.source(), what, why.substr(std::min(why.size(), field.name.size() + 2)));
        }
    }

    void read_cruise_lines(const toml::node& node) {
        const toml::array* lines = node.as_array();
        if (lines == nullptr || !lines->is_array_of_tables())
            return problem(node.source(), "cruise", "must be tables, each under [[cruise]]");
        for (const auto& each : *lines) read_cruise_line(*each.as_table());
    }
    void read_cruise_line(const toml::table& table) {
        for (const auto& [key, node] : table) {
            if (key != "line" && key != "points" && key != "enabled")
                problem(key.source(), "cruise." + std::string(key.str()), "no such field");
        }
        const auto* line = table["line"].as_integer();
        const auto* points = table["points"].as_array();
        const auto enabled = table["enabled"].value_exact<bool>();
        if (line == nullptr || line->get() < 1 || line->get() > LENSWIRE_CRUISE_LINES)
            return problem(table.source(), "cruise.line", "must be a number from 1 to 3");
        const auto number = static_cast<int>(line->get());
        const bool twice = std::ranges::any_of(
            file_.cruise_lines, [number](const CruiseLine& each) { return each.ucLineNo + 1 == number; });
        if (twice) return problem(line->source(), "cruise.line", "stands there twice");
        if (points == nullptr) return problem(table.source(), "cruise.points", "must be a list of texts");
        if (table.contains("enabled") && !enabled)
            return problem(table["enabled"].node()->source(), "cruise.enabled", "must be true or false");
        std::vector<std::string> texts;
        for (const toml::node& point : *points) {
            const auto* text = point.as_string();
            if (text == nullptr) return problem(point.source(), "cruise.points", "must be a list of texts");
            texts.push_back(from_ascii(text->get()));
        }
        try {
            file_.cruise_lines.push_back(parse_cruise_line(number, texts, enabled.value_or(false)));
        } catch (const Failure& failure) {
            problem(points->source(), "cruise", failure.what());
        }
    }

    std::string known_names() const {
        std::string names;
        for (const FileSetting& each : known_) names += std::string(each.name) + ", ";
        return names + "cruise";
    }

    const std::string& path_;
    std::span<const FileSetting> known_;
    SettingsFile& file_;
};

std::string quoted(const std::string& text) {
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') quoted += '\\';
        quoted += c;
    }
    return quoted + "\"";
}

std::string key_text(const std::string& name) {
    return name.find('@') == name.npos ? name : quoted(name);
}

// Whether the file brings back what the camera has. Bytes that are no text do not come back.
bool comes_back(const NamedField& field, const std::string& text, std::span<const uint8_t> record) {
    if (field.field.kind != Field::kText) return true;
    const auto bytes = record.subspan(field.field.offset, field.field.width);
    return std::ranges::equal(text, std::span(bytes.begin(), std::ranges::find(bytes, uint8_t{0})));
}

}  // namespace

SettingsFile parse_settings(std::string_view text, const std::string& path,
                            std::span<const FileSetting> known) {
    SettingsFile file;
    Reader reader(path, known, file);
    if (const unsigned line = line_of_dots(text); line != 0) {
        reader.problem(line, "has more dots than names have");
        return file;
    }
    const toml::parse_result result = toml::parse(in_ascii(text), path);
    if (result) {
        reader.read(result.table());
    } else {
        reader.problem(result.error().source(), "", from_ascii(result.error().description()));
    }
    return file;
}

SettingsFile read_settings_file(const std::string& path, std::span<const FileSetting> known) {
    std::ifstream stream(path, std::ios::binary);
    std::string text(kLargestFile + 1, '\0');
    stream.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(std::max<std::streamsize>(stream.gcount(), 0)));
    if (stream.bad() || (text.empty() && !stream.eof())) throw bad_input("cannot read " + path);
    if (text.size() > kLargestFile) throw bad_input(path + ": longer than a file of settings may be");
    return parse_settings(text, path, known);
}

std::string settings_table(const FileSetting& setting, std::span<const uint8_t> record) {
    std::string text = "[" + std::string(setting.name) + "]\n";
    for (const NamedField& field : fields_of(*setting.layout)) {
        const auto bytes = record.subspan(field.field.offset, field.field.width);
        const bool empty = std::ranges::all_of(bytes, [](uint8_t byte) { return byte == 0; });
        if (is_place(field.name) || (field.field.name.empty() && empty)) continue;
        const std::string value = field_text(field.field, record);
        if (!comes_back(field, value, record)) {
            text += "# " + field.name + " is no text, and is left out\n";
            continue;
        }
        const bool plain = field_json(field.field, record).is_number();
        text += key_text(field.name) + " = " + (plain ? value : quoted(value)) + "\n";
    }
    return text;
}

std::string settings_table(const CruiseLine& line) {
    std::string text = "[[cruise]]\nline = " + std::to_string(line.ucLineNo + 1) + "\npoints = [";
    std::string separator;
    const auto json = cruise_json(line);
    for (const auto& point : json["points"]) {
        text += separator + "\"" + point["preset"].dump() + ":" + point["time"].dump() + ":" +
                point["speed"].dump() + "\"";
        separator = ", ";
    }
    return text + "]\nenabled = " + (line.ucEnable == 1 ? "true" : "false") + "\n";
}

}  // namespace lenswire::recorder
