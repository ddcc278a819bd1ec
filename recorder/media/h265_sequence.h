// Whether sequence parameter sets of H.265 hold what they announce.
#pragma once

#include <cstdint>
#include <span>

namespace lenswire::recorder {

// Of parameter sets in Annex B form. Each sequence is read as far as its reference picture sets: libavformat
// counts pictures there beyond the end of a set that is cut short, four billion of them, and must not be
// given one.
bool are_whole_h265_sequences(std::span<const uint8_t> parameter_sets);

}  // namespace lenswire::recorder
