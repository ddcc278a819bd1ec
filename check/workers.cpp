// The library's threads, and the two waits that a service may not bring about. The linker puts these
// functions between the library's objects and what they call; see CMakeLists.txt.
#include <pthread.h>
#include <ctime>

#include "check/report.h"
#include "check/thread.h"
#include "lenswire/connection.h"
#include "lenswire/stream.h"
#include "lenswire/upgrade.h"

using namespace lenswire::check;

namespace {

Service innermost() {
    return inside().entries[inside().depth - 1].service;
}

}  // namespace

extern "C" {

#define LENSWIRE_CHECK_BETWEEN(name)                     \
    decltype(name) real_##name __asm__("__real_" #name); \
    decltype(name) checked_##name __asm__("__wrap_" #name);

LENSWIRE_CHECK_BETWEEN(PC_EventLoop)
LENSWIRE_CHECK_BETWEEN(PC_RecvStreamLoop)
LENSWIRE_CHECK_BETWEEN(PC_GetQueueThread)
LENSWIRE_CHECK_BETWEEN(ipc_upgrade_thread)
LENSWIRE_CHECK_BETWEEN(pthread_join)

// Where seconds have a second width, the wait has a second name.
#if defined(__USE_TIME_BITS64) && __TIMESIZE == 32
#define LENSWIRE_CHECK_WAIT "__pthread_cond_clockwait64"
#else
#define LENSWIRE_CHECK_WAIT "pthread_cond_clockwait"
#endif
using Wait = int(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
Wait real_wait __asm__("__real_" LENSWIRE_CHECK_WAIT);
Wait checked_wait __asm__("__wrap_" LENSWIRE_CHECK_WAIT);

void checked_PC_EventLoop(void) {
    const Body body(Role::kEventLoop);
    real_PC_EventLoop();
}

void checked_PC_RecvStreamLoop(void) {
    const Body body(Role::kReceiveLoop);
    real_PC_RecvStreamLoop();
}

void checked_PC_GetQueueThread(void) {
    const Body body(Role::kQueue);
    real_PC_GetQueueThread();
}

void* checked_ipc_upgrade_thread(void* request) {
    const Body body(Role::kUpgrade);
    return real_ipc_upgrade_thread(request);
}

// PC_UnInitCtx alone joins threads.
int checked_pthread_join(pthread_t thread, void** result) {
    if (inside().depth > 0)
        report(kStopInside, innermost(), "it waits for the threads of the library, maybe for its own");
    return real_pthread_join(thread, result);
}

// Within Prv_GetCond_Property.
int checked_wait(pthread_cond_t* cond, pthread_mutex_t* mutex, clockid_t clock, const timespec* deadline) {
    if (role() == Role::kEventLoop && inside().depth > 0)
        report(kWaitInside, innermost(), "it waits for what the event loop would have to read");
    return real_wait(cond, mutex, clock, deadline);
}
}
