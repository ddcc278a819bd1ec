#include "privateConfigure/upgrade/upgrade_threads.h"

#include <semaphore.h>
#include <unistd.h>

#include <atomic>

#include "common/host_signals.h"
#include "lenswire/upgrade.h"

namespace lenswire::upgrade {

namespace {

// A job's next step finds out about the unload, and a step is short unless the host is called and blocks.
// Looking every now and then for 5 seconds needs no clock.
constexpr int kUnloadLooks = 1'000;
constexpr useconds_t kUnloadLookPauseUs = 5'000;

// Whatever a thread does last in this library, to say that it has left, is done inside the library. So libc
// says it: the destructor of a thread's value is called when the thread's body has returned for good, and it
// is libc's own sem_post, on this semaphore. start_thread makes both, once; the unload takes them back.
sem_t g_left;
pthread_key_t g_key;
bool g_made;
std::atomic<int> g_started;  // threads for whose post nobody has waited
pid_t g_process;             // a fork has none of the threads
std::atomic<bool> g_unloading;

using ValueDestructor = void (*)(void*);

bool make_once() {
    if (g_made) return true;
    const auto post = reinterpret_cast<ValueDestructor>(reinterpret_cast<void (*)()>(&sem_post));
    g_made = sem_init(&g_left, 0, 0) == 0 && pthread_key_create(&g_key, post) == 0;
    return g_made;
}

void* job_thread(void* request) {
    // Without memory for the value it counts as gone from the begin.
    if (pthread_setspecific(g_key, &g_left) != 0) sem_post(&g_left);
    return ipc_upgrade_thread(request);
}

// Also runs at the end of the process, where it spares the threads a host that is being taken apart.
[[gnu::destructor]] void wait_for_threads() {
    if (!g_made || g_process != getpid()) return;
    g_unloading = true;
    for (int looks = 0; g_started > 0;) {
        if (sem_trywait(&g_left) == 0) {
            --g_started;
        } else if (++looks < kUnloadLooks) {
            usleep(kUnloadLookPauseUs);
        } else {
            return;
        }
    }
    pthread_key_delete(g_key);
    sem_destroy(&g_left);
}

}  // namespace

bool start_thread(pthread_t& thread, void* request) {
    if (!make_once()) return false;
    const HostSignalsBlocked blocked;
    if (pthread_create(&thread, nullptr, job_thread, request) != 0) return false;
    g_process = getpid();
    ++g_started;
    return true;
}

bool is_unloading() {
    return g_unloading;
}

}  // namespace lenswire::upgrade
