// The log line forms of the library, one macro each, format-checked by the compiler. Each line goes out
// in one call, so lines of several threads do not interleave. The file in a line is the layer's name.
//
// The function in a line is the exported operation's name: the plain macros take it from the function
// they stand in, the _AS macros are for shared code that speaks for an operation.
#pragma once

#include <cstdio>

#include "lenswire/host_services.h"

#define LENSWIRE_LAYER_CONFIGURE "src/privateConfigure"
#define LENSWIRE_LAYER_CLIENT "src/pteClient"

// All forms but FILE_LOG's: a prefix with the layer, the operation and the line.
#define LENSWIRE_LINE(stream, prefix, layer, operation, format, ...) \
    std::fprintf(stream, prefix format, layer, operation, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

// Configuration layer, standard output.
#define PRI_LOG_AS(operation, format, ...)                                           \
    LENSWIRE_LINE(stdout, "PRI_LOG %s-%s-%d: ", LENSWIRE_LAYER_CONFIGURE, operation, \
                  format __VA_OPT__(, ) __VA_ARGS__)
#define PRI_LOG(format, ...) PRI_LOG_AS(__func__, format __VA_OPT__(, ) __VA_ARGS__)

// Configuration layer, standard error.
#define PRI_ERROR_AS(operation, format, ...)                                 \
    LENSWIRE_LINE(stderr, "[%s:%s:%d]", LENSWIRE_LAYER_CONFIGURE, operation, \
                  format __VA_OPT__(, ) __VA_ARGS__)
#define PRI_ERROR(format, ...) PRI_ERROR_AS(__func__, ":" format __VA_OPT__(, ) __VA_ARGS__)

// Connection layer, standard output.
#define PRIVATE_LOG_AS(operation, format, ...)                                        \
    LENSWIRE_LINE(stdout, "PRIVATE_LOG %s-%s-%d: ", LENSWIRE_LAYER_CLIENT, operation, \
                  format __VA_OPT__(, ) __VA_ARGS__)
#define PRIVATE_LOG(format, ...) PRIVATE_LOG_AS(__func__, format __VA_OPT__(, ) __VA_ARGS__)
#define ENGINE_LOG_AS(operation, format, ...) \
    LENSWIRE_LINE(stdout, "[%s:%s:%d]:", LENSWIRE_LAYER_CLIENT, operation, format __VA_OPT__(, ) __VA_ARGS__)
#define FILE_LOG(format, ...) \
    std::printf("File: %s, Line: %05d: " format, LENSWIRE_LAYER_CLIENT, __LINE__ __VA_OPT__(, ) __VA_ARGS__)

// Connection layer, standard error.
#define ENGINE_ERROR_AS(operation, format, ...) \
    LENSWIRE_LINE(stderr, "[%s:%s:%d]:", LENSWIRE_LAYER_CLIENT, operation, format __VA_OPT__(, ) __VA_ARGS__)
#define ENGINE_ERROR(format, ...) ENGINE_ERROR_AS(__func__, format __VA_OPT__(, ) __VA_ARGS__)

// Diagnostics of the pending-request table, through the host.
#define DUMP(format, ...) \
    dump_printf(LENSWIRE_LAYER_CONFIGURE, __func__, __LINE__, format __VA_OPT__(, ) __VA_ARGS__)
