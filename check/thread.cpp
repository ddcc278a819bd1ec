// The library's threads, and the two waits that a service may not bring about. The linker puts these
// functions between the library's objects and what they call; see CMakeLists.txt.
#include "check/thread.h"

#include <pthread.h>
#include <ctime>

#include "check/report.h"
#include "lenswire/connection.h"
#include "lenswire/stream.h"
#include "lenswire/upgrade.h"

namespace lenswire::check {

namespace {

thread_local Role t_role;
thread_local Inside t_inside;
thread_local const void* t_ring;

// Says whose thread this is while a body of the library's runs on it.
class Body {
  public:
    explicit Body(Role role) : before_(t_role) { t_role = role; }
    ~Body() { t_role = before_; }
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;

  private:
    Role before_;
};

Service innermost() {
    return t_inside.entries[t_inside.depth - 1].service;
}

// Within Prv_GetCond_Property.
void look_at_wait() {
    if (t_role == Role::kEventLoop && t_inside.depth > 0)
        report(kWaitInside, innermost(), "it waits for what the event loop would have to read");
}

}  // namespace

Role role() {
    return t_role;
}

const char* role_name() {
    constexpr const char* kNames[] = {"the host's", "event loop", "receive loop", "queue thread",
                                      "upgrade thread"};
    return kNames[static_cast<int>(t_role)];
}

Inside& inside() {
    return t_inside;
}

void note_pass(const void* ring) {
    t_ring = ring;
}

const void* ring_of_pass() {
    return t_ring;
}

}  // namespace lenswire::check

using namespace lenswire::check;

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
    if (t_inside.depth > 0)
        report(kStopInside, innermost(), "it waits for the threads of the library, maybe for its own");
    return real_pthread_join(thread, result);
}

int checked_wait(pthread_cond_t* cond, pthread_mutex_t* mutex, clockid_t clock, const timespec* deadline) {
    look_at_wait();
    return real_wait(cond, mutex, clock, deadline);
}
}
