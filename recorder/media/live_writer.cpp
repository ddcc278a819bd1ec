#include "recorder/media/live_writer.h"

#include "recorder/media/tracks.h"

namespace lenswire::recorder {

int LiveWriter::receive(void* self, uint8_t* data, int size) {
    auto& writer = *static_cast<LiveWriter*>(self);
    writer.wanted_ = writer.wanted_ && writer.sink_({data, static_cast<size_t>(size)});
    return writer.wanted_ ? size : AVERROR(EPIPE);
}

int LiveWriter::open(LiveFormat format, const TrackParameters& parameters, int frame_rate) {
    if (format == LiveFormat::kVideo) return 0;
    const bool matroska = format == LiveFormat::kMatroska;
    int error = avformat_alloc_output_context2(&context_, nullptr, matroska ? "matroska" : "mpegts", nullptr);
    if (error < 0) return error;
    if ((error = open_output(context_, this, receive, nullptr)) < 0) return error;
    context_->flags |= AVFMT_FLAG_FLUSH_PACKETS;
    error = add_video(context_, parameters.codec, parameters.width, parameters.height,
                      parameters.parameter_sets, frame_rate);
    if (error < 0) return error;
    if (parameters.audio && matroska && (error = add_audio(context_)) < 0) return error;
    AVDictionary* options = nullptr;
    if (matroska) av_dict_set(&options, "live", "1", 0);
    const int result = avformat_write_header(context_, &options);
    av_dict_free(&options);
    avio_flush(context_->pb);
    return result;
}

std::unique_ptr<LiveWriter> LiveWriter::create(LiveFormat format, const TrackParameters& parameters,
                                               int frame_rate, Sink sink, std::string& error) {
    std::unique_ptr<LiveWriter> writer(new LiveWriter(std::move(sink)));
    if (format == LiveFormat::kMpegTs && parameters.codec == VideoCodec::kJpeg) {
        error = "MPEG-TS carries no JPEG";
        return nullptr;
    }
    const int result = writer->open(format, parameters, frame_rate);
    if (result >= 0) return writer;
    error = av_error_text(result);
    return nullptr;
}

LiveWriter::~LiveWriter() {
    close_output(context_);
}

// A cluster for every picture: a reader waits for the end of one before it looks into it.
bool LiveWriter::write(std::span<const uint8_t> data, int64_t time_ms, bool video, bool key) {
    if (context_ == nullptr) return wanted_ = wanted_ && (!video || sink_(data));
    const unsigned track = video ? 0 : 1;
    if (track >= context_->nb_streams) return wanted_;
    AVPacket packet{};
    packet.data = const_cast<uint8_t*>(data.data());
    packet.size = static_cast<int>(data.size());
    packet.stream_index = static_cast<int>(track);
    packet.flags = key ? AV_PKT_FLAG_KEY : 0;
    packet.pts = av_rescale_q(time_ms, kMilliseconds, context_->streams[track]->time_base);
    packet.dts = packet.pts;
    av_write_frame(context_, &packet);
    av_write_frame(context_, nullptr);
    avio_flush(context_->pb);
    return wanted_;
}

bool LiveWriter::finish() {
    if (context_ != nullptr && wanted_) {
        av_write_trailer(context_);
        avio_flush(context_->pb);
    }
    return wanted_;
}

}  // namespace lenswire::recorder
