// The stream slot tables.
//
// g_stream_slots_mutex guards the way of a slot between free and open, its record and the side table of
// generations: the queue thread opens and closes, the receive loop frees. Two threads and the host read
// arrayfd without it: a socket is stored there last of all when a slot opens, with release ordering.
//
// The receive loop serves a slot from a Lease, a copy of the slot as it was, and brings the counters back
// at the end. When the host had the slot closed and opened anew meanwhile, the generation differs and the
// new stream is left alone.
#pragma once

#include <cstdint>

#include "lenswire/stream.h"

namespace lenswire::streams {

constexpr int kSlots = LENSWIRE_STREAM_SLOTS;

// A slot's words in the exported tables, all but the socket.
struct Counters {
    int32_t nodatatime, tv1, bitrate, framecount, framerate, width, height, videoFrameNo, startNo, frameNo,
        audioFrameNo;
};

struct Lease {
    int index;
    uint32_t generation;
    int fd;
    DevChannelInfo info;
    Counters counters;
};

// The slot's socket, 0 when it is free.
int socket_of(int index);

// When the slot's stream last brought data, in uptime seconds.
int32_t last_data(int index);

// Opens the lowest free slot for the record. False when none is free.
bool open_slot(const DevChannelInfo& info, int fd, const Counters& counters);

// Frees the first slot, open or not, whose record names this channel and stream.
void close_slot(uint8_t channel, uint8_t stream);

// A copy of an open slot. False when it is free.
bool take_lease(int index, Lease& lease);

// Frees the leased slot. False when it is no longer the one that was leased.
bool free_slot(const Lease& lease);

// Writes the lease's counters back, unless the slot was opened anew.
void bring_back(const Lease& lease);

}  // namespace lenswire::streams
