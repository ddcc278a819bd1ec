#include "recorder/media/matroska_writer.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "recorder/media/tracks.h"

namespace lenswire::recorder {
namespace {

constexpr int kVideoTrack = 0;
constexpr int kAudioTrack = 1;

std::string iso_time(int64_t utc_ms) {
    const time_t seconds = utc_ms / 1000;
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    char whole[40];
    std::snprintf(whole, sizeof whole, "%s.%03dZ", text, static_cast<int>(utc_ms % 1000));
    return whole;
}

}  // namespace

int MatroskaWriter::receive(void* self, uint8_t* data, int size) {
    auto& writer = *static_cast<MatroskaWriter*>(self);
    auto& pieces = writer.pieces_;
    if (pieces.empty() ||
        pieces.back().offset + static_cast<int64_t>(pieces.back().bytes.size()) != writer.position_) {
        pieces.push_back({.offset = writer.position_, .bytes = {}});
        pieces.back().bytes.reserve(writer.likely_);
    }
    pieces.back().bytes.insert(pieces.back().bytes.end(), data, data + size);
    writer.position_ += size;
    writer.size_ = std::max(writer.size_, writer.position_);
    return size;
}

int64_t MatroskaWriter::seek(void* self, int64_t offset, int whence) {
    auto& writer = *static_cast<MatroskaWriter*>(self);
    if (whence == AVSEEK_SIZE) return writer.size_;
    if (whence == SEEK_CUR) offset += writer.position_;
    if (whence == SEEK_END) offset += writer.size_;
    return writer.position_ = offset;
}

int MatroskaWriter::open(const TrackParameters& parameters, const std::string& title, int frame_rate,
                         int64_t created_ms) {
    int error = avformat_alloc_output_context2(&context_, nullptr, "matroska", nullptr);
    if (error < 0) return error;
    if ((error = open_output(context_, this, receive, seek)) < 0) return error;
    context_->pb->direct = 1;  // whole clusters come in one piece: no copy of them in between
    error = add_video(context_, parameters.codec, parameters.width, parameters.height,
                      parameters.parameter_sets, frame_rate);
    if (error < 0) return error;
    if (parameters.audio && (error = add_audio(context_)) < 0) return error;
    av_dict_set(&context_->metadata, "title", title.c_str(), 0);
    av_dict_set(&context_->metadata, "creation_time", iso_time(created_ms).c_str(), 0);
    // A sum over each cluster costs a sixth of a recorder's time, and the ledger has one of the whole file.
    AVDictionary* options = nullptr;
    av_dict_set(&options, "write_crc32", "0", 0);
    error = avformat_write_header(context_, &options);
    av_dict_free(&options);
    return error;
}

std::unique_ptr<MatroskaWriter> MatroskaWriter::create(const TrackParameters& parameters,
                                                       const std::string& title, int frame_rate,
                                                       int64_t created_ms, std::string& error) {
    std::unique_ptr<MatroskaWriter> writer(new MatroskaWriter);
    const int result = writer->open(parameters, title, frame_rate, created_ms);
    if (result >= 0) return writer;
    error = av_error_text(result);
    return nullptr;
}

MatroskaWriter::~MatroskaWriter() {
    close_output(context_);
}

bool MatroskaWriter::write_video(std::span<const uint8_t> data, int64_t time_ms, bool key) {
    return write(data, time_ms, kVideoTrack, key ? AV_PKT_FLAG_KEY : 0);
}

bool MatroskaWriter::write_audio(std::span<const uint8_t> data, int64_t time_ms) {
    return write(data, time_ms, kAudioTrack, AV_PKT_FLAG_KEY);
}

// Goes to the muxer directly: its interleaving queue would hold packets back and copy every one of them.
bool MatroskaWriter::write(std::span<const uint8_t> data, int64_t time_ms, int track, int flags) {
    if (track >= static_cast<int>(context_->nb_streams)) return false;
    AVPacket packet{};
    packet.data = const_cast<uint8_t*>(data.data());
    packet.size = static_cast<int>(data.size());
    packet.stream_index = track;
    packet.flags = flags;
    packet.pts = av_rescale_q(time_ms, kMilliseconds, context_->streams[track]->time_base);
    packet.dts = packet.pts;
    return av_write_frame(context_, &packet) >= 0;
}

void MatroskaWriter::end_cluster() {
    av_write_frame(context_, nullptr);
    avio_flush(context_->pb);
    if (!pieces_.empty()) likely_ = pieces_.back().bytes.size() * 9 / 8;
}

// The pictures first: an index that fails must not take them along.
void MatroskaWriter::finish() {
    end_cluster();
    av_write_trailer(context_);
    avio_flush(context_->pb);
}

}  // namespace lenswire::recorder
