#include "check/thread.h"

namespace lenswire::check {

namespace {

thread_local Role t_role;
thread_local Inside t_inside;
thread_local const void* t_ring;

}  // namespace

Body::Body(Role role) : before_(t_role) {
    t_role = role;
}

Body::~Body() {
    t_role = before_;
}

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
