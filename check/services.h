// The two names of every service: real_NAME is the host's function, checked_NAME is what the library's
// objects call instead of it. The linker ties the knot: with --wrap=NAME, NAME in an object becomes
// __wrap_NAME, and
// __real_NAME becomes NAME. So the objects of the library are the very same in both plug-ins.
#pragma once

#include "lenswire/host_services.h"

extern "C" {
#define LENSWIRE_CHECK_SERVICE(name)                     \
    decltype(name) real_##name __asm__("__real_" #name); \
    decltype(name) checked_##name __asm__("__wrap_" #name);
LENSWIRE_HOST_SERVICES(LENSWIRE_CHECK_SERVICE)
#undef LENSWIRE_CHECK_SERVICE
}
