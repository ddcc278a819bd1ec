// Start and end: the tables first, then the threads that work on them; at the end the other way round.
#include <pthread.h>
#include <atomic>
#include <cstdio>

#include "common/host_signals.h"
#include "common/shared_word.h"
#include "common/stop.h"
#include "lenswire/command.h"
#include "lenswire/connection.h"
#include "lenswire/stream.h"
#include "pteClient/client_table.h"
#include "pteClient/expected_requests.h"
#include "pteClient/wake_up.h"

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
    WakeUp* wake_up;  // ends its wait; the queue thread polls
    pthread_t thread;
    bool started;
};

Worker g_workers[] = {
    {PC_G_EventLoopSwitch, thread_main<PC_EventLoop>, &g_event_loop_wake_up, {}, false},
    {PC_G_RecvStreamLoopSwitch, thread_main<PC_RecvStreamLoop>, &g_stream_loop_wake_up, {}, false},
    {PC_G_RecvQueue, thread_main<PC_GetQueueThread>, nullptr, {}, false},
};

std::atomic<bool> g_ctx_inited;
std::atomic<bool> g_running;  // from the one start to the one stop

bool start(Worker& worker, const pthread_attr_t& attributes) {
    if (worker.wake_up != nullptr) worker.wake_up->open();
    store_word(worker.run_switch, uint8_t{1});
    const HostSignalsBlocked blocked;
    worker.started = pthread_create(&worker.thread, &attributes, worker.main, nullptr) == 0;
    if (!worker.started && worker.wake_up != nullptr) worker.wake_up->close();
    return worker.started;
}

void stop(Worker& worker) {
    store_word(worker.run_switch, uint8_t{0});
    if (worker.wake_up != nullptr) worker.wake_up->raise();
    if (!worker.started) return;
    pthread_join(worker.thread, nullptr);
    if (worker.wake_up != nullptr) worker.wake_up->close();
}

}  // namespace

int PC_InitCtx(void) {
    if (g_ctx_inited.exchange(true)) return 0;
    clients::open_tables();
    g_running = true;
    expect_stream_request();
    pthread_attr_t attributes;
    const bool made = pthread_attr_init(&attributes) == 0;
    if (!made || pthread_attr_setstacksize(&attributes, kStackSize) != 0) {
        std::puts("pthread_create pthread_attr_setstacksize error ");
        if (made) pthread_attr_destroy(&attributes);
        return -1;
    }
    for (Worker& worker : g_workers) {
        if (!start(worker, attributes)) break;
    }
    pthread_attr_destroy(&attributes);
    return 0;
}

// One stop does the work; a second one neither repeats it nor waits for it. Once the tables are closed no
// request goes out any more, so those that wait then are all there are.
int PC_UnInitCtx(void) {
    if (!g_running.exchange(false)) return 0;
    for (Worker& worker : g_workers) stop(worker);
    clients::close_tables();
    for (RecvSendSlot& slot : g_recvsendlist) cond_post_error(&slot);
    ++g_complete_stops;
    return 0;
}
