// What this process holds: the things that must not grow.
#pragma once

#include <cstdint>
#include <cstdio>

namespace lenswire::bench::soak {

struct Holdings {
    int64_t heap_bytes;     // handed out by malloc
    int64_t library_bytes;  // pages that the library's data has of its own
    int64_t descriptors;
    int64_t threads;
    int64_t resident_bytes;  // printed only: it goes by whole pages, and by when malloc gives them back
};

Holdings count_holdings();

// Prints what has grown, over so many units of work. False when it is more than a leak-free library may.
bool report_growth(FILE* out, const char* what, int64_t count, const Holdings& before, const Holdings& after);

}  // namespace lenswire::bench::soak
