#include "recorder/cli/recording_summary.h"

#include <nlohmann/json.hpp>

namespace lenswire::recorder {
namespace {

using Json = nlohmann::ordered_json;

double seconds(int64_t milliseconds) {
    return static_cast<double>(milliseconds) / 1000;
}

// Pictures per second of a file, from its first picture to its last.
double frame_rate(const FileReport& file) {
    if (file.video_frames < 2 || file.duration_ms <= 0) return 0;
    return static_cast<double>(file.video_frames - 1) / seconds(file.duration_ms);
}

Json to_json(const FileReport& file) {
    Json runs = Json::array();
    for (const SequenceRun& run : file.runs) {
        runs.push_back({{"first_sequence", run.first},
                        {"last_sequence", run.last},
                        {"frames", run.frames},
                        {"missing", run.missing()}});
    }
    Json result;
    result["path"] = file.path;
    result["codec"] = file.codec;
    result["audio"] = file.audio ? Json("A-law") : Json(nullptr);
    result["width"] = file.width;
    result["height"] = file.height;
    result["video_frames"] = file.video_frames;
    result["audio_frames"] = file.audio_frames;
    result["bytes"] = file.bytes;
    result["duration_seconds"] = seconds(file.duration_ms);
    result["frames_per_second"] = frame_rate(file);
    result["finished"] = file.finished;
    result["connections"] = std::move(runs);
    return result;
}

Json to_json(const StreamStatus& stream) {
    Json files = Json::array();
    for (const FileReport& file : stream.recording.files) files.push_back(to_json(file));
    Json result;
    result["channel"] = stream.channel;
    result["stream"] = stream.stream;
    result["camera"] = stream.camera.name();
    result["camera_channel"] = stream.camera.channel;
    result["state"] = state_name(stream.view.state);
    result["recorded"] = stream.recording.frames > 0;
    result["codec"] = stream.recording.codec;
    result["frames"] = stream.recording.frames;
    result["bytes"] = stream.recording.bytes;
    result["skipped"] = stream.recording.skipped;
    result["lost"] = stream.lost();
    result["lost_in_queue"] = stream.lost_in_queue;
    result["missing_in_sequence"] = stream.recording.missing;
    result["not_written"] = stream.recording.unwritten;
    result["measured"] = {{"frames_per_second", stream.frames_per_second},
                          {"bytes_per_second", stream.bytes_per_second}};
    result["restarts"] = stream.view.restarts;
    result["motions"] = stream.motion.motions;
    result["alarms"] = stream.motion.alarms;
    result["files"] = std::move(files);
    return result;
}

std::string describe(const FileReport& file) {
    char text[256];
    std::snprintf(text, sizeof text, "%s%s  %dx%d  %llu frames  %.2f s  %.2f fps  %.2f Mbit/s",
                  file.codec.c_str(), file.audio ? " + A-law" : "", file.width, file.height,
                  static_cast<unsigned long long>(file.video_frames), seconds(file.duration_ms),
                  frame_rate(file),
                  file.duration_ms > 0
                      ? static_cast<double>(file.bytes) * 8 / 1000 / static_cast<double>(file.duration_ms)
                      : 0.0);
    return text;
}

}  // namespace

std::string recording_summary_json(const std::vector<StreamStatus>& streams) {
    Json list = Json::array();
    uint64_t lost = 0;
    for (const StreamStatus& stream : streams) {
        list.push_back(to_json(stream));
        lost += list.back()["lost"].get<uint64_t>();
    }
    // A folder's name may be anything; what is not UTF-8 must not end the program.
    return Json{{"lost", lost}, {"streams", std::move(list)}}.dump(2, ' ', false,
                                                                   Json::error_handler_t::replace) +
           "\n";
}

std::string recording_summary_table(const std::vector<StreamStatus>& streams) {
    std::string text;
    for (const StreamStatus& stream : streams) {
        char head[256];
        std::snprintf(head, sizeof head,
                      "ch%d %s: %llu frames lost, %u restarts, %llu motions, %llu alarms\n", stream.channel,
                      stream.name().c_str(), static_cast<unsigned long long>(stream.lost()),
                      stream.view.restarts, static_cast<unsigned long long>(stream.motion.motions),
                      static_cast<unsigned long long>(stream.motion.alarms));
        text += head;
        for (const FileReport& file : stream.recording.files)
            text += "  " + file.path + "  " + describe(file) + "\n";
        if (stream.recording.files.empty()) text += "  nothing recorded\n";
    }
    return text;
}

}  // namespace lenswire::recorder
