// Cutting what a control connection brought into messages.
#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

#include "lenswire/records.h"
#include "pteClient/message_cutter.h"

namespace {

std::vector<uint8_t> messages(size_t count, uint32_t payload_bytes) {
    PrivateCmd header{};
    header.usCmd = LENSWIRE_CMD_IMAGE_GET;
    header.ulBufferSize = payload_bytes;
    header.ulBufferNum = 1;
    const size_t length = sizeof header + payload_bytes;
    std::vector<uint8_t> bytes(count * length);
    for (size_t i = 0; i < count; ++i) std::memcpy(bytes.data() + i * length, &header, sizeof header);
    return bytes;
}

void cut(benchmark::State& state) {
    const auto count = static_cast<size_t>(state.range(0));
    const std::vector<uint8_t> bytes = messages(count, static_cast<uint32_t>(state.range(1)));
    for (auto _ : state) {
        lenswire::Cut result = lenswire::cut_messages(bytes);
        if (result.whole_bytes != bytes.size()) state.SkipWithError("not all messages were found");
        benchmark::DoNotOptimize(result);
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * count));
}
BENCHMARK(cut)
    ->Name("cut_messages")
    ->ArgNames({"messages", "payload"})
    ->Args({1, 36})
    ->Args({16, 36})
    ->Args({2, 4064});

}  // namespace
