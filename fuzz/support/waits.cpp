// Waits of the library that end at once: nothing else runs in a fuzz target that they could wait for.
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

#include "fuzz/support/camera_end.h"

extern "C" {

unsigned sleep(unsigned) {
    return 0;
}
int usleep(useconds_t) {
    return 0;
}

// Whoever waits for an answer gets what the camera has to say meanwhile.
int pthread_cond_clockwait(pthread_cond_t*, pthread_mutex_t* mutex, clockid_t, const timespec*) {
    pthread_mutex_unlock(mutex);
    const bool said = lenswire::fuzz::say_next_answer();
    pthread_mutex_lock(mutex);
    return said ? 0 : ETIMEDOUT;
}
}
