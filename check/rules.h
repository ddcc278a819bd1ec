// The rules of rule_table.inc as constants.
#pragma once

#include <cstdint>

#include "lenswire/host_services.h"

namespace lenswire::check {

enum Rule : uint8_t {
#define LENSWIRE_RULE(number, constant, name, sentence) constant = (number),
#include "check/rule_table.inc"
#undef LENSWIRE_RULE
    kRules
};

// The host's services, named as they are.
enum class Service : uint8_t {
#define LENSWIRE_CHECK_ENUMERATOR(name) name,
    LENSWIRE_HOST_SERVICES(LENSWIRE_CHECK_ENUMERATOR)
#undef LENSWIRE_CHECK_ENUMERATOR
        kCount
};

}  // namespace lenswire::check
