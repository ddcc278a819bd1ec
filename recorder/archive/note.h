// What a stream has the archive do, in order: the words between recordings, which run on the frame workers,
// and the keeper, which has the disk and the ledger.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "recorder/archive/account.h"

namespace lenswire::recorder {

// Streams have numbers in the order in which the archive was told of them. A stream has one open segment at a
// time.
struct SegmentBegins {
    int stream;
    Ms from;
    int64_t camera_from;  // the camera's clock, of the first picture
};
struct SegmentGrows {
    int stream;
    int64_t offset;
    std::vector<uint8_t> bytes;
    Ms to;  // the end of the latest picture in it
};
struct SegmentEnds {
    int stream;
    Ms to;
    int64_t camera_to;
    uint64_t frames;  // pictures
};
struct AccountNote {
    int stream;
    AccountEntry entry;
};
struct EventNote {
    std::optional<int> stream;
    Ms at;
    std::string kind;
    std::string text;
};
using Note = std::variant<SegmentBegins, SegmentGrows, SegmentEnds, AccountNote, EventNote>;

// Where notes go. Never blocks.
class NoteTaker {
  public:
    struct Trouble {
        Cause cause;
        std::string detail;
    };
    virtual void take(std::vector<Note> notes) = 0;
    // Why no more pictures can be taken now, if so. Once it said so it does until there is good room again.
    virtual std::optional<Trouble> trouble() const = 0;

  protected:
    ~NoteTaker() = default;
};

}  // namespace lenswire::recorder
