// Whether the ledger and the files say the same, from the files alone.
#pragma once

#include <string>
#include <vector>

#include "recorder/archive/disk.h"
#include "recorder/archive/ledger.h"

namespace lenswire::recorder {

struct Verdict {
    std::vector<std::string> faults;  // a line each
    uint64_t segments = 0;            // looked at
    uint64_t pictures = 0;            // that decode
    uint64_t bytes = 0;
    Ms watched = 0, footage = 0, gaps = 0;  // of all streams
};

// Reads and decodes every file. A segment that a recorder at work has open is left out.
Verdict verify(Ledger& ledger, Disk& disk, Ms now);

// Footage and gaps of every stream follow each other without a hole or an overlap; adds to the verdict. A
// recorder at work finishes a segment in the ledger some time after its end: what is open may hide a hole up
// to the next thing noted. `settled`: it has none of that under way, so only the latest of a stream may be
// open.
void verify_account(Ledger& ledger, Verdict& verdict, Ms now, bool settled = false);

// Takes in what a crash left, and notes a gap where a file is gone. Not while a recorder is at work.
void repair(Ledger& ledger, Disk& disk, Ms now);

}  // namespace lenswire::recorder
