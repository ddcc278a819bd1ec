#include "media.h"

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace lenswire::recorder::media {
namespace {

struct CloseInput {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
using Input = std::unique_ptr<AVFormatContext, CloseInput>;

Input open_input(const std::string& path, const char* format) {
    AVFormatContext* context = nullptr;
    const AVInputFormat* kind = format != nullptr ? av_find_input_format(format) : nullptr;
    if (avformat_open_input(&context, path.c_str(), kind, nullptr) < 0) return nullptr;
    Input input(context);
    if (avformat_find_stream_info(context, nullptr) < 0) return nullptr;
    return input;
}

Track track_of(const AVStream& stream) {
    Track track;
    const AVCodecParameters& parameters = *stream.codecpar;
    track.codec = avcodec_get_name(parameters.codec_id);
    track.width = parameters.width;
    track.height = parameters.height;
    track.sample_rate = parameters.sample_rate;
    track.has_parameter_sets = parameters.extradata_size > 0;
    return track;
}

}  // namespace

std::vector<Bytes> access_units(const std::string& path, const char* format) {
    std::vector<Bytes> units;
    for (Track& track : read_file(path, format)) {
        for (Packet& packet : track.packets) units.push_back(std::move(packet.data));
    }
    return units;
}

std::vector<Track> read_file(const std::string& path, const char* format) {
    const Input input = open_input(path, format);
    if (!input) return {};
    std::vector<Track> tracks;
    for (unsigned i = 0; i < input->nb_streams; ++i) tracks.push_back(track_of(*input->streams[i]));
    AVPacket* packet = av_packet_alloc();
    int result = 0;
    for (; (result = av_read_frame(input.get(), packet)) >= 0; av_packet_unref(packet)) {
        const AVRational base = input->streams[packet->stream_index]->time_base;
        tracks[packet->stream_index].packets.push_back({av_rescale_q(packet->pts, base, {1, 1000}),
                                                        (packet->flags & AV_PKT_FLAG_KEY) != 0,
                                                        Bytes(packet->data, packet->data + packet->size)});
    }
    av_packet_free(&packet);
    return result == AVERROR_EOF ? tracks : std::vector<Track>{};
}

std::vector<Bytes> units_of_annex_b(const Bytes& bytes) {
    std::vector<size_t> starts;
    for (size_t i = 0; i + 3 <= bytes.size(); ++i) {
        if (bytes[i] == 0 && bytes[i + 1] == 0 && bytes[i + 2] == 1) starts.push_back(i + 3);
    }
    std::vector<Bytes> units;
    for (size_t k = 0; k < starts.size(); ++k) {
        size_t end = k + 1 < starts.size() ? starts[k + 1] - 3 : bytes.size();
        while (end > starts[k] && bytes[end - 1] == 0) --end;
        units.emplace_back(bytes.begin() + static_cast<long>(starts[k]),
                           bytes.begin() + static_cast<long>(end));
    }
    return units;
}

std::vector<Bytes> units_of_packet(const Bytes& bytes) {
    Bytes annex_b = bytes;
    size_t at = 0;
    for (size_t length = 0; at + 4 <= bytes.size(); at += length) {
        length = size_t{bytes[at]} << 24 | bytes[at + 1] << 16 | bytes[at + 2] << 8 | bytes[at + 3];
        for (const uint8_t byte : {0, 0, 0, 1}) annex_b[at++] = byte;
    }
    return at == bytes.size() ? units_of_annex_b(annex_b) : std::vector<Bytes>{};
}

}  // namespace lenswire::recorder::media
