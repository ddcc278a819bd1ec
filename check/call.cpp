#include "check/call.h"

#include <pthread.h>

#include <cstdarg>
#include <cstring>
#include <ctime>

#include "check/memory.h"
#include "check/thread.h"

namespace lenswire::check {

namespace {

sigset_t signal_mask() {
    sigset_t mask;
    // The system fills in the first bytes alone.
    std::memset(&mask, 0, sizeof mask);
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return mask;
}

// Services that are noted below the present call on the stack cannot be running any more.
void forget_left_services(Inside& services, uintptr_t stack) {
    while (services.depth > 0) {
        const Inside::Entry& last = services.entries[services.depth - 1];
        if (last.stack > stack) return;
        --services.depth;
        report(kServiceLeft, last.service, "its call at %#lx has not returned and is gone",
               static_cast<unsigned long>(last.stack));
    }
}

}  // namespace

bool Call::expect(bool holds, Rule rule, const char* format, ...) const {
    if (holds) return true;
    va_list values;
    va_start(values, format);
    report_values(rule, service_, format, values);
    va_end(values);
    return false;
}

void Call::enter() {
    Inside& services = inside();
    const auto stack = reinterpret_cast<uintptr_t>(this);
    forget_left_services(services, stack);
    if (services.depth < Inside::kDeepest) services.entries[services.depth++] = {service_, stack};
    mask_ = signal_mask();
    start_us_ = steady_us();
    errno = error_;
}

void Call::leave() {
    error_ = errno;
    const int64_t now_us = steady_us();
    const int64_t spent_us = now_us - start_us_;
    expect(slow_ms() == 0 || now_us < 0 || start_us_ < 0 || spent_us <= slow_ms() * int64_t{1000},
           kServiceSlow, "%lld ms, %d allowed", static_cast<long long>(spent_us / 1000), slow_ms());
    const sigset_t mask = signal_mask();
    expect(std::memcmp(&mask, &mask_, sizeof mask) == 0, kSignalMask, "the mask is another one");
    Inside& services = inside();
    if (services.depth > 0 && services.entries[services.depth - 1].stack == reinterpret_cast<uintptr_t>(this))
        --services.depth;
}

}  // namespace lenswire::check
