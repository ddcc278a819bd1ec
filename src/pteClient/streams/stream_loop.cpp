// All streams on one thread: wait for any of them, serve those that have data, give up those that are silent.
// A pass works on leases of the slots (stream_slots.h), since the host may open and close from inside every
// service that is called here.
#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>

#include "common/log.h"
#include "common/shared_word.h"
#include "common/steady_clock.h"
#include "common/timer_slack.h"
#include "lenswire/connection.h"
#include "lenswire/host_services.h"
#include "lenswire/stream.h"
#include "pteClient/streams/stream_slots.h"
#include "pteClient/waits.h"
#include "pteClient/wake_up.h"

using namespace lenswire;
using namespace lenswire::streams;

namespace {

constexpr char kThread[] = "PC_RecvStreamLoop";
constexpr int32_t kSilenceLimit = 5;
constexpr int32_t kStatisticsInterval = 2;
constexpr int kRestartMessage = 3;
constexpr int kReportKind = 2;

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
    ENGINE_ERROR_AS(kThread, "PostRestartMessageToQueue2.................. \n");
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
    // Also for a stream that has failed: what it brought until then counts.
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
        ENGINE_ERROR_AS(kThread, "channel:%d,stream:%d,PostRestartMessageToQueue3.................. \n",
                        info.ucChannelNo, info.ucStreamNo);
    });
}

void check_silence() {
    for (int i = 0; i < kSlots; ++i) {
        if (socket_of(i) == 0) continue;
        restart_if_silent(i, [](const DevChannelInfo& info) {
            ENGINE_ERROR_AS(kThread, "PostRestartMessageToQueue1.....[ch=%d][streamNo=%d]............. \n",
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
    g_stream_loop_wake_up.forget_if_closed();
}

int watch_open_slots(fd_set& readable) {
    FD_ZERO(&readable);
    int largest = std::max(g_stream_loop_wake_up.watch(readable), 0);
    for (int i = 0; i < kSlots; ++i) {
        const int fd = socket_of(i);
        if (fd <= 0 || fd >= FD_SETSIZE) continue;
        FD_SET(fd, &readable);
        largest = std::max(largest, fd);
    }
    return largest;
}

// Without a wake-up the wait must end in time by itself.
int wait_for_data(int largest, fd_set& readable) {
    timeval wait{.tv_sec = 0, .tv_usec = waits::kSelectUs};
    const TimerSlack slack(g_stream_loop_wake_up.is_open() ? waits::kSelectLateUs : 0);
    return select(largest + 1, &readable, nullptr, nullptr, &wait);
}

// The pause may last until the period of a pass that began at the given time is over, never longer than a
// period: the clock decides how late it may end, not how long it is.
void pause_after(int64_t pass_start_us) {
    const int64_t now_us = steady_us();
    const int64_t spent = pass_start_us < 0 || now_us < 0 ? waits::kServedPeriodUs : now_us - pass_start_us;
    const int64_t left = std::clamp<int64_t>(waits::kServedPeriodUs - spent, 1, waits::kServedPeriodUs);
    const TimerSlack slack(static_cast<unsigned long>(left));
    usleep(waits::kServedPauseUs);
}

void run_pass() {
    fd_set readable;
    const int largest = watch_open_slots(readable);
    int ready = wait_for_data(largest, readable);
    if (ready < 0 && errno == EBADF) restart_bad_descriptors();
    if (ready > 0 && g_stream_loop_wake_up.take(readable)) --ready;
    if (ready <= 0) {
        check_silence();
        return;
    }
    const int64_t start_us = steady_us();
    for (int i = 0; i < kSlots; ++i) serve_slot(i, readable);
    pause_after(start_us);
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
