// The tracks of a file as libavformat wants them described.
#pragma once

#include <string>

#include "recorder/media/matroska_writer.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace lenswire::recorder {

inline constexpr AVRational kMilliseconds = {1, 1000};

// Both false for want of memory. Sound is A-law, 8000 samples a second.
bool add_video(AVFormatContext* context, const TrackParameters& wanted, int frame_rate);
bool add_audio(AVFormatContext* context);

AVCodecID codec_id(VideoCodec codec);
std::string av_error_text(int error);

}  // namespace lenswire::recorder
