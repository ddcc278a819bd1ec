#include "bench/support/measure.h"

#include <dirent.h>
#include <sched.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>

namespace lenswire::bench {

namespace {

constexpr int64_t kSecond = 1'000'000'000;

int64_t read_clock(clockid_t clock) {
    timespec time{};
    if (clock_gettime(clock, &time) != 0) give_up("clock_gettime");
    return time.tv_sec * kSecond + time.tv_nsec;
}

// The kernel's number for the processor time of any thread of this process, as pthread_getcpuclockid
// gives it for threads whose pthread_t is at hand.
clockid_t thread_clock(pid_t thread) {
    constexpr int kPerThread = 4;
    constexpr int kScheduled = 2;
    return static_cast<clockid_t>(~static_cast<unsigned>(thread) << 3 | kPerThread | kScheduled);
}

}  // namespace

int64_t now_ns() {
    return read_clock(CLOCK_MONOTONIC);
}

void sleep_until(int64_t ns) {
    const timespec time{.tv_sec = ns / kSecond, .tv_nsec = ns % kSecond};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) {
    }
}

void sleep_ms(int64_t ms) {
    sleep_until(now_ns() + ms * 1'000'000);
}

int64_t process_cpu_ns() {
    return read_clock(CLOCK_PROCESS_CPUTIME_ID);
}

int64_t thread_cpu_ns(pid_t thread) {
    return read_clock(thread_clock(thread));
}

int64_t thread_sleeps(pid_t thread) {
    std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
    const std::string key = "voluntary_ctxt_switches:";
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(key)) return std::stoll(line.substr(key.size()));
    }
    give_up("no count of context switches");
}

std::set<pid_t> threads() {
    std::set<pid_t> found;
    DIR* folder = opendir("/proc/self/task");
    if (folder == nullptr) give_up("/proc/self/task");
    while (const dirent* entry = readdir(folder)) {
        if (const pid_t thread = std::atoi(entry->d_name); thread > 0) found.insert(thread);
    }
    closedir(folder);
    return found;
}

void stay_on_processor(int number) {
    static const cpu_set_t given = [] {
        cpu_set_t set;
        if (sched_getaffinity(0, sizeof set, &set) != 0) give_up("sched_getaffinity");
        return set;
    }();
    if (CPU_COUNT(&given) < 2) return;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (!CPU_ISSET(cpu, &given) || number-- > 0) continue;
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(cpu, &one);
        if (sched_setaffinity(0, sizeof one, &one) != 0) give_up("sched_setaffinity");
        return;
    }
}

int64_t percentile(std::vector<int64_t> values, double share) {
    if (values.empty()) return 0;
    const auto rank = static_cast<ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + rank, values.end());
    return values[static_cast<size_t>(rank)];
}

void give_up(const char* what) {
    std::fprintf(stderr, "lenswire-bench: %s: %m\n", what);
    std::exit(1);
}

}  // namespace lenswire::bench
