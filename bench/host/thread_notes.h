// What the host learns of the threads that call its services: where their stacks are, how often they allocate
// memory, and how much of its stack each had used when it ended.
#pragma once

#include <pthread.h>
#include <sys/types.h>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace lenswire::bench {

struct ThreadNote {
    pid_t thread;
    pthread_t handle;
    const uint64_t* allocations;  // of this thread, so far
};

// Notes the calling thread, the first time that it comes here.
void note_this_thread();
std::vector<ThreadNote> noted_threads();

// Of the noted threads: how many have ended, and how much of its stack the latest of them had used.
struct EndedThreads {
    size_t count;
    size_t latest_stack;
};
EndedThreads ended_threads();

// Calls of malloc and its kind by the calling thread so far.
uint64_t allocations_of_this_thread();

// How much of its stack a thread has ever used. The stack must have been fresh when the thread started.
size_t used_stack(pthread_t thread);

}  // namespace lenswire::bench
