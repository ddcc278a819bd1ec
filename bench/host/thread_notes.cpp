#include "bench/host/thread_notes.h"

#include <unistd.h>
#include <mutex>

#include "bench/support/measure.h"

// The program's own malloc and its kind count, per thread, and leave the work to those of the C library.
// Sanitizers bring their own, and need them.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define LENSWIRE_BENCH_COUNTS_ALLOCATIONS
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
}
#endif

namespace {

thread_local uint64_t t_allocations = 0;
std::mutex g_mutex;
std::vector<lenswire::bench::ThreadNote> g_noted;
lenswire::bench::EndedThreads g_ended;

// One per noted thread: made when it is noted, gone when it ends.
struct Presence {
    Presence() {
        const std::lock_guard lock(g_mutex);
        g_noted.push_back({gettid(), pthread_self(), &t_allocations});
    }
    ~Presence() {
        const size_t used = lenswire::bench::used_stack(pthread_self());
        const std::lock_guard lock(g_mutex);
        std::erase_if(g_noted, [](const auto& note) { return note.thread == gettid(); });
        g_ended = {g_ended.count + 1, used};
    }
};

}  // namespace

#ifdef LENSWIRE_BENCH_COUNTS_ALLOCATIONS
extern "C" {

void* malloc(size_t size) {
    ++t_allocations;
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    ++t_allocations;
    return __libc_calloc(count, size);
}
void* realloc(void* pointer, size_t size) {
    ++t_allocations;
    return __libc_realloc(pointer, size);
}

}  // extern "C"
#endif

namespace lenswire::bench {

void note_this_thread() {
    static thread_local const Presence presence;
}

std::vector<ThreadNote> noted_threads() {
    const std::lock_guard lock(g_mutex);
    return g_noted;
}

EndedThreads ended_threads() {
    const std::lock_guard lock(g_mutex);
    return g_ended;
}

uint64_t allocations_of_this_thread() {
    return t_allocations;
}

__attribute__((no_sanitize("address"))) size_t used_stack(pthread_t thread) {
    pthread_attr_t attributes;
    void* lowest;
    size_t size;
    if (pthread_getattr_np(thread, &attributes) != 0 ||
        pthread_attr_getstack(&attributes, &lowest, &size) != 0) {
        give_up("where a stack is");
    }
    pthread_attr_destroy(&attributes);
    const auto* words = static_cast<const volatile uintptr_t*>(lowest);
    size_t untouched = 0;
    while (untouched < size / sizeof *words && words[untouched] == 0) ++untouched;
    return size - untouched * sizeof *words;
}

}  // namespace lenswire::bench
