// A packet in the ring becomes a frame in the queue.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

#include "bench/cameras/video.h"
#include "bench/host/host.h"
#include "lenswire/host_services.h"
#include "lenswire/stream.h"

namespace {

using namespace lenswire::bench;

// As the receive loop finds it: the payload is first in the ring.
void put_payload(ReceiveBuffer& buffer, uint32_t length) {
    void* ring = reinterpret_cast<uint8_t*>(&buffer) + sizeof buffer.host_part;
    while (length > 0) {
        const int piece = std::min(static_cast<int>(length), ring_free_size_ex(ring));
        ring_set_data_end(ring, piece);
        length -= static_cast<uint32_t>(piece);
    }
}

void packet_to_frame(benchmark::State& state) {
    Host host(1);
    StreamHeadInfo header{};
    const auto length = static_cast<uint32_t>(state.range(0));
    header.ulFlag = LENSWIRE_FLAG_STREAM;
    header.ulDataInfo = length << LENSWIRE_PACKET_LENGTH_SHIFT |
                        (length == kAudioFrame ? LENSWIRE_PACKET_AUDIO : LENSWIRE_PACKET_VIDEO);
    int32_t number = 0, unused = 0, frames = 0, width = 0, height = 0;
    std::vector<uint8_t*> done;
    done.reserve(FrameQueue::kLongest);
    for (auto _ : state) {
        put_payload(host.buffer(0), length);
        PacketToFrameQueue(&header, 0, &host.buffer(0), &host.stream(0), &host.stream(0), 0, &number, &unused,
                           &frames, &width, &height, 0);
        host.consumer().queue(0).swap_out(done);
        host.consumer().pool().give_back(done);
        done.clear();
    }
    if (host.stream(0).refused != 0) state.SkipWithError("the host had no buffer");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * length));
}
BENCHMARK(packet_to_frame)->ArgName("payload")->Arg(kAudioFrame)->Arg(kSmallFrame)->Arg(kKeyFrame);

}  // namespace
