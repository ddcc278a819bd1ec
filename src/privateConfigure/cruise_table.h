// gp_private_ptzCruise, a line at a time. One lock guards the table; every function takes it for as long as
// a line is copied, and none calls the host. Channels and lines are in range: their callers have checked.
#pragma once

#include <cstdint>

#include "lenswire/cruise.h"

namespace lenswire::cruise {

constexpr uint32_t kChannels = LENSWIRE_CHANNELS;
constexpr uint32_t kLines = LENSWIRE_CRUISE_LINES;
constexpr int kNone = -1;

// All lines of a channel.
struct Block {
    CruiseLine lines[kLines];
};

void clear_table();
Block load_block(uint32_t channel);
void store_block(uint32_t channel, const Block& block);

// A line, numbered by its place whatever the table says.
CruiseLine load_line(uint32_t channel, uint32_t line);

// Sets ucEnable and returns the line.
CruiseLine set_enable(uint32_t channel, uint32_t line, uint8_t flag);

// The first enabled line, or kNone.
int enabled_line(uint32_t channel);

// Disables the first enabled line if it is another than this one, and then says so and hands it out.
bool disable_other(uint32_t channel, uint32_t line, CruiseLine& disabled);

// Puts a line where its ucLineNo says.
void store_line(uint32_t channel, const CruiseLine& line);
// The same; a line that is enabled disables the other one in the same moment, as disable_other does.
bool replace_line(uint32_t channel, const CruiseLine& line, CruiseLine& disabled);

}  // namespace lenswire::cruise
