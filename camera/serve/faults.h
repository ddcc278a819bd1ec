// What a camera can be told to do wrong.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "camera/wire/bytes.h"
#include "camera/wire/message.h"

namespace lenswire::camera {

// Spoils answers to commands. What is left at its default stays right, and several of the fields may be set.
// Of several faults the oldest that applies spoils an answer, alone.
struct AnswerFault {
    std::optional<uint16_t> code = {};  // the command that it applies to; every command when absent
    uint32_t times = 0;                 // how many answers it spoils; 0: all of them

    bool silent = false;       // no answer at all
    int64_t delay_ms = 0;      // the answer goes out that much later; other answers may overtake it
    uint32_t piece = 0;        // goes out in writes of that many bytes ...
    int64_t piece_gap_ms = 0;  // ... with that long a pause between them
    std::optional<uint16_t> flag = {};
    std::optional<uint16_t> state = {};   // a login answered with a state other than 0 is a refused login
    int32_t length_delta = 0;             // announced size = real size + this
    uint32_t garbage = 0;                 // bytes of rubbish right behind the answer
    std::optional<uint32_t> cut_at = {};  // only the first so many bytes go out
    bool close_after = false;             // the connection is closed once the answer is out
    std::string name = {};                // as it was asked for
};

enum class StreamFaultKind {
    kStop,         // stops in the middle of the packet and keeps the connection
    kCloseMid,     // closes in the middle of the packet
    kClose,        // closes before the packet
    kReset,        // the same with a reset
    kStall,        // pauses for `value` ms before the packet; 0: for ever
    kOneByte,      // sends the packet, and all after it, in one-byte writes
    kBadFlag,      // the packet's flag is `value`
    kWrongLength,  // the packet's header announces `value` bytes more (or less) than follow
};

struct StreamFault {
    StreamFaultKind kind = StreamFaultKind::kClose;
    uint64_t at_frame = 0;  // the video frame of a connection, from 0, where it happens
    int64_t value = 0;
    uint32_t times = 1;  // on how many connections it happens; 0: on all
    std::string name = {};
};

// Spoils firmware uploads. Several of the fields may be set, and several faults hold together.
struct UploadFault {
    uint32_t times = 0;                     // how many uploads it spoils; 0: all of them
    std::optional<uint16_t> state = {};     // a whole file is answered with this state
    int64_t late_ms = 0;                    // the answer goes out that much later
    bool silent = false;                    // no answer at all
    std::optional<uint64_t> close_at = {};  // closes when so many bytes of the file have come
    std::optional<uint64_t> full_at = {};   // answers that there is no room when more than these have come
    uint32_t bytes_per_second = 0;          // reads no faster; 0: as fast as it comes
    uint32_t babble = 0;                    // messages that are no answer, one after the other
    std::string name = {};                  // of several faults all names
};

using Fault = std::variant<AnswerFault, StreamFault, UploadFault>;

// A fault as the command line has it: NAME[=VALUE][@FRAME][:CODE][*TIMES]. Nothing and a reason when the text
// is none of these.
std::optional<Fault> parse_fault(const std::string& text, std::string* error);

// Every fault with what it does and an example, for --help.
std::string faults_help();

// What several faults of one upload come to.
UploadFault merge(const std::vector<UploadFault>& faults);

// The bytes of an answer as the fault leaves them; delays, pieces and silence are the sender's business.
Bytes spoil(Command answer, const AnswerFault& fault);

}  // namespace lenswire::camera
