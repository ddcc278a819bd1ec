// A system that is unkind to the library: the program's own select, prctl, recv, fcntl and clock_gettime
// stand in front of libc's. They misbehave only as a test asks for, and only towards threads that are not the
// test's.
#pragma once

#include <atomic>

namespace lenswire::test {

struct UnkindSystem {
    // The loops' short waits in select end only when something happens.
    std::atomic<bool> endless_waits{false};
    // prctl fails at each thread's n-th call, 1 being its first, or always.
    std::atomic<int> refused_prctl{0};
    std::atomic<bool> refuses_every_prctl{false};
    // The next recv fails with this error; 0 for none.
    std::atomic<int> recv_error{0};
    std::atomic<int> received_from[1024]{};  // recv calls by descriptor
    // The next recv that brings something returns only when it is let go.
    enum class Hold { kNot, kNext, kHeld };
    std::atomic<Hold> recv_hold{Hold::kNot};
    // Every other reading of the monotonic clock fails, each thread's second first.
    std::atomic<bool> failing_clock{false};
    // Descriptors cannot be made non-blocking; the test's threads are not spared.
    std::atomic<bool> blocking_only{false};
};

UnkindSystem& unkind();

}  // namespace lenswire::test
