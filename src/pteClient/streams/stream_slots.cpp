#include "pteClient/streams/stream_slots.h"

#include <pthread.h>

#include "common/lock.h"
#include "common/shared_word.h"
#include "pteClient/wake_up.h"

int32_t arrayfd[LENSWIRE_STREAM_SLOTS], nodatatime[LENSWIRE_STREAM_SLOTS], tv1[LENSWIRE_STREAM_SLOTS],
    bitrate[LENSWIRE_STREAM_SLOTS], framecount[LENSWIRE_STREAM_SLOTS], framerate[LENSWIRE_STREAM_SLOTS],
    width[LENSWIRE_STREAM_SLOTS], height[LENSWIRE_STREAM_SLOTS], videoFrameNo[LENSWIRE_STREAM_SLOTS],
    startNo[LENSWIRE_STREAM_SLOTS], frameNo[LENSWIRE_STREAM_SLOTS], audioFrameNo[LENSWIRE_STREAM_SLOTS];
DevChannelInfo devchannelinfo[LENSWIRE_STREAM_SLOTS];

namespace lenswire::streams {

namespace {

pthread_mutex_t g_stream_slots_mutex = PTHREAD_MUTEX_INITIALIZER;
uint32_t g_generation[kSlots];

Counters read_counters(int i) {
    return {.nodatatime = nodatatime[i],
            .tv1 = tv1[i],
            .bitrate = bitrate[i],
            .framecount = framecount[i],
            .framerate = framerate[i],
            .width = width[i],
            .height = height[i],
            .videoFrameNo = videoFrameNo[i],
            .startNo = startNo[i],
            .frameNo = frameNo[i],
            .audioFrameNo = audioFrameNo[i]};
}

void write_counters(int i, const Counters& counters) {
    store_word(nodatatime[i], counters.nodatatime);
    store_word(tv1[i], counters.tv1);
    store_word(bitrate[i], counters.bitrate);
    store_word(framecount[i], counters.framecount);
    store_word(framerate[i], counters.framerate);
    store_word(width[i], counters.width);
    store_word(height[i], counters.height);
    store_word(videoFrameNo[i], counters.videoFrameNo);
    store_word(startNo[i], counters.startNo);
    store_word(frameNo[i], counters.frameNo);
    store_word(audioFrameNo[i], counters.audioFrameNo);
}

int find_free_slot() {
    for (int i = 0; i < kSlots; ++i) {
        if (socket_of(i) == 0) return i;
    }
    return kSlots;
}

int find_record(uint8_t channel, uint8_t stream) {
    for (int i = 0; i < kSlots; ++i) {
        if (devchannelinfo[i].ucChannelNo == channel && devchannelinfo[i].ucStreamNo == stream) return i;
    }
    return kSlots;
}

}  // namespace

int socket_of(int index) {
    return load_word(arrayfd[index]);
}

int32_t last_data(int index) {
    return load_word(nodatatime[index]);
}

bool has_free_slot() {
    return find_free_slot() < kSlots;
}

void open_slot(const DevChannelInfo& info, int fd, int32_t opened, int32_t last_data) {
    Lock lock(g_stream_slots_mutex);
    const int i = find_free_slot();
    if (i == kSlots) return;
    devchannelinfo[i] = info;
    ++g_generation[i];
    Counters counters{};
    counters.nodatatime = last_data;
    counters.tv1 = opened;
    counters.width = width[i];
    counters.height = height[i];
    write_counters(i, counters);
    store_word(arrayfd[i], fd);
    g_stream_loop_wake_up.raise();
}

void close_slot(uint8_t channel, uint8_t stream) {
    Lock lock(g_stream_slots_mutex);
    const int i = find_record(channel, stream);
    if (i == kSlots) return;
    store_word(arrayfd[i], 0);
    g_stream_loop_wake_up.raise();
}

Lease::Lease(int index) : index_(index) {
    Lock lock(g_stream_slots_mutex);
    fd_ = socket_of(index);
    if (fd_ == 0) return;
    generation_ = g_generation[index];
    info_ = devchannelinfo[index];
    counters = read_counters(index);
}

bool Lease::is_current() const {
    return g_generation[index_] == generation_;
}

void Lease::bring_back() const {
    Lock lock(g_stream_slots_mutex);
    if (is_current()) write_counters(index_, counters);
}

bool Lease::free_slot() const {
    Lock lock(g_stream_slots_mutex);
    if (!is_current() || socket_of(index_) == 0) return false;
    write_counters(index_, counters);
    store_word(arrayfd[index_], 0);
    return true;
}

}  // namespace lenswire::streams
