// Clips as access units, and recorded files as packets, both read by libavformat.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lenswire::recorder::media {

using Bytes = std::vector<uint8_t>;

// The access units of a raw clip; format is libavformat's name of it, e.g. "h264".
std::vector<Bytes> access_units(const std::string& path, const char* format);

struct Packet {
    int64_t time_ms;
    bool key;
    Bytes data;
};

struct Track {
    std::string codec;  // libavcodec's name
    int width = 0, height = 0, sample_rate = 0;
    bool has_parameter_sets = false;
    std::vector<Packet> packets;
};

// The tracks of a file, of a format that libavformat finds out or is told; empty when it cannot be read to
// its end.
std::vector<Track> read_file(const std::string& path, const char* format = nullptr);

// What must survive the copy into a file: the units without their start codes or lengths.
std::vector<Bytes> units_of_annex_b(const Bytes& access_unit);
std::vector<Bytes> units_of_packet(const Bytes& packet);

}  // namespace lenswire::recorder::media
