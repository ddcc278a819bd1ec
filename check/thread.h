// What the check knows of the calling thread: whose it is, and which services it is inside of.
#pragma once

#include <cstdint>

#include "check/rules.h"

namespace lenswire::check {

enum class Role : uint8_t { kHost, kEventLoop, kReceiveLoop, kQueue, kUpgrade };

Role role();
const char* role_name();

// Says whose thread this is while a body of the library's runs on it.
class Body {
  public:
    explicit Body(Role role);
    ~Body();
    Body(const Body&) = delete;
    Body& operator=(const Body&) = delete;

  private:
    Role before_;
};

// The services that the thread is inside of, the innermost last. Deeper ones are not noted.
struct Inside {
    static constexpr int kDeepest = 16;
    struct Entry {
        Service service;
        uintptr_t stack;  // where the call stands on the stack, which grows downwards
    };
    Entry entries[kDeepest];
    int depth;
};
Inside& inside();

// The ring that the thread is receiving into, or did last.
void note_pass(const void* ring);
const void* ring_of_pass();

}  // namespace lenswire::check
