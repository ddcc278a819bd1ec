// What the integrator reads: one line for each rule that a service broke, the first time it does.
//
//     LENSWIRE_CHECK_FILE     reports go to the end of this file instead of standard error
//     LENSWIRE_CHECK_ABORT    anything but empty or 0: the process ends by abort() after the first breach
//     LENSWIRE_CHECK_SLOW_MS  what service-slow allows, 0 for any time
//
// They are read when the library is loaded.
#pragma once

#include <cstdarg>

#include "check/rules.h"

namespace lenswire::check {

// Milliseconds that a service may take; 0 when nobody looks.
int slow_ms();

// Callable from any thread, with or without the check's own lock held. Writes at most one line per rule and
// service, with one call.
void report(Rule rule, Service service, const char* format, ...) __attribute__((format(printf, 3, 4)));
void report_values(Rule rule, Service service, const char* format, va_list values)
    __attribute__((format(printf, 3, 0)));

}  // namespace lenswire::check
