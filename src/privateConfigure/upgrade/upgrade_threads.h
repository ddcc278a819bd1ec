// The threads of upgrade jobs. They are detached, and yet an unload of the library waits for them.
#pragma once

#include <pthread.h>

namespace lenswire::upgrade {

// Starts ipc_upgrade_thread with this request, the host's signals blocked. False without memory or thread.
// One caller at a time.
bool start_thread(pthread_t& thread, void* request);

// Whether the library is being unloaded and waits for the threads.
bool is_unloading();

}  // namespace lenswire::upgrade
