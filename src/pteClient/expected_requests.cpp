#include "pteClient/expected_requests.h"

#include <atomic>
#include <cstdint>

#include "common/steady_clock.h"
#include "pteClient/waits.h"

namespace lenswire {

namespace {

// Milliseconds that wrap after 50 days, since 32 bits are what every processor reads at once; the queue is
// then polled closely for ten seconds without a reason.
std::atomic<uint32_t> g_announced_ms;

uint32_t to_ms(int64_t us) {
    return static_cast<uint32_t>(us / 1'000);
}

}  // namespace

void expect_stream_request() {
    if (const int64_t now_us = steady_us(); now_us >= 0) g_announced_ms = to_ms(now_us);
}

bool is_stream_request_expected() {
    const int64_t now_us = steady_us();
    return now_us < 0 || to_ms(now_us) - g_announced_ms < waits::kExpectedMs;
}

}  // namespace lenswire
