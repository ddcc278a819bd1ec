// Functions of libc that a test stands in for: the program's definition comes before libc's, for the library
// too.
#pragma once

#include <dlfcn.h>

#include <ctime>

// The libc function behind the program's own. One that knows about time has a second name where the first one
// counts seconds in 32 bits; the program's own definition carries it, too.
#define REAL(type, name) reinterpret_cast<type>(dlsym(RTLD_NEXT, #name))
#ifdef __USE_TIME_BITS64
#define REAL_TIMED(type, name) reinterpret_cast<type>(dlsym(RTLD_NEXT, "__" #name "64"))
#else
#define REAL_TIMED(type, name) REAL(type, name)
#endif
