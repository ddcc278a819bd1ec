#include "bench/soak/holdings.h"

#include <malloc.h>
#include <unistd.h>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace lenswire::bench::soak {

namespace {

constexpr double kMostBytesPerThousand = 1024;

int64_t entries_in(const char* folder) {
    const std::filesystem::directory_iterator begin(folder);
    return std::distance(begin, {});
}

// The private pages of mappings whose name ends so, written or not; of all of them when it is empty.
int64_t sum_of(const std::string& field, const std::string& name) {
    std::ifstream smaps("/proc/self/smaps");
    int64_t kilobytes = 0;
    bool counts = false;
    for (std::string line; std::getline(smaps, line);) {
        std::istringstream words(line);
        std::string first;
        int64_t value = 0;
        words >> first;
        if (first.back() != ':') {
            counts = line.ends_with(name);
        } else if (counts && first == field && words >> value) {
            kilobytes += value;
        }
    }
    return kilobytes * 1024;
}

}  // namespace

Holdings count_holdings() {
    const struct mallinfo2 heap = mallinfo2();
    return {.heap_bytes = static_cast<int64_t>(heap.uordblks + heap.hblkhd),
            .library_bytes = sum_of("Private_Dirty:", "liblenswire.so"),
            .descriptors = entries_in("/proc/self/fd"),
            .threads = entries_in("/proc/self/task"),
            .resident_bytes = sum_of("Rss:", "")};
}

bool report_growth(FILE* out, const char* what, int64_t count, const Holdings& before,
                   const Holdings& after) {
    const int64_t bytes = after.heap_bytes - before.heap_bytes + after.library_bytes - before.library_bytes;
    const double per_thousand = static_cast<double>(bytes) * 1000 / static_cast<double>(count);
    const int64_t descriptors = after.descriptors - before.descriptors;
    const int64_t threads = after.threads - before.threads;
    const bool good = per_thousand < kMostBytesPerThousand && descriptors == 0 && threads == 0;
    std::fprintf(out,
                 "%s: %lld; grown by %.0f bytes per 1,000, %lld descriptors, %lld threads (resident memory "
                 "by %lld KB): %s\n",
                 what, static_cast<long long>(count), per_thousand, static_cast<long long>(descriptors),
                 static_cast<long long>(threads),
                 static_cast<long long>((after.resident_bytes - before.resident_bytes) / 1024),
                 good ? "good" : "TOO MUCH");
    std::fflush(out);
    return good;
}

}  // namespace lenswire::bench::soak
