// The stream slot tables.
//
// g_stream_slots_mutex guards the way of a slot between free and open, its record and its generation: the
// queue thread opens and closes, the receive loop frees. The host reads the tables at any time, and both
// threads read arrayfd without the lock: a socket is stored there last of all when a slot opens.
//
// The receive loop serves a slot on a lease, a copy of the slot as it was, and brings the counters back at
// the end. It frees only what it has leased: a slot that was opened anew meanwhile has another generation
// and is left alone. A close does not wait for the lease, since the host may ask for it from inside a
// service that the receive loop has called.
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

// The slot's socket, 0 when it is free.
int socket_of(int index);

// When the slot's stream last brought data, in uptime seconds.
int32_t last_data(int index);

// Only the queue thread opens slots, so a free one stays free until it does.
bool has_free_slot();

// Opens the lowest free slot at this second of uptime.
void open_slot(const DevChannelInfo& info, int fd, int32_t tv1, int32_t nodatatime);

// Frees the first slot, open or not, whose record names this channel and stream.
void close_slot(uint8_t channel, uint8_t stream);

// An open slot as the receive loop found it; false when it is free.
class Lease {
  public:
    explicit Lease(int index);
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;
    explicit operator bool() const { return fd_ != 0; }

    int fd() const { return fd_; }
    const DevChannelInfo& info() const { return info_; }
    Counters counters;

    // Writes the counters back, unless the slot was opened anew.
    void bring_back() const;
    // The same, and frees the slot. False when there is nothing of this lease left to free.
    bool free_slot() const;

  private:
    bool is_current() const;

    int index_;
    int fd_ = 0;
    uint32_t generation_ = 0;
    DevChannelInfo info_;
};

}  // namespace lenswire::streams
