// lenswire info CAMERA
#include <CLI/CLI.hpp>
#include <cstring>

#include "lenswire/encoding.h"
#include "recorder/cli/command_line.h"
#include "recorder/support/text.h"

namespace lenswire::recorder {
namespace {

struct InfoOptions {
    std::string camera;
};

constexpr const char* kStreamsOfScope[] = {"single",   "double 1", "double 2",
                                           "triple 1", "triple 2", "triple 3"};

struct Scope {
    std::vector<std::string> codecs;
    std::vector<std::string> sizes;
    int capability = 0;
};

Scope scope_of(const EncodingScopeEntry& entry) {
    Scope scope;
    for (const ResolutionSlot& slot : entry.slots) {
        const size_t length = strnlen(slot.szCodec, sizeof slot.szCodec);
        if (length == 0) break;
        scope.codecs.emplace_back(slot.szCodec, length);
    }
    const uint32_t sizes = std::min<uint32_t>(entry.ulSizes, LENSWIRE_RESOLUTIONS);
    for (uint32_t i = 0; i < sizes; ++i) {
        scope.sizes.push_back(std::to_string(entry.slots[i].usWidth) + "x" +
                              std::to_string(entry.slots[i].usHeight));
    }
    scope.capability = entry.ucCapability;
    return scope;
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
    return text;
}

// Everything that the command shows.
struct Info {
    Bytes device;
    Bytes fisheye;
    bool special_platform = false;
    int host_fisheye_type = 0;
    uint32_t stream_mask = 0;
    EncodingScope scope{};
};

Info ask(ControlSession& session) {
    const Plugin& library = session.library();
    Info info;
    info.device = read_setting(session, readable_setting("device"));
    info.special_platform =
        session.limited([&] { return library.Private_Protocol_GetPlatFormType(session.channel()); }) == 1;
    info.fisheye = read_setting(session, readable_setting("fisheye"));
    session.ask("the encoding scope", [&] {
        return library.Private_Protocol_GetEncodingScope(session.camera_channel(), session.ip(),
                                                         &info.scope) == 0;
    });
    info.stream_mask =
        session.limited([&] { return library.Private_Protocol_GetStreamType(session.channel()); });
    const HostCameraRecord camera = host_record(session, session.camera_channel());
    info.host_fisheye_type = session.limited([&] { return library.GetFishType(&camera, 0, 0, 0); });
    return info;
}

std::string text_of(const Info& info) {
    std::string text = record_text(*readable_setting("device").layout, info.device);
    text += std::string("platform family     ") + (info.special_platform ? "special" : "ordinary") + "\n";
    text += "fisheye type        " + std::to_string(info.fisheye[1]) +
            " (for the channel: " + std::to_string(info.host_fisheye_type) + ")\n";
    text += "stream mask         " + std::to_string(info.stream_mask) + "\n\n";
    char line[256];
    std::snprintf(line, sizeof line, "%-10s %-12s %s\n", "stream", "codecs", "sizes");
    text += line;
    for (size_t i = 0; i < std::size(kStreamsOfScope); ++i) {
        const Scope scope = scope_of(info.scope.entries[i]);
        std::snprintf(line, sizeof line, "%-10s %-12s %s\n", kStreamsOfScope[i], joined(scope.codecs).c_str(),
                      joined(scope.sizes).c_str());
        text += line;
    }
    return text;
}

nlohmann::ordered_json json_of(const Info& info) {
    auto scopes = nlohmann::ordered_json::array();
    for (size_t i = 0; i < std::size(kStreamsOfScope); ++i) {
        const Scope scope = scope_of(info.scope.entries[i]);
        scopes.push_back({{"stream", kStreamsOfScope[i]},
                          {"codecs", scope.codecs},
                          {"sizes", scope.sizes},
                          {"capability", scope.capability}});
    }
    return {{"device", record_json(*readable_setting("device").layout, info.device)},
            {"platform_family", info.special_platform ? "special" : "ordinary"},
            {"fisheye_type", info.fisheye[1]},
            {"host_fisheye_type", info.host_fisheye_type},
            {"stream_mask", info.stream_mask},
            {"scope", std::move(scopes)}};
}

int show(const InfoOptions& options, const CommonOptions& common, Console& console) {
    auto session = log_in(options.camera, common, console);
    const Info info = ask(*session);
    if (!common.json) {
        console.print(fit_lines(text_of(info), console.terminal_columns()));
        return kDone;
    }
    auto json = json_of(info);
    json["camera"] = session->camera().name();
    console.print(document(json));
    return kDone;
}

}  // namespace

void add_info(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<InfoOptions>();
    CLI::App* command = app.add_subcommand("info", "Show what a camera is and what it can encode");
    command->add_option("CAMERA", options->camera, kCameraHelp)->required();
    run_when_chosen(command, options, common, chosen, show);
}

}  // namespace lenswire::recorder
