#include "upgrade/counted_select.h"

#include <sys/select.h>

#include <atomic>

#include "support/interpose.h"

namespace lenswire::test {
namespace {

std::atomic<pthread_t> g_thread{};
std::atomic<int> g_calls{0};
std::atomic<int> g_writing{0};
std::atomic<int> g_rounds{0};
std::atomic<bool> g_found_readable{false};

int members(const fd_set* set, int end) {
    int count = 0;
    for (int i = 0; set != nullptr && i < end; ++i) count += FD_ISSET(i, set) ? 1 : 0;
    return count;
}

}  // namespace

void counts_selects_of(pthread_t thread) {
    g_calls = 0;
    g_rounds = 0;
    g_found_readable = false;
    g_thread = thread;
}

int select_calls() {
    return g_calls;
}

int rounds_of_reading() {
    return g_rounds;
}

int watched_for_writing() {
    return g_writing;
}

}  // namespace lenswire::test

extern "C" int select(int end, fd_set* readable, fd_set* writable, fd_set* failed, timeval* timeout) {
    using Select = int (*)(int, fd_set*, fd_set*, fd_set*, timeval*);
    static const auto real = REAL_TIMED(Select, select);
    using namespace lenswire::test;
    if (pthread_self() != g_thread.load()) {
        return real(end, readable, writable, failed, timeout);
    }
    g_writing = members(writable, end);
    if (g_found_readable) ++g_rounds;
    ++g_calls;
    const int result = real(end, readable, writable, failed, timeout);
    g_found_readable = result > 0 && members(readable, end) > 0;
    return result;
}
