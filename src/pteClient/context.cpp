#include <pthread.h>
#include <signal.h>
#include <atomic>
#include <cstdio>

#include "common/shared_word.h"
#include "lenswire/connection.h"
#include "lenswire/stream.h"
#include "pteClient/client_table.h"

using namespace lenswire;

uint8_t PC_G_EventLoopSwitch, PC_G_RecvStreamLoopSwitch, PC_G_RecvQueue;

namespace {

constexpr size_t kStackSize = 0x100000;

template <void (*body)()>
void* thread_main(void*) {
    body();
    return nullptr;
}

// A worker runs while its switch is on. Started by PC_InitCtx, stopped by PC_UnInitCtx.
struct Worker {
    uint8_t& run_switch;
    void* (*main)(void*);
    pthread_t thread;
    bool started;
};

Worker g_workers[] = {
    {PC_G_EventLoopSwitch, thread_main<PC_EventLoop>, {}, false},
    {PC_G_RecvStreamLoopSwitch, thread_main<PC_RecvStreamLoop>, {}, false},
    {PC_G_RecvQueue, thread_main<PC_GetQueueThread>, {}, false},
};

std::atomic<bool> g_ctx_inited;

// The host's signals go to the host's threads: a new thread inherits what is blocked. Those that a thread
// brings on itself stay, for the host's crash handler.
bool start(Worker& worker, const pthread_attr_t& attributes) {
    sigset_t blocked, before;
    sigfillset(&blocked);
    for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
        sigdelset(&blocked, own);
    store_word(worker.run_switch, uint8_t{1});
    pthread_sigmask(SIG_SETMASK, &blocked, &before);
    worker.started = pthread_create(&worker.thread, &attributes, worker.main, nullptr) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return worker.started;
}

void stop(Worker& worker) {
    store_word(worker.run_switch, uint8_t{0});
    if (worker.started) pthread_join(worker.thread, nullptr);
    worker.started = false;
}

}  // namespace

int PC_InitCtx(void) {
    if (g_ctx_inited.exchange(true)) return 0;
    if (clients::open_tables() != 0) return 0;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (pthread_attr_setstacksize(&attributes, kStackSize) != 0) {
        std::puts("pthread_create pthread_attr_setstacksize error ");
        pthread_attr_destroy(&attributes);
        return -1;
    }
    for (Worker& worker : g_workers) {
        if (!start(worker, attributes)) break;
    }
    pthread_attr_destroy(&attributes);
    return 0;
}

int PC_UnInitCtx(void) {
    for (Worker& worker : g_workers) stop(worker);
    return clients::close_tables();
}
