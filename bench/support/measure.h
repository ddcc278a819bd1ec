// Clocks, processor time and the figures made of them.
#pragma once

#include <sys/types.h>
#include <cstdint>
#include <set>
#include <vector>

namespace lenswire::bench {

// CLOCK_MONOTONIC, the same in every process.
int64_t now_ns();
void sleep_until(int64_t ns);
void sleep_ms(int64_t ms);

int64_t process_cpu_ns();
int64_t thread_cpu_ns(pid_t thread);
// How often the thread went to sleep of its own will.
int64_t thread_sleeps(pid_t thread);
// The threads of this process.
std::set<pid_t> threads();

// Keeps the calling thread, and what it starts from now on, on the processor of that number (0 or 1) among
// those that this process was given. With a single one nothing is done.
void stay_on_processor(int number);

// The value that the given share (0 to 1) of the values does not exceed; 0 when there are none.
int64_t percentile(std::vector<int64_t> values, double share);

// Ends the program with a message: a benchmark that cannot measure says so instead of giving figures.
[[noreturn]] void give_up(const char* what);

}  // namespace lenswire::bench
