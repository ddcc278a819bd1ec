#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "common/log.h"
#include "common/shared_word.h"
#include "common/timer_slack.h"
#include "lenswire/connection.h"
#include "lenswire/host_services.h"
#include "lenswire/stream.h"
#include "pteClient/stream_slots.h"

using namespace lenswire;
using namespace lenswire::streams;

namespace {

constexpr suseconds_t kWaitUs = 1'000;
constexpr useconds_t kServedPauseUs = 1;
// Passes that begin some milliseconds apart serve several streams each: see docs/performance.md.
constexpr int64_t kPassPeriodUs = 3'200;
constexpr int32_t kSilenceLimit = 5;
constexpr int32_t kStatisticsInterval = 2;
constexpr int kRestartMessage = 3;
constexpr int kReportKind = 2;

#define LOOP_ERROR(format, ...)                                                            \
    std::fprintf(stderr, "[%s:%s:%d]:" format, LENSWIRE_LAYER_CLIENT, "PC_RecvStreamLoop", \
                 __LINE__ __VA_OPT__(, ) __VA_ARGS__)

int32_t now() {
    return static_cast<int32_t>(uptime());
}

// The host's clock may wrap: differences are formed modulo 2^32 and read as signed.
int32_t seconds_between(int32_t earlier, int32_t later) {
    return static_cast<int32_t>(static_cast<uint32_t>(later) - static_cast<uint32_t>(earlier));
}

bool is_silent(int32_t last, int32_t at) {
    return seconds_between(last, at) > kSilenceLimit;
}

// Frees the slot of a stream that has been silent for too long and tells the host, then `after`.
template <typename After>
void restart_if_silent(int index, After after) {
    const int32_t at = now();
    if (!is_silent(last_data(index), at)) return;
    Lease lease(index);
    if (!lease || !is_silent(lease.counters.nodatatime, at)) return;
    lease.counters.nodatatime = at;
    if (!lease.free_slot()) return;
    PostRestartMessageToQueue(lease.info().ucChannelNo, lease.info().ucStreamNo);
    after(lease.info());
}

void restart_failed(const Lease& lease) {
    if (!lease.free_slot()) return;
    PostRestartMessageToQueue(lease.info().ucChannelNo, lease.info().ucStreamNo);
    LOOP_ERROR("PostRestartMessageToQueue2.................. \n");
}

void update_statistics(Lease& lease) {
    Counters& counters = lease.counters;
    const int32_t at = now();
    const int32_t elapsed = seconds_between(counters.tv1, at);
    if (elapsed > kStatisticsInterval) {
        const int channel = lease.info().ucChannelNo;
        const int stream = lease.info().ucStreamNo;
        const int32_t frame_rate = counters.framecount / elapsed;
        if (frame_rate != 0) counters.framerate = frame_rate;
        const int32_t bytes_per_second = counters.bitrate / elapsed;
        Private_Protocol_SetRecvBit(channel, stream, bytes_per_second, counters.width, counters.height);
        libVideoInfoSetNetworkParam(channel, stream, kReportKind, counters.framerate, bytes_per_second);
        counters.bitrate = 0;
        counters.framecount = 0;
        counters.tv1 = now();
        counters.startNo = counters.videoFrameNo;
    }
    counters.nodatatime = at;
    lease.bring_back();
}

void serve_readable(Lease& lease) {
    const DevChannelInfo& info = lease.info();
    Counters& counters = lease.counters;
    const int result = RecvStreamToPacketBuf(info.ucChannelNo, info.ucStreamNo, &counters.frameNo, lease.fd(),
                                             counters.framerate, &counters.bitrate, info.pRecvBuf,
                                             info.pStream, &counters.videoFrameNo, &counters.audioFrameNo,
                                             &counters.framecount, &counters.width, &counters.height);
    if (result == 0) return;
    if (result < 0) restart_failed(lease);
    update_statistics(lease);
}

bool is_in(const fd_set& set, int fd) {
    return fd > 0 && fd < FD_SETSIZE && FD_ISSET(fd, &set);
}

void serve_slot(int index, const fd_set& readable) {
    const int fd = socket_of(index);
    if (fd == 0) return;
    if (is_in(readable, fd)) {
        Lease lease(index);
        if (is_in(readable, lease.fd())) serve_readable(lease);
        return;
    }
    restart_if_silent(index, [](const DevChannelInfo& info) {
        ucAudioTypeFlag[info.ucChannelNo] = 0;
        LOOP_ERROR("channel:%d,stream:%d,PostRestartMessageToQueue3.................. \n", info.ucChannelNo,
                   info.ucStreamNo);
    });
}

void check_silence() {
    for (int i = 0; i < kSlots; ++i) {
        if (socket_of(i) == 0) continue;
        restart_if_silent(i, [](const DevChannelInfo& info) {
            LOOP_ERROR("PostRestartMessageToQueue1.....[ch=%d][streamNo=%d]............. \n",
                       info.ucChannelNo, info.ucStreamNo);
        });
    }
}

// A descriptor that the host closed makes every select fail: its stream fails, the others go on.
void restart_bad_descriptors() {
    for (int i = 0; i < kSlots; ++i) {
        if (socket_of(i) == 0) continue;
        const Lease lease(i);
        if (lease && fcntl(lease.fd(), F_GETFD) < 0) restart_failed(lease);
    }
}

int watch_open_slots(fd_set& readable) {
    int largest = 0;
    FD_ZERO(&readable);
    for (int i = 0; i < kSlots; ++i) {
        const int fd = socket_of(i);
        if (fd <= 0 || fd >= FD_SETSIZE) continue;
        FD_SET(fd, &readable);
        largest = std::max(largest, fd);
    }
    return largest;
}

// The end of this wait may come late: data wakes it, and a slot that opens meanwhile waits for the next.
int wait_for_data(int largest, fd_set& readable) {
    const TimerSlack slack(kIdleSlackUs);
    timeval wait{.tv_sec = 0, .tv_usec = kWaitUs};
    return select(largest + 1, &readable, nullptr, nullptr, &wait);
}

int64_t steady_us() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1'000;
}

// The pause may last until the period of a pass that began at the given time is over.
void pause_after(int64_t pass_start_us) {
    const int64_t left = kPassPeriodUs - (steady_us() - pass_start_us);
    const TimerSlack slack(static_cast<unsigned long>(std::max<int64_t>(left, 1)));
    usleep(kServedPauseUs);
}

void run_pass() {
    fd_set readable;
    const int largest = watch_open_slots(readable);
    const int ready = wait_for_data(largest, readable);
    if (ready > 0) {
        const int64_t start = steady_us();
        for (int i = 0; i < kSlots; ++i) serve_slot(i, readable);
        pause_after(start);
        return;
    }
    if (ready < 0 && errno == EBADF) restart_bad_descriptors();
    check_silence();
}

}  // namespace

void PC_RecvStreamLoop(void) {
    while (load_word(PC_G_RecvStreamLoopSwitch) != 0) run_pass();
    std::puts("+++++++++PC_RecvStreamLoop thread exit+++++++++");
}

int PostRestartMessageToQueue(int channel, int stream) {
    StreamRequest message{};
    message.ulType = STREAM_REQ_RESTART;
    return networkInsertMessageToQueue(channel, stream, &message, kRestartMessage);
}
