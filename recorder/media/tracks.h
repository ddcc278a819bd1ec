// The tracks of a file as libavformat wants them described.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "recorder/media/access_unit.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace lenswire::recorder {

inline constexpr AVRational kMilliseconds = {1, 1000};

// 0, or an error of libav. A sequence of H.265 that is cut short is refused: see h265_sequence.h. Sound is
// A-law, 8000 samples a second.
int add_video(AVFormatContext* context, VideoCodec codec, int width, int height,
              std::span<const uint8_t> parameter_sets, int frame_rate);
int add_audio(AVFormatContext* context);

// Has what is written go to `receive`, with `self`; `seek` is null for what cannot be written over. 0, or an
// error of libav. And gives back the context with all of it; null is none.
int open_output(AVFormatContext* context, void* self, int (*receive)(void* self, uint8_t* data, int size),
                int64_t (*seek)(void* self, int64_t offset, int whence));
void close_output(AVFormatContext* context);

AVCodecID codec_id(VideoCodec codec);
std::string av_error_text(int error);

}  // namespace lenswire::recorder
