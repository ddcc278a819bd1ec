// lenswire footage [CAMERA] [--from TIME] [--to TIME], lenswire verify OUT [--repair]
#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <map>

#include "recorder/archive/verify.h"
#include "recorder/cli/command_line.h"

namespace lenswire::recorder {
namespace {

using Json = nlohmann::ordered_json;

struct FootageOptions {
    std::string camera;
    std::string directory = "recordings";
    std::string from, to;
};

struct VerifyOptions {
    std::string directory;
    bool repair = false;
};

// Footage without an interruption, or a gap, or a time between two runs.
struct Span {
    Ms from = 0;
    Ms to = 0;
    bool open = false;
    int files = 0;  // 0: a gap
    uint64_t bytes = 0;
    std::string side = {}, cause = {}, detail = {};
    bool watched = true;
};

std::string ledger_file(const std::string& directory, const CommonOptions& common) {
    std::string file = Ledger::file_of(directory, common.database);
    std::error_code error;
    if (!std::filesystem::exists(file, error)) throw bad_input("there is no ledger " + file);
    return file;
}

Ms time_option(const std::string& text, Ms otherwise) {
    if (text.empty()) return otherwise;
    const auto time = parse_utc(text);
    if (!time) throw bad_input("'" + text + "' is no time such as 2026-11-23T14:05:00Z");
    return *time;
}

std::vector<Span> spans_of(Ledger& ledger, const std::string& stream, Ms from, Ms to, Ms now) {
    std::vector<Span> spans;
    for (const SegmentRow& row : ledger.segments(stream, from, to)) {
        const Span span{.from = std::max(row.from, from),
                        .to = std::min(row.to.value_or(now), to),
                        .open = !row.to,
                        .files = 1,
                        .bytes = row.bytes};
        const bool goes_on = !spans.empty() && spans.back().to == span.from;
        if (!goes_on) {
            spans.push_back(span);
            continue;
        }
        spans.back().to = span.to;
        spans.back().open = span.open;
        ++spans.back().files;
        spans.back().bytes += span.bytes;
    }
    for (const GapRow& row : ledger.gaps(stream, from, to)) {
        spans.push_back({.from = std::max(row.from, from),
                         .to = std::min(row.to.value_or(now), to),
                         .open = !row.to,
                         .side = row.side,
                         .cause = row.cause,
                         .detail = row.detail});
    }
    // Between two runs that were ended nobody watched: nothing is missing then, and nothing is there.
    std::optional<Ms> ended;
    for (const WatchRow& watch : ledger.watches(stream, from, to)) {
        if (ended && watch.from > *ended) {
            spans.push_back({.from = *ended, .to = watch.from, .watched = false});
        }
        ended = watch.to;
    }
    std::ranges::stable_sort(spans, {}, &Span::from);
    return spans;
}

std::string text_of(const std::string& stream, const Span& span) {
    std::string line = utc_text(span.from) + "  " +
                       (span.open ? "now                     " : utc_text(span.to)) + "  " + stream + "  " +
                       length_text(span.to - span.from);
    if (!span.watched) return line + "  not watched\n";
    if (span.files == 0)
        return line + "  GAP: " + span.side + ", " + span.cause +
               (span.detail.empty() ? "" : " (" + span.detail + ")") + "\n";
    return line + "  " + std::to_string(span.files) + " files, " + std::to_string(span.bytes) + " bytes\n";
}

Json json_of(const Span& span) {
    Json json{{"from", utc_text(span.from)},
              {"to", span.open ? Json(nullptr) : Json(utc_text(span.to))},
              {"seconds", static_cast<double>(span.to - span.from) / 1000}};
    if (!span.watched) {
        json["watched"] = false;
    } else if (span.files == 0) {
        json.update({{"gap", {{"side", span.side}, {"cause", span.cause}, {"detail", span.detail}}}});
    } else {
        json.update({{"files", span.files}, {"bytes", span.bytes}});
    }
    return json;
}

Json segments_json(Ledger& ledger, const std::string& stream, Ms from, Ms to) {
    Json list = Json::array();
    for (const SegmentRow& row : ledger.segments(stream, from, to)) {
        list.push_back({{"path", row.path},
                        {"from", utc_text(row.from)},
                        {"to", row.to ? Json(utc_text(*row.to)) : Json(nullptr)},
                        {"camera_from_ms", row.camera_from},
                        {"camera_to_ms", row.camera_to},
                        {"frames", row.frames},
                        {"bytes", row.bytes},
                        {"sha256", row.sha256},
                        {"state", row.state}});
    }
    return list;
}

int footage(const FootageOptions& options, const CommonOptions& common, Console& console) {
    const Ms from = time_option(options.from, INT64_MIN);
    const Ms to = time_option(options.to, INT64_MAX);
    Ledger ledger(ledger_file(options.directory, common));
    const Ms now = std::max(ledger.last_instant(), ledger.last_alive());
    std::vector<std::string> streams = ledger.streams();
    std::erase_if(streams,
                  [&](const std::string& name) { return !options.camera.empty() && name != options.camera; });
    if (streams.empty() && !options.camera.empty()) throw bad_input("the ledger knows no " + options.camera);
    Json list = Json::array();
    for (const std::string& stream : streams) {
        Ms recorded = 0, missing = 0;
        Json spans = Json::array();
        for (const Span& span : spans_of(ledger, stream, from, to, now)) {
            if (span.watched) (span.files > 0 ? recorded : missing) += span.to - span.from;
            if (common.json) spans.push_back(json_of(span));
            if (!common.json) console.print(text_of(stream, span));
        }
        if (!common.json) {
            console.line(stream + ": watched " + length_text(recorded + missing) + ", footage " +
                         length_text(recorded) + ", gaps " + length_text(missing));
            continue;
        }
        list.push_back({{"name", stream},
                        {"watched_seconds", static_cast<double>(recorded + missing) / 1000},
                        {"footage_seconds", static_cast<double>(recorded) / 1000},
                        {"gap_seconds", static_cast<double>(missing) / 1000},
                        {"spans", std::move(spans)},
                        {"segments", segments_json(ledger, stream, from, to)}});
    }
    if (!common.json) return kDone;
    Json events = Json::array();
    for (const EventRow& row : ledger.events(from, to)) {
        events.push_back(
            {{"at", utc_text(row.at)}, {"stream", row.stream}, {"kind", row.kind}, {"text", row.text}});
    }
    console.print(document({{"streams", std::move(list)}, {"events", std::move(events)}}));
    return kDone;
}

int verify_folder(const VerifyOptions& options, const CommonOptions& common, Console& console) {
    Ledger ledger(ledger_file(options.directory, common));
    RealDisk disk(options.directory);
    const Ms now = std::max(SystemClock().wall(), ledger.last_instant());
    if (options.repair) {
        const FolderLock lock(options.directory);
        repair(ledger, disk, now);
    }
    const Verdict verdict = verify(ledger, disk, now);
    if (common.json) {
        console.print(document({{"good", verdict.faults.empty()},
                                {"segments", verdict.segments},
                                {"pictures", verdict.pictures},
                                {"bytes", verdict.bytes},
                                {"watched_seconds", static_cast<double>(verdict.watched) / 1000},
                                {"footage_seconds", static_cast<double>(verdict.footage) / 1000},
                                {"gap_seconds", static_cast<double>(verdict.gaps) / 1000},
                                {"faults", verdict.faults}}));
    } else {
        for (const std::string& fault : verdict.faults) console.line(fault);
        console.line(std::to_string(verdict.segments) + " files, " + std::to_string(verdict.pictures) +
                     " pictures, " + std::to_string(verdict.bytes) + " bytes; watched " +
                     length_text(verdict.watched) + ", footage " + length_text(verdict.footage) + ", gaps " +
                     length_text(verdict.gaps) + ": " +
                     (verdict.faults.empty() ? "all as the ledger says"
                                             : std::to_string(verdict.faults.size()) + " faults"));
    }
    return verdict.faults.empty() ? kDone : kPartlyDone;
}

}  // namespace

void add_footage(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<FootageOptions>();
    CLI::App* command =
        app.add_subcommand("footage", "List what was recorded, and every gap with its reason");
    command->add_option("CAMERA", options->camera, "Of this camera only, by the name of its folder");
    command->add_option("--out", options->directory, "Folder of the recordings")->capture_default_str();
    command->add_option("--from", options->from,
                        "From this time on, in UTC: 2026-11-23T14:05:00Z or shorter");
    command->add_option("--to", options->to, "Up to this time");
    run_when_chosen(command, options, common, chosen, footage);
}

void add_verify(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<VerifyOptions>();
    CLI::App* command = app.add_subcommand("verify",
                                           "Compare the ledger with the files: their digests, every picture "
                                           "decoded, nothing unknown or missing");
    command->add_option("OUT", options->directory, "Folder of the recordings")->required();
    command->add_flag("--repair", options->repair,
                      "Take in what a crash left; a file that is gone becomes a gap");
    run_when_chosen(command, options, common, chosen, verify_folder);
}

}  // namespace lenswire::recorder
