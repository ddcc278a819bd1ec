#include "recorder/media/file_reader.h"

#include <algorithm>

#include "recorder/media/libav.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace lenswire::recorder {
namespace {

struct CloseInput {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
using Input = std::unique_ptr<AVFormatContext, CloseInput>;

// A head is all that is read here: looking for more would decode.
Input open_input(const std::string& path) {
    AVFormatContext* context = nullptr;
    const AVInputFormat* matroska = av_find_input_format("matroska");
    if (avformat_open_input(&context, ("file:" + path).c_str(), matroska, nullptr) < 0) return nullptr;
    return Input(context);
}

const AVStream* video_of(const AVFormatContext& input) {
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        if (input.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) return input.streams[i];
    }
    return nullptr;
}

Codec open_decoder(const AVStream& stream) {
    const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
    Codec decoder(codec != nullptr ? avcodec_alloc_context3(codec) : nullptr);
    if (!decoder || avcodec_parameters_to_context(decoder.get(), stream.codecpar) < 0) return nullptr;
    decoder->thread_count = 1;
    decoder->err_recognition = AV_EF_EXPLODE;
    return avcodec_open2(decoder.get(), codec, nullptr) < 0 ? nullptr : std::move(decoder);
}

// Gives the decoder a packet, or null at the end; how many pictures come out.
uint64_t decode(AVCodecContext* decoder, const AVPacket* packet) {
    uint64_t pictures = 0;
    AVFrame* frame = av_frame_alloc();
    avcodec_send_packet(decoder, packet);
    while (avcodec_receive_frame(decoder, frame) >= 0) ++pictures;
    av_frame_free(&frame);
    return pictures;
}

}  // namespace

FileContents read_contents(const std::string& path, bool decode_all) {
    FileContents contents;
    const int level = av_log_get_level();
    av_log_set_level(AV_LOG_QUIET);
    const Input input = open_input(path);
    const AVStream* video = input ? video_of(*input) : nullptr;
    const Codec decoder = video != nullptr && decode_all ? open_decoder(*video) : nullptr;
    const Packet packet(av_packet_alloc());
    int64_t last_ms = 0;
    uint64_t decoded = 0;
    while (video != nullptr && av_read_frame(input.get(), packet.get()) >= 0) {
        if (packet->stream_index == video->index) {
            const int64_t at = av_rescale_q(packet->pts, video->time_base, {1, 1000});
            const int64_t interval = contents.pictures > 0 ? std::clamp<int64_t>(at - last_ms, 1, 2000) : 40;
            last_ms = at;
            contents.to_ms = std::max(contents.to_ms, at + interval);
            ++contents.pictures;
            if (decoder) decoded += decode(decoder.get(), packet.get());
        }
        av_packet_unref(packet.get());
    }
    if (decoder) decoded += decode(decoder.get(), nullptr);
    if (decode_all) contents.pictures = decoded;
    contents.readable = contents.pictures > 0;
    av_log_set_level(level);
    return contents;
}

}  // namespace lenswire::recorder
