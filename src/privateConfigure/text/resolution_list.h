// The resolution-list text of an encoding scope becomes entries: a function over texts and records.
#pragma once

#include <cstdint>

#include "lenswire/encoding.h"

namespace lenswire::resolutions {

// The text of a payload: from byte 3 to its NUL or byte 1026.
constexpr int kTextOffset = 3;
constexpr int kTextMax = LENSWIRE_ENCODING_SCOPE_SIZE - kTextOffset;

// What an entry holds so far.
struct Counters {
    uint32_t sizes = 0;
    uint32_t names = 0;
};

struct Item {
    char codec[5] = {};
    int width = 0;
    int height = 0;
};

// Adds what the entry does not hold yet and has room for.
void add(EncodingScopeEntry& entry, Counters& held, int width, int height, const char* codec);

// How the lists of the three stream modes differ.
struct Mode {
    int streams;                // items of a group, and entries filled in
    char separator;             // what leads to a last group that lacks its semicolon
    bool forgets_codec = true;  // a group does not inherit the codec of the one before
};

// Parses a list into as many entries as the mode has streams.
void parse(const Mode& mode, EncodingScopeEntry* entries, const char* text);

}  // namespace lenswire::resolutions
