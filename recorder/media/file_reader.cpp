#include "recorder/media/file_reader.h"

#include <algorithm>
#include <cerrno>
#include <fstream>

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

// Rather than the end of the file, or of what of it can be understood.
bool is_failure(int error) {
    return error < 0 && error != AVERROR_EOF && error != AVERROR_INVALIDDATA && error != AVERROR(ENOENT);
}

bool reads_to_its_end(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    char block[4096];
    while (file.read(block, sizeof block)) {
    }
    return file.eof() && !file.bad();
}

// A head that ends early is an error of input to the demuxer, too.
bool is_failure_of(const std::string& path, int error) {
    return is_failure(error) && (error != AVERROR(EIO) || !reads_to_its_end(path));
}

// A head is all that is read here: looking for more would decode.
Input open_input(const std::string& path, bool& failed) {
    AVFormatContext* context = nullptr;
    const AVInputFormat* matroska = av_find_input_format("matroska");
    const int error = avformat_open_input(&context, ("file:" + path).c_str(), matroska, nullptr);
    failed = is_failure_of(path, error);
    return Input(error < 0 ? nullptr : context);
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
    const Frame frame(av_frame_alloc());
    avcodec_send_packet(decoder, packet);
    while (frame && avcodec_receive_frame(decoder, frame.get()) >= 0) ++pictures;
    return pictures;
}

}  // namespace

FileContents read_contents(const std::string& path, bool decode_all) {
    FileContents contents;
    const int level = av_log_get_level();
    av_log_set_level(AV_LOG_QUIET);
    const Input input = open_input(path, contents.failed);
    const AVStream* video = input ? video_of(*input) : nullptr;
    const Codec decoder = video != nullptr && decode_all ? open_decoder(*video) : nullptr;
    const Packet packet(av_packet_alloc());
    int64_t last_ms = 0;
    uint64_t decoded = 0;
    int error = packet ? 0 : AVERROR(ENOMEM);
    while (video != nullptr && error >= 0 && (error = av_read_frame(input.get(), packet.get())) >= 0) {
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
    contents.failed =
        contents.failed || is_failure_of(path, error) || (input && is_failure(input->pb->error));
    contents.readable = contents.pictures > 0;
    av_log_set_level(level);
    return contents;
}

}  // namespace lenswire::recorder
