// Access units of any bytes: what decoding can begin with, when they were taken, and a Matroska file of them.
#include <string>

#include "fuzz/support/target.h"
#include "recorder/media/access_unit.h"
#include "recorder/media/matroska_writer.h"
#include "recorder/media/timeline.h"

namespace lenswire::fuzz {

namespace {

constexpr size_t kReadableBehind = 64;
constexpr size_t kUnits = 32;

struct Recording {
    recorder::AccessUnitReader reader;
    recorder::Timeline timeline;
    std::unique_ptr<recorder::MatroskaWriter> writer;
    int64_t end = 0;  // of the file so far

    void take_pieces() {
        for (const auto& piece : writer->take()) {
            require(piece.offset >= 0 && piece.offset <= end, "a file has no holes");
            end = std::max(end, piece.offset + static_cast<int64_t>(piece.bytes.size()));
        }
    }
    void begin() {
        std::string error;
        recorder::TrackParameters parameters{.codec = reader.codec(),
                                             .width = 640,
                                             .height = 360,
                                             .parameter_sets = reader.parameter_sets(),
                                             .audio = true};
        writer = recorder::MatroskaWriter::create(parameters, "fuzz", 25, 0, error);
    }
    // A unit's first bytes say what it is: the kind, and the camera's clock.
    void add(Input unit, int64_t received_ms) {
        const bool sound = unit.number<uint8_t>() % 8 == 7;
        const auto camera_ms = unit.number<uint32_t>();
        Bytes data(unit.rest().begin(), unit.rest().end());
        data.resize(data.size() + kReadableBehind);
        const std::span<const uint8_t> bytes(data.data(), data.size() - kReadableBehind);
        if (sound && !writer) return;
        const int64_t last_ms = timeline.last_video_ms();
        if (sound) {
            writer->write_audio(bytes, timeline.audio(received_ms, static_cast<uint32_t>(bytes.size())));
            return;
        }
        const bool key = reader.read(bytes);
        const int64_t time_ms = timeline.video(camera_ms, received_ms);
        require(time_ms > last_ms || last_ms == 0, "pictures follow each other");
        if (!writer && key && reader.ready()) begin();
        if (writer) writer->write_video(bytes, time_ms, key);
    }
};

}  // namespace

// The first byte is the codec; each unit follows its length.
void run(Input input) {
    const auto codec = static_cast<recorder::VideoCodec>(input.number<uint8_t>() % 3);
    Recording recording{.reader = recorder::AccessUnitReader(codec), .timeline = {}, .writer = nullptr};
    int64_t received_ms = 1000;
    for (size_t i = 0; i < kUnits && !input.empty(); ++i, received_ms += 40) {
        recording.add(Input(input.take(input.number<uint16_t>())), received_ms);
        if (!recording.writer || i % 8 != 7) continue;
        recording.writer->end_cluster();
        recording.take_pieces();
    }
    if (!recording.writer) return;
    recording.writer->finish();
    recording.take_pieces();
}

}  // namespace lenswire::fuzz
