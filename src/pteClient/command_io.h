// Sending a command message in two halves: the socket call, which a caller may make under a lock, and what
// follows from its outcome (log line, pause), which it may not.
#pragma once

#include <cstdint>

namespace lenswire::command_io {

enum class SendResult {
    kSent,
    kBadSocketOrData,
    kBadLength,
    kLongerThanGiven,
    kShort,
    kWouldBlock,
    kFailed,
};

struct SendOutcome {
    SendResult result;
    int64_t message_length;  // 0 while no header could be read
};

// One attempt to send the message that starts at `data` and may be up to *pLen bytes long. Sets *pLen as
// PC_SendCmd does. Never blocks on a non-blocking socket, writes no log line.
SendOutcome try_send(int fd, const void* data, int* pLen);

// The log line or the pause that the outcome calls for. `length` is what *pLen was on entry.
void report(const SendOutcome& outcome, int fd, const void* data, int length);

}  // namespace lenswire::command_io
