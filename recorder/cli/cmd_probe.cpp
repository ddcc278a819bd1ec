// lenswire probe CAMERA...
#include <CLI/CLI.hpp>
#include <algorithm>

#include "recorder/cli/command_line.h"
#include "recorder/session/probe.h"
#include "recorder/support/text.h"

namespace lenswire::recorder {
namespace {

constexpr double kLongest_s = 2;

struct ProbeOptions {
    std::vector<std::string> cameras;
};

std::string field_of(const Layout& layout, const std::string& name, const Bytes& record) {
    const auto fields = fields_of(layout);
    const auto found = std::ranges::find(fields, name, &NamedField::name);
    return record.empty() || found == fields.end() ? "" : field_text(found->field, record);
}

// "h264 1920x1080 25 fps", of each stream that the camera has.
std::vector<std::string> streams_of(const Bytes& encoding) {
    std::vector<std::string> streams;
    if (encoding.empty()) return streams;
    for (const std::string_view stream : kEncodingLayout.prefixes) {
        const auto value = [&](const char* name) {
            return field_of(kEncodingLayout, std::string(stream) + "." + name, encoding);
        };
        if (value("flag") == "off") continue;
        streams.push_back(std::string(stream) + " " + value("codec") + " " + value("width") + "x" +
                          value("height") + " " + value("frame-rate") + " fps");
    }
    return streams;
}

std::string ahead_text(long seconds) {
    if (std::abs(seconds) <= 1) return "right";
    return std::to_string(std::abs(seconds)) + " s " + (seconds > 0 ? "fast" : "slow");
}

std::string line_of(const ProbeResult& result, size_t name_width) {
    std::string line = padded(result.camera.name(), name_width + 2);
    if (result.device.empty())
        return line +
               result.error.substr(result.error.find(result.camera.name()) + result.camera.name().size() + 1);
    line += padded(field_of(kDeviceLayout, "firmware", result.device), 20) + "  clock ";
    line += padded(result.clock_ahead_s ? ahead_text(*result.clock_ahead_s) : "unknown", 9);
    std::string streams;
    for (const std::string& stream : streams_of(result.encoding)) streams += "  " + stream;
    return line + (result.error.empty() ? streams : "  " + result.error);
}

std::string json_of(const ProbeResult& result) {
    nlohmann::ordered_json json = {{"camera", result.camera.name()},
                                   {"answers", result.answers},
                                   {"logged_in", result.logged_in},
                                   {"took_ms", result.took_ms}};
    if (!result.device.empty()) json["device"] = record_json(kDeviceLayout, result.device);
    if (result.clock_ahead_s) json["clock_ahead_seconds"] = *result.clock_ahead_s;
    if (!result.encoding.empty()) json["streams"] = streams_of(result.encoding);
    if (result.code != kDone) json["error"] = {{"code", int{result.code}}, {"message", result.error}};
    return one_line_document(json);
}

int probe(const ProbeOptions& options, const CommonOptions& common, Console& console) {
    const auto cameras = camera_addresses(options.cameras, common.password_files());
    console.divert_library(common.log, common.verbose);
    SessionOptions session = common;
    session.timeout_s = std::min(session.timeout_s, kLongest_s);
    std::vector<ProbeResult> results(cameras.size());
    size_t name_width = 0;
    for (const CameraAddress& camera : cameras) name_width = std::max(name_width, camera.name().size());
    probe_cameras(cameras, session, [&](size_t index, const ProbeResult& result) {
        results[index] = result;
        console.print(common.json
                          ? json_of(result)
                          : fit_lines(line_of(result, name_width), console.terminal_columns()) + "\n");
    });
    const bool alike = std::ranges::all_of(
        results, [&](const ProbeResult& result) { return result.code == results.front().code; });
    return alike ? results.front().code : kPartlyDone;
}

}  // namespace

void add_probe(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<ProbeOptions>();
    CLI::App* command = app.add_subcommand(
        "probe",
        "Say of each camera whether it answers, logs in, streams what, with which firmware and clock");
    command->add_option("CAMERA", options->cameras, kCameraHelp)->required();
    command->footer(
        "Takes 2 seconds for each camera at most, --timeout if that is less, and asks all at once.");
    run_when_chosen(command, options, common, chosen, probe);
}

}  // namespace lenswire::recorder
