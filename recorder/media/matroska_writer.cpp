#include "recorder/media/matroska_writer.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

extern "C" {
#include <libavformat/avformat.h>
}

namespace lenswire::recorder {
namespace {

constexpr int kVideoTrack = 0;
constexpr int kAudioTrack = 1;
constexpr AVRational kMilliseconds = {1, 1000};
constexpr int kAudioRate = 8000;

struct ContextDeleter {
    void operator()(AVFormatContext* context) const {
        avio_closep(&context->pb);
        avformat_free_context(context);
    }
};
using Context = std::unique_ptr<AVFormatContext, ContextDeleter>;

std::string error_text(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

AVCodecID codec_id(VideoCodec codec) {
    switch (codec) {
        case VideoCodec::kH264:
            return AV_CODEC_ID_H264;
        case VideoCodec::kH265:
            return AV_CODEC_ID_HEVC;
        case VideoCodec::kJpeg:
            break;
    }
    return AV_CODEC_ID_MJPEG;
}

bool set_extradata(AVCodecParameters& parameters, std::span<const uint8_t> data) {
    if (data.empty()) return true;
    parameters.extradata = static_cast<uint8_t*>(av_mallocz(data.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (parameters.extradata == nullptr) return false;
    std::memcpy(parameters.extradata, data.data(), data.size());
    parameters.extradata_size = static_cast<int>(data.size());
    return true;
}

bool add_video(AVFormatContext* context, const TrackParameters& wanted, int frame_rate) {
    AVStream* stream = avformat_new_stream(context, nullptr);
    if (stream == nullptr) return false;
    stream->time_base = kMilliseconds;
    if (frame_rate > 0) stream->avg_frame_rate = {frame_rate, 1};
    AVCodecParameters& parameters = *stream->codecpar;
    parameters.codec_type = AVMEDIA_TYPE_VIDEO;
    parameters.codec_id = codec_id(wanted.codec);
    parameters.width = wanted.width;
    parameters.height = wanted.height;
    return set_extradata(parameters, wanted.parameter_sets);
}

bool add_audio(AVFormatContext* context) {
    AVStream* stream = avformat_new_stream(context, nullptr);
    if (stream == nullptr) return false;
    stream->time_base = kMilliseconds;
    AVCodecParameters& parameters = *stream->codecpar;
    parameters.codec_type = AVMEDIA_TYPE_AUDIO;
    parameters.codec_id = AV_CODEC_ID_PCM_ALAW;
    parameters.sample_rate = kAudioRate;
    parameters.bits_per_coded_sample = 8;
    parameters.bit_rate = kAudioRate * 8;
    parameters.block_align = 1;
    av_channel_layout_default(&parameters.ch_layout, 1);
    return true;
}

// Nothing that exists is ever overwritten.
int create_file(const std::string& path) {
    const int fd = open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644);
    if (fd < 0) return AVERROR(errno);
    close(fd);
    return 0;
}

int open_context(const std::string& path, const TrackParameters& parameters, const std::string& title,
                 int frame_rate, Context& opened) {
    AVFormatContext* context = nullptr;
    const std::string url = "file:" + path;
    int error = avformat_alloc_output_context2(&context, nullptr, "matroska", url.c_str());
    if (error < 0) return error;
    opened.reset(context);
    if (!add_video(context, parameters, frame_rate)) return AVERROR(ENOMEM);
    if (parameters.audio && !add_audio(context)) return AVERROR(ENOMEM);
    av_dict_set(&context->metadata, "title", title.c_str(), 0);
    error = avio_open(&context->pb, url.c_str(), AVIO_FLAG_WRITE);
    if (error < 0) return error;
    return avformat_write_header(context, nullptr);
}

}  // namespace

std::unique_ptr<MatroskaWriter> MatroskaWriter::create(const std::string& path,
                                                       const TrackParameters& parameters,
                                                       const std::string& title, int frame_rate,
                                                       std::string& error) {
    int result = create_file(path);
    if (result == 0) {
        Context context;
        result = open_context(path, parameters, title, frame_rate, context);
        if (result >= 0) return std::unique_ptr<MatroskaWriter>(new MatroskaWriter(context.release()));
        context.reset();
        unlink(path.c_str());
    }
    error = path + ": " + error_text(result);
    return nullptr;
}

MatroskaWriter::~MatroskaWriter() {
    finish();
}

bool MatroskaWriter::write_video(std::span<const uint8_t> data, int64_t time_ms, bool key) {
    return write(data, time_ms, kVideoTrack, key ? AV_PKT_FLAG_KEY : 0);
}

bool MatroskaWriter::write_audio(std::span<const uint8_t> data, int64_t time_ms) {
    return write(data, time_ms, kAudioTrack, AV_PKT_FLAG_KEY);
}

// Goes to the muxer directly: its interleaving queue would hold packets back and copy every one of them.
bool MatroskaWriter::write(std::span<const uint8_t> data, int64_t time_ms, int track, int flags) {
    if (context_ == nullptr || track >= static_cast<int>(context_->nb_streams)) return false;
    AVPacket packet{};
    packet.data = const_cast<uint8_t*>(data.data());
    packet.size = static_cast<int>(data.size());
    packet.stream_index = track;
    packet.flags = flags;
    packet.pts = av_rescale_q(time_ms, kMilliseconds, context_->streams[track]->time_base);
    packet.dts = packet.pts;
    return av_write_frame(context_, &packet) >= 0 && context_->pb->error >= 0;
}

bool MatroskaWriter::finish() {
    if (context_ == nullptr) return true;
    const Context context(std::exchange(context_, nullptr));
    const int result = av_write_trailer(context.get());
    avio_flush(context->pb);
    return result >= 0 && context->pb->error >= 0;
}

}  // namespace lenswire::recorder
