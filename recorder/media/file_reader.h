// What is in a recorded file, whatever state it is in: of one that was cut off, everything up to the cut.
#pragma once

#include <cstdint>
#include <string>

namespace lenswire::recorder {

struct FileContents {
    bool readable = false;  // it has a head and a picture
    bool failed = false;    // there may be more in it: the disk, or memory, did not play along
    uint64_t pictures = 0;
    int64_t to_ms = 0;  // end of the last picture; the first is at 0
};

// `decode`: counts only the pictures that decode.
FileContents read_contents(const std::string& path, bool decode);

}  // namespace lenswire::recorder
