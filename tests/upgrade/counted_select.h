// What an upgrade job's loop does between two waits: the program's own select stands in front of libc's, for
// the library too, and counts the calls of one thread.
#pragma once

#include <pthread.h>

namespace lenswire::test {

// Counts from now on, and the calls of this thread only.
void counts_selects_of(pthread_t thread);
int select_calls();
// How many times it has read what a call found, and come back.
int rounds_of_reading();
// How many descriptors the last call watched for writing.
int watched_for_writing();

}  // namespace lenswire::test
