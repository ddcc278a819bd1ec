#include "bad_host.h"

using namespace lenswire::test;

extern "C" {
uint8_t ucAudioTypeFlag[256];
uint32_t uFreamCount[256];
uint32_t uFreamType[100];  // enough for the channels 0 to 99

// Nothing on the stack that a jump out of the service would leave behind.
#define LENSWIRE_SERVICE(result, name, parameters, ...)  \
    result name parameters {                             \
        if (bad.name) return bad.name(__VA_ARGS__);      \
        return lenswire::test::good_##name(__VA_ARGS__); \
    }
LENSWIRE_BAD_SERVICES(LENSWIRE_SERVICE)
}
