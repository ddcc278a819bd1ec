// What a camera saw and sent, for tests and summaries.
#pragma once

#include <cstdint>

namespace lenswire::camera {

// One stream connection, also after it ended. A packet counts once the socket has taken it whole.
struct StreamStats {
    uint8_t channel = 0;
    uint8_t stream = 0;
    uint64_t video_frames = 0;
    uint64_t audio_frames = 0;
    uint64_t bytes = 0;               // of whole packets, headers included
    uint32_t first_timestamp_ms = 0;  // of video packets
    uint32_t last_timestamp_ms = 0;
    int64_t most_late_us = 0;  // how much later than due a packet was begun, at worst
    bool ended = false;        // nothing more is sent: the last frame, a fault or the end of the connection
    bool open = true;
};

// One firmware upload, also after it ended.
struct UploadStats {
    uint64_t announced = 0;  // by the header
    uint64_t received = 0;   // bytes behind the header, also those beyond the announced ones
    uint64_t checksum = 0;   // of a whole file, see Checksum
    bool complete = false;   // exactly the announced bytes have come
    bool answered = false;
    uint16_t state = 0;  // of the answer
    bool open = true;
};

struct CameraStats {
    uint64_t connections = 0;
    uint32_t connections_open = 0;
    uint32_t control_open = 0;  // logged-in control connections
    uint32_t streams_open = 0;
    uint64_t logins = 0;
    uint64_t refused_logins = 0;
    uint64_t heartbeats = 0;
    uint64_t commands = 0;         // whole messages of every kind
    uint64_t wrong_login_ids = 0;  // commands that needed a login id and carried another one
    uint64_t malformed = 0;        // messages that no recorder should send: wrong lengths, flags, tags
    uint64_t motion_pushes = 0;
    uint64_t uploads = 0;         // that were answered with success
    uint64_t failed_uploads = 0;  // that were answered with a failure
    uint64_t reboots = 0;
    uint64_t video_frames = 0;  // over all streams, ended ones included
    uint64_t audio_frames = 0;
    uint64_t stream_bytes = 0;
};

}  // namespace lenswire::camera
