// Host services: memory, diagnostics, the clock.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "lenswire/host_services.h"
#include "recorder/host/host.h"

using lenswire::recorder::Host;

namespace {

time_t monotonic_seconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

const time_t g_started = monotonic_seconds();

}  // namespace

void* MeMalloc(int size, const char*, int) {
    Host* host = Host::current();
    void* memory = size > 0 ? std::malloc(static_cast<size_t>(size)) : nullptr;
    if (memory != nullptr && host != nullptr) ++host->library_allocations;
    return memory;
}

void MeFree(void* pointer, const char*, int) {
    Host* host = Host::current();
    if (pointer != nullptr && host != nullptr) --host->library_allocations;
    std::free(pointer);
}

// Goes where the library's other lines go.
int dump_printf(const char* file, const char* function, int line, const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    char text[512];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::fprintf(stderr, "[%s:%s:%d]:%s\n", file, function, line, text);
    return length;
}

uint32_t uptime() {
    return static_cast<uint32_t>(monotonic_seconds() - g_started);
}
