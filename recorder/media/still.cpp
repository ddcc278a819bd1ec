#include "recorder/media/still.h"

#include <algorithm>
#include <array>

#include "recorder/media/libav.h"
#include "recorder/media/tracks.h"

namespace lenswire::recorder {
namespace {

constexpr int kQuality = 3;  // of 2, the best, to 31

// A picture of 8 bits with chroma at half the width and height, as cameras send it.
bool is_usual(int format) {
    return format == AV_PIX_FMT_YUV420P || format == AV_PIX_FMT_YUVJ420P;
}

Frame decode(VideoCodec codec, std::span<const uint8_t> data) {
    const AVCodec* decoder = avcodec_find_decoder(codec_id(codec));
    const Codec context(decoder != nullptr ? avcodec_alloc_context3(decoder) : nullptr);
    const Packet packet(av_packet_alloc());
    Frame frame(av_frame_alloc());
    if (!context || !packet || !frame) return nullptr;
    context->thread_count = 1;
    packet->data = const_cast<uint8_t*>(data.data());
    packet->size = static_cast<int>(data.size());
    if (avcodec_open2(context.get(), decoder, nullptr) < 0) return nullptr;
    if (avcodec_send_packet(context.get(), packet.get()) < 0) return nullptr;
    avcodec_send_packet(context.get(), nullptr);
    return avcodec_receive_frame(context.get(), frame.get()) < 0 ? nullptr : std::move(frame);
}

// Video counts from 16 to 235 and its colours to 240, JPEG from 0 to 255.
void widen_range(AVFrame& frame) {
    for (int plane = 0; plane < 3; ++plane) {
        std::array<uint8_t, 256> wide{};
        const double scale = 255.0 / (plane == 0 ? 219 : 224);
        for (int i = 0; i < 256; ++i) {
            const double value = plane == 0 ? (i - 16) * scale : (i - 128) * scale + 128;
            wide[static_cast<size_t>(i)] = static_cast<uint8_t>(std::clamp(value + 0.5, 0.0, 255.0));
        }
        const int lines = plane == 0 ? frame.height : (frame.height + 1) / 2;
        const int width = plane == 0 ? frame.width : (frame.width + 1) / 2;
        for (int y = 0; y < lines; ++y) {
            uint8_t* line = frame.data[plane] + static_cast<ptrdiff_t>(y) * frame.linesize[plane];
            std::transform(line, line + width, line, [&](uint8_t value) { return wide[value]; });
        }
    }
}

std::vector<uint8_t> encode(AVFrame& frame) {
    const AVCodec* encoder = avcodec_find_encoder(AV_CODEC_ID_MJPEG);
    const Codec context(encoder != nullptr ? avcodec_alloc_context3(encoder) : nullptr);
    const Packet packet(av_packet_alloc());
    if (!context || !packet) return {};
    context->width = frame.width;
    context->height = frame.height;
    context->pix_fmt = AV_PIX_FMT_YUVJ420P;
    context->time_base = {1, 25};
    context->flags |= AV_CODEC_FLAG_QSCALE;
    context->global_quality = FF_QP2LAMBDA * kQuality;
    frame.format = AV_PIX_FMT_YUVJ420P;
    frame.color_range = AVCOL_RANGE_JPEG;
    frame.quality = context->global_quality;
    frame.pict_type = AV_PICTURE_TYPE_NONE;
    frame.pts = 0;
    if (avcodec_open2(context.get(), encoder, nullptr) < 0) return {};
    if (avcodec_send_frame(context.get(), &frame) < 0) return {};
    if (avcodec_receive_packet(context.get(), packet.get()) < 0) return {};
    return {packet->data, packet->data + packet->size};
}

}  // namespace

std::vector<uint8_t> jpeg_of_key_frame(VideoCodec codec, std::span<const uint8_t> data, std::string& error) {
    if (codec == VideoCodec::kJpeg) return {data.begin(), data.end()};
    const int level = av_log_get_level();
    av_log_set_level(AV_LOG_QUIET);
    std::vector<uint8_t> jpeg;
    const Frame frame = decode(codec, data);
    if (!frame) {
        error = "the picture cannot be decoded";
    } else if (!is_usual(frame->format) || av_frame_make_writable(frame.get()) < 0) {
        error = "the picture is of an unusual format";
    } else {
        if (frame->format == AV_PIX_FMT_YUV420P && frame->color_range != AVCOL_RANGE_JPEG)
            widen_range(*frame);
        jpeg = encode(*frame);
        if (jpeg.empty()) error = "no JPEG can be made of the picture";
    }
    av_log_set_level(level);
    return jpeg;
}

}  // namespace lenswire::recorder
