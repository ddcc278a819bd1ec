#include "recorder/media/tracks.h"

#include <cstring>

#include "recorder/media/h265_sequence.h"

namespace lenswire::recorder {
namespace {

constexpr int kAudioRate = 8000;
constexpr int kIoBuffer = 64 * 1024;

int set_extradata(AVCodecParameters& parameters, std::span<const uint8_t> data) {
    if (data.empty()) return 0;
    parameters.extradata = static_cast<uint8_t*>(av_mallocz(data.size() + AV_INPUT_BUFFER_PADDING_SIZE));
    if (parameters.extradata == nullptr) return AVERROR(ENOMEM);
    std::memcpy(parameters.extradata, data.data(), data.size());
    parameters.extradata_size = static_cast<int>(data.size());
    return 0;
}

}  // namespace

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

int add_video(AVFormatContext* context, VideoCodec codec, int width, int height,
              std::span<const uint8_t> parameter_sets, int frame_rate) {
    if (codec == VideoCodec::kH265 && !are_whole_h265_sequences(parameter_sets)) return AVERROR_INVALIDDATA;
    AVStream* stream = avformat_new_stream(context, nullptr);
    if (stream == nullptr) return AVERROR(ENOMEM);
    stream->time_base = kMilliseconds;
    if (frame_rate > 0) stream->avg_frame_rate = {frame_rate, 1};
    AVCodecParameters& parameters = *stream->codecpar;
    parameters.codec_type = AVMEDIA_TYPE_VIDEO;
    parameters.codec_id = codec_id(codec);
    parameters.width = width;
    parameters.height = height;
    return set_extradata(parameters, parameter_sets);
}

int add_audio(AVFormatContext* context) {
    AVStream* stream = avformat_new_stream(context, nullptr);
    if (stream == nullptr) return AVERROR(ENOMEM);
    stream->time_base = kMilliseconds;
    AVCodecParameters& parameters = *stream->codecpar;
    parameters.codec_type = AVMEDIA_TYPE_AUDIO;
    parameters.codec_id = AV_CODEC_ID_PCM_ALAW;
    parameters.sample_rate = kAudioRate;
    parameters.bits_per_coded_sample = 8;
    parameters.bit_rate = kAudioRate * 8;
    parameters.block_align = 1;
    av_channel_layout_default(&parameters.ch_layout, 1);
    return 0;
}

int open_output(AVFormatContext* context, void* self, int (*receive)(void*, uint8_t*, int),
                int64_t (*seek)(void*, int64_t, int)) {
    auto* buffer = static_cast<uint8_t*>(av_malloc(kIoBuffer));
    if (buffer == nullptr) return AVERROR(ENOMEM);
    context->pb = avio_alloc_context(buffer, kIoBuffer, 1, self, nullptr, receive, seek);
    if (context->pb == nullptr) av_free(buffer);
    return context->pb == nullptr ? AVERROR(ENOMEM) : 0;
}

void close_output(AVFormatContext* context) {
    if (context == nullptr) return;
    if (context->pb != nullptr) av_freep(&context->pb->buffer);
    avio_context_free(&context->pb);
    avformat_free_context(context);
}

std::string av_error_text(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

}  // namespace lenswire::recorder
