// lenswire-cost frames|gets|pushes: fixed work of the library on one thread, for callgrind to count. Prints
// how often the work was done.
#include <arpa/inet.h>
#include <unistd.h>
#include <cstdio>
#include <cstring>
#include <map>
#include <string_view>

#include "bench/cameras/answers.h"
#include "bench/cost/work.h"
#include "bench/host/host.h"
#include "bench/support/measure.h"
#include "lenswire/connection.h"
#include "lenswire/records.h"
#include "lenswire/settings.h"

using namespace lenswire::bench;
using namespace lenswire::bench::cost;

namespace {

constexpr uint32_t kStreams = 16;
constexpr const char* kCamera = "127.0.0.1";

// A descriptor for the network's table; nothing is ever sent on it.
int any_descriptor() {
    const int fd = dup(STDERR_FILENO);
    if (fd < 0) give_up("a descriptor");
    return fd;
}

void drain(Host& host, std::vector<uint8_t*>& frames) {
    for (uint32_t stream = 0; stream < kStreams; ++stream) {
        host.consumer().queue(stream).swap_out(frames);
        host.consumer().pool().give_back(frames);
        frames.clear();
    }
}

// A packet of each stream before each of so many passes.
void receive_frames(Host& host, const int (&fds)[kStreams], uint32_t& number, uint32_t passes) {
    CameraPackets packets(kStreams);
    std::vector<uint8_t*> frames;
    frames.reserve(FrameQueue::kLongest);
    run_receive_loop([&, end = number + passes] {
        drain(host, frames);
        if (number == end) return false;
        for (uint32_t stream = 0; stream < kStreams; ++stream) {
            const PacketBytes packet = packets.packet(stream, number);
            network().brings(fds[stream], {packet.head, packet.body});
        }
        ++number;
        return true;
    });
}

int count_frames(Host& host) {
    constexpr uint32_t kPasses = 2 * kKeyInterval;  // one key frame of each stream
    int fds[kStreams];
    for (uint32_t stream = 0; stream < kStreams; ++stream) {
        arrayfd[stream] = fds[stream] = any_descriptor();
        devchannelinfo[stream].ucChannelNo = static_cast<uint8_t>(stream);
        devchannelinfo[stream].pRecvBuf = &host.buffer(stream);
        devchannelinfo[stream].pStream = &host.stream(stream);
    }
    uint32_t number = 0;
    receive_frames(host, fds, number, 10);
    const uint32_t before = host.stream(0).inserted;
    count_instructions([&] { receive_frames(host, fds, number, kPasses); });
    if (host.stream(0).inserted != before + kPasses) give_up("the frames did not come");
    return kPasses * kStreams;
}

void answer(int fd, std::vector<uint8_t> request) {
    network().brings(fd, {answer_first_of(request)});
}

StreamConn* log_in(Host& host) {
    for (uint32_t channel = 0; channel < kStreams; ++channel) host.channels.push_back({"127.0.0.9", 1});
    host.channels[3].address = kCamera;
    network().refuses_threads = true;
    network().sent = answer;
    network().awaited = PC_SingleStep;
    const LoginInfo info{"admin", "12345", {}};
    StreamConn* unit = PC_InitCtx() == 0 ? PC_CreateNew() : nullptr;
    if (unit == nullptr || PC_Login(unit, inet_addr(kCamera), 1, &info, 0, 0) != 0) give_up("PC_Login");
    return unit;
}

int count_gets(Host& host) {
    constexpr int kGets = 200;
    log_in(host);
    const auto get = [] {
        uint8_t image[36];
        if (Prv_GetIPCImageProperty(0, inet_addr(kCamera), image) != 0) give_up("a get");
    };
    get();
    count_instructions([&] {
        for (int i = 0; i < kGets; ++i) get();
    });
    return kGets;
}

int count_pushes(Host& host) {
    constexpr int kPushes = 200;
    CmdClient* client = log_in(host)->pCmdClient;
    const auto push = [&] {
        if (PC_SendHeartbeat(client) != 0) give_up("a heartbeat");
        count_instructions(PC_SingleStep);
    };
    for (int i = 0; i < kPushes; ++i) push();
    return kPushes;
}

}  // namespace

int main(int argc, char** argv) {
    const std::map<std::string_view, int (*)(Host&)> works = {
        {"frames", count_frames}, {"gets", count_gets}, {"pushes", count_pushes}};
    const auto work = works.find(argc == 2 ? argv[1] : "");
    if (work == works.end()) give_up("usage: lenswire-cost frames|gets|pushes");
    Host host(kStreams);
    host.clock_stands = true;
    host.consumer().stop();
    std::fprintf(stderr, "%d\n", work->second(host));
    // The context has no threads that a stop could end.
    std::fflush(nullptr);
    _exit(0);
}
