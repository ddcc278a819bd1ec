#include "recorder/cli/recording_summary.h"

#include <nlohmann/json.hpp>

namespace lenswire::recorder {
namespace {

using Json = nlohmann::ordered_json;

double seconds(Ms length) {
    return static_cast<double>(length) / 1000;
}

Json gaps_json(const std::map<Cause, Ms>& gaps) {
    Json list = Json::array();
    for (const auto& [cause, length] : gaps) {
        const CauseWords words = words_of(cause);
        list.push_back({{"side", words.side}, {"cause", words.words}, {"seconds", seconds(length)}});
    }
    return list;
}

Json to_json(const StreamStatus& stream) {
    const RecordingReport& recording = stream.recording;
    Json result;
    result["name"] = stream.title;
    result["channel"] = stream.channel;
    result["stream"] = stream.stream;
    result["camera"] = stream.camera.name();
    result["camera_channel"] = stream.camera.channel;
    result["state"] = state_name(stream.view.state);
    result["recorded"] = recording.video_frames > 0;
    result["codec"] = recording.codec;
    result["width"] = recording.width;
    result["height"] = recording.height;
    result["watched_seconds"] = seconds(recording.watched);
    result["footage_seconds"] = seconds(recording.footage);
    result["gaps"] = gaps_json(recording.gaps);
    result["segments"] = recording.segments;
    result["video_frames"] = recording.video_frames;
    result["audio_frames"] = recording.audio_frames;
    result["frames"] = recording.frames;
    result["bytes"] = recording.bytes;
    result["skipped"] = recording.skipped;
    result["lost"] = stream.lost();
    result["lost_in_queue"] = stream.lost_in_queue;
    result["missing_in_sequence"] = recording.missing;
    result["refused_by_disk"] = recording.refused;
    result["not_written"] = recording.unwritten;
    result["measured"] = {{"frames_per_second", stream.frames_per_second},
                          {"bytes_per_second", stream.bytes_per_second}};
    result["restarts"] = stream.view.restarts;
    result["motions"] = stream.motion.motions;
    result["alarms"] = stream.motion.alarms;
    return result;
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
        const RecordingReport& recording = stream.recording;
        text += stream.title + ": watched " + length_text(recording.watched) + ", footage " +
                length_text(recording.footage) + " in " + std::to_string(recording.segments) + " files";
        for (const auto& [cause, length] : recording.gaps) {
            const CauseWords words = words_of(cause);
            text += std::string(", ") + words.side + " " + words.words + " " + length_text(length);
        }
        if (recording.gaps.empty()) text += ", no gap";
        text += "; " + std::to_string(stream.lost()) + " frames lost, " +
                std::to_string(stream.view.restarts) + " restarts, " + std::to_string(stream.motion.motions) +
                " motions, " + std::to_string(stream.motion.alarms) + " alarms\n";
    }
    return text;
}

}  // namespace lenswire::recorder
