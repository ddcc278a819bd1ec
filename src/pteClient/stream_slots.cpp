#include "pteClient/stream_slots.h"

#include <pthread.h>
#include <atomic>

#include "common/lock.h"

int32_t arrayfd[LENSWIRE_STREAM_SLOTS], nodatatime[LENSWIRE_STREAM_SLOTS], tv1[LENSWIRE_STREAM_SLOTS],
    bitrate[LENSWIRE_STREAM_SLOTS], framecount[LENSWIRE_STREAM_SLOTS], framerate[LENSWIRE_STREAM_SLOTS],
    width[LENSWIRE_STREAM_SLOTS], height[LENSWIRE_STREAM_SLOTS], videoFrameNo[LENSWIRE_STREAM_SLOTS],
    startNo[LENSWIRE_STREAM_SLOTS], frameNo[LENSWIRE_STREAM_SLOTS], audioFrameNo[LENSWIRE_STREAM_SLOTS];
DevChannelInfo devchannelinfo[LENSWIRE_STREAM_SLOTS];

namespace lenswire::streams {

namespace {

pthread_mutex_t g_stream_slots_mutex = PTHREAD_MUTEX_INITIALIZER;
uint32_t g_generation[kSlots];

// The exported tables are read by the host at any time, one whole word each.
int32_t read(int32_t& word) {
    return std::atomic_ref<int32_t>(word).load(std::memory_order_relaxed);
}
void write(int32_t& word, int32_t value) {
    std::atomic_ref<int32_t>(word).store(value, std::memory_order_relaxed);
}
void publish_socket(int index, int fd) {
    std::atomic_ref<int32_t>(arrayfd[index]).store(fd, std::memory_order_release);
}

Counters read_counters(int i) {
    return {read(nodatatime[i]), read(tv1[i]),     read(bitrate[i]),     read(framecount[i]),
            read(framerate[i]),  read(width[i]),   read(height[i]),      read(videoFrameNo[i]),
            read(startNo[i]),    read(frameNo[i]), read(audioFrameNo[i])};
}

void write_counters(int i, const Counters& counters) {
    write(nodatatime[i], counters.nodatatime);
    write(tv1[i], counters.tv1);
    write(bitrate[i], counters.bitrate);
    write(framecount[i], counters.framecount);
    write(framerate[i], counters.framerate);
    write(width[i], counters.width);
    write(height[i], counters.height);
    write(videoFrameNo[i], counters.videoFrameNo);
    write(startNo[i], counters.startNo);
    write(frameNo[i], counters.frameNo);
    write(audioFrameNo[i], counters.audioFrameNo);
}

}  // namespace

int socket_of(int index) {
    return std::atomic_ref<int32_t>(arrayfd[index]).load(std::memory_order_acquire);
}

int32_t last_data(int index) {
    return read(nodatatime[index]);
}

bool open_slot(const DevChannelInfo& info, int fd, const Counters& counters) {
    Lock lock(g_stream_slots_mutex);
    for (int i = 0; i < kSlots; ++i) {
        if (socket_of(i) != 0) continue;
        devchannelinfo[i] = info;
        ++g_generation[i];
        Counters fresh = counters;
        fresh.width = read(width[i]);
        fresh.height = read(height[i]);
        write_counters(i, fresh);
        publish_socket(i, fd);
        return true;
    }
    return false;
}

void close_slot(uint8_t channel, uint8_t stream) {
    Lock lock(g_stream_slots_mutex);
    for (int i = 0; i < kSlots; ++i) {
        if (devchannelinfo[i].ucChannelNo != channel || devchannelinfo[i].ucStreamNo != stream) continue;
        publish_socket(i, 0);
        return;
    }
}

bool take_lease(int index, Lease& lease) {
    Lock lock(g_stream_slots_mutex);
    const int fd = socket_of(index);
    if (fd == 0) return false;
    lease.index = index;
    lease.generation = g_generation[index];
    lease.fd = fd;
    lease.info = devchannelinfo[index];
    lease.counters = read_counters(index);
    return true;
}

bool free_slot(const Lease& lease) {
    Lock lock(g_stream_slots_mutex);
    if (g_generation[lease.index] != lease.generation || socket_of(lease.index) == 0) return false;
    publish_socket(lease.index, 0);
    return true;
}

void bring_back(const Lease& lease) {
    Lock lock(g_stream_slots_mutex);
    if (g_generation[lease.index] == lease.generation) write_counters(lease.index, lease.counters);
}

}  // namespace lenswire::streams
