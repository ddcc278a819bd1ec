// What libav gives out, given back with its owner.
#pragma once

#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace lenswire::recorder {

struct FreeLibav {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using Codec = std::unique_ptr<AVCodecContext, FreeLibav>;
using Frame = std::unique_ptr<AVFrame, FreeLibav>;
using Packet = std::unique_ptr<AVPacket, FreeLibav>;

}  // namespace lenswire::recorder
