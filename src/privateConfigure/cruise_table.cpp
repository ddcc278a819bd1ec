#include "privateConfigure/cruise_table.h"

#include <pthread.h>

#include <cstring>

#include "common/lock.h"
#include "common/wire.h"

uint8_t gp_private_ptzCruise[74880];

namespace lenswire::cruise {

namespace {

static_assert(sizeof gp_private_ptzCruise == kChannels * sizeof(Block));

// g_cruise_mutex guards gp_private_ptzCruise, which any host thread reads and writes through these functions.
// It is held while lines are copied in or out, never across a call into the host or a send.
pthread_mutex_t g_cruise_mutex = PTHREAD_MUTEX_INITIALIZER;

uint8_t* place_of(uint32_t channel, uint32_t line) {
    return gp_private_ptzCruise + channel * sizeof(Block) + line * sizeof(CruiseLine);
}

// The rest of this namespace runs under the lock.

CruiseLine line_at(uint32_t channel, uint32_t line) {
    auto record = wire::load<CruiseLine>(place_of(channel, line));
    record.ucLineNo = static_cast<uint8_t>(line);
    return record;
}

void put_line(uint32_t channel, const CruiseLine& line) {
    wire::store(place_of(channel, line.ucLineNo), line);
}

CruiseLine put_enable(uint32_t channel, uint32_t line, uint8_t flag) {
    place_of(channel, line)[offsetof(CruiseLine, ucEnable)] = flag;
    return line_at(channel, line);
}

int find_enabled(uint32_t channel) {
    for (uint32_t line = 0; line < kLines; ++line) {
        if (line_at(channel, line).ucEnable != 0) return static_cast<int>(line);
    }
    return kNone;
}

bool put_other_disabled(uint32_t channel, uint32_t line, CruiseLine& disabled) {
    const int enabled = find_enabled(channel);
    if (enabled == kNone || static_cast<uint32_t>(enabled) == line) return false;
    disabled = put_enable(channel, static_cast<uint32_t>(enabled), 0);
    return true;
}

}  // namespace

void clear_table() {
    Lock lock(g_cruise_mutex);
    std::memset(gp_private_ptzCruise, 0, sizeof gp_private_ptzCruise);
}

Block load_block(uint32_t channel) {
    Lock lock(g_cruise_mutex);
    return wire::load<Block>(place_of(channel, 0));
}

void store_block(uint32_t channel, const Block& block) {
    Lock lock(g_cruise_mutex);
    wire::store(place_of(channel, 0), block);
}

CruiseLine load_line(uint32_t channel, uint32_t line) {
    Lock lock(g_cruise_mutex);
    return line_at(channel, line);
}

CruiseLine set_enable(uint32_t channel, uint32_t line, uint8_t flag) {
    Lock lock(g_cruise_mutex);
    return put_enable(channel, line, flag);
}

int enabled_line(uint32_t channel) {
    Lock lock(g_cruise_mutex);
    return find_enabled(channel);
}

bool disable_other(uint32_t channel, uint32_t line, CruiseLine& disabled) {
    Lock lock(g_cruise_mutex);
    return put_other_disabled(channel, line, disabled);
}

void store_line(uint32_t channel, const CruiseLine& line) {
    Lock lock(g_cruise_mutex);
    put_line(channel, line);
}

bool replace_line(uint32_t channel, const CruiseLine& line, CruiseLine& disabled) {
    Lock lock(g_cruise_mutex);
    const bool other = line.ucEnable != 0 && put_other_disabled(channel, line.ucLineNo, disabled);
    put_line(channel, line);
    return other;
}

}  // namespace lenswire::cruise
