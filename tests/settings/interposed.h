// The process's clock and waits in the hands of a test: the program's own sleep, usleep, time, select, send,
// clock_gettime and pthread_cond_clockwait stand in front of libc's, for the library too. Outside the scope
// of a Timewarp they are as ever.
#pragma once

#include <ctime>
#include <functional>
#include <vector>

namespace lenswire::test {

// For its scope and its thread: sleeps return at once, a wait for something that is not there yet ends at
// once as one that timed out, and all of them are written down.
struct Timewarp {
    Timewarp() { current = this; }
    ~Timewarp() { current = nullptr; }
    inline static thread_local Timewarp* current = nullptr;

    std::vector<long> slept_us;
    std::vector<int> waited_s;        // pthread_cond_clockwait, on the monotonic clock
    std::vector<long> selected_ms;    // select that found nothing ready
    int failing_send = 0;             // the n-th from now on; 0 for none
    bool clock_fails = false;         // clock_gettime says so
    time_t moment = -1;               // time() gives this one; -1 for the time it is
    std::function<void()> meanwhile;  // what happens during such a select
};

}  // namespace lenswire::test
