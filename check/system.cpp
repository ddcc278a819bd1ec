// Memory, diagnostics, clock.
#include <cstdarg>
#include <cstdio>

#include "check/call.h"
#include "check/memory.h"
#include "check/services.h"

using namespace lenswire::check;

namespace {

// What malloc promises on every platform.
constexpr size_t kAlignment = 2 * sizeof(void*);
constexpr int32_t kMostAhead_s = 60;
// Goes on while the machine sleeps, as a host's may.
constexpr clockid_t kClock = CLOCK_BOOTTIME;

// Memory that the host gave and did not get back. What does not fit in here is not watched.
struct Block {
    const void* start;
    size_t size;
};
Block g_blocks[4096];
int g_block_count;

// What overlaps the new memory; a size of 0 when nothing does, as far as is known.
Block take_note(const void* start, size_t size) {
    const Lock lock;
    Block other{};
    for (int i = 0; i < g_block_count && other.size == 0; ++i) {
        if (overlap(start, size, g_blocks[i].start, g_blocks[i].size)) other = g_blocks[i];
    }
    if (g_block_count < static_cast<int>(sizeof g_blocks / sizeof *g_blocks))
        g_blocks[g_block_count++] = {start, size};
    return other;
}

// Before the host has it back, and may give it to another thread.
void forget(const void* start) {
    const Lock lock;
    for (int i = g_block_count - 1; i >= 0; --i) {
        if (g_blocks[i].start != start) continue;
        g_blocks[i] = g_blocks[--g_block_count];
        return;
    }
}

// The latest reading of the host's clock, and the first one beside the system's.
struct Clock {
    bool is_known;
    uint32_t latest;
    uint32_t first;
    int64_t first_us;
};
Clock g_clock;

Clock clock_now() {
    const Lock lock;
    return g_clock;
}

int32_t difference(uint32_t later, uint32_t earlier) {
    return static_cast<int32_t>(later - earlier);
}

void note_reading(uint32_t seconds, bool is_anew) {
    const Lock lock;
    if (is_anew || !g_clock.is_known) g_clock = {true, seconds, seconds, steady_us(kClock)};
    if (difference(seconds, g_clock.latest) > 0) g_clock.latest = seconds;
}

}  // namespace

extern "C" {

void* checked_MeMalloc(int size, const char* file, int line) {
    Call call(Service::MeMalloc);
    void* memory = call.into(real_MeMalloc, size, file, line);
    if (memory == nullptr || size <= 0) return memory;
    const auto length = static_cast<size_t>(size);
    call.expect(is_aligned(memory, kAlignment), kMemoryUnaligned, "%d bytes at %p", size, memory);
    const Block other = take_note(memory, length);
    const Rule rule = other.start == memory ? kMemoryTwice : kMemorySmall;
    call.expect(other.size == 0, rule, "%d bytes at %p, and %u bytes at %p are not freed", size, memory,
                static_cast<unsigned>(other.size), other.start);
    return memory;
}

void checked_MeFree(void* pointer, const char* file, int line) {
    Call call(Service::MeFree);
    forget(pointer);
    call.into(real_MeFree, pointer, file, line);
}

int checked_dump_printf(const char* file, const char* function, int line, const char* format, ...) {
    Call call(Service::dump_printf);
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return call.into(real_dump_printf, file, function, line, "%s", static_cast<const char*>(text));
}

// The reading before was complete when this one began, on whichever thread.
uint32_t checked_uptime(void) {
    Call call(Service::uptime);
    const Clock before = clock_now();
    const uint32_t seconds = call.into(real_uptime);
    if (!before.is_known) {
        note_reading(seconds, false);
        return seconds;
    }
    const bool goes_on = call.expect(difference(seconds, before.latest) >= 0, kClockBack, "%u after %u",
                                     seconds, before.latest);
    const int64_t now_us = steady_us(kClock);
    const int64_t passed_s = (now_us - before.first_us) / 1'000'000;
    const bool is_timed = now_us >= 0 && before.first_us >= 0;
    const bool is_slow = call.expect(
        !is_timed || difference(seconds, before.first) - passed_s <= kMostAhead_s, kClockFast,
        "%u after %u, and %lld seconds have passed", seconds, before.first, static_cast<long long>(passed_s));
    note_reading(seconds, !goes_on || !is_slow);
    return seconds;
}
}
