// Every wait of the engine, in one place: how long, how late it may end, and why.
//
// "Late" is timer slack: what happens ends a wait in select at once all the same, and so does a wake-up
// (wake_up.h) for what shows on no socket: a slot that opens or closes, a client that becomes ready or
// stops being so, the end of the library. Pauses and waits without a lateness here are kept as exactly as
// the thread's own slack allows, 50 us by default.
#pragma once

#include <cstdint>

namespace lenswire::waits {

// Event loop and receive loop: the select that nothing ends. It only comes round to look at the host's clock,
// for streams that are silent, which counts seconds; so it may be as late as an eighth of one.
constexpr int kSelectUs = 1'000;
constexpr unsigned long kSelectLateUs = 120'000;

// Event loop: the pause between two passes. An answer may be waiting for its end.
constexpr unsigned kEventPauseUs = 1'000;

// Event loop: the pause after a select that failed.
constexpr unsigned kErrorPause_s = 1;

// Receive loop: the pause after a pass that served streams may last until so long after the pass began.
// Passes some milliseconds apart serve several streams each; 3.2 ms is what a median delay of 2 ms leaves.
constexpr unsigned kServedPauseUs = 1;
constexpr int64_t kServedPeriodUs = 3'200;

// Queue thread: the host's queue can only be polled. Requests follow something that announces them; for so
// long afterwards the pause is kept, later it may end late: a request that nothing announced waits 5 ms more.
constexpr unsigned kPollUs = 100;
constexpr uint32_t kExpectedMs = 10'000;
constexpr unsigned long kQuietPollLateUs = 4'900;

// A login: the pause between two steps, how long it may take, and the steps that fit into that. The steps
// count only while there is no clock: signals of the host cut pauses short.
constexpr unsigned kLoginStepPauseUs = 10'000;
constexpr int kLoginLongest_s = 9;
constexpr int kLoginMostSteps = 1'000;

// A stream invitation: until the connection is made, and until it is answered.
constexpr int kInvitationMs = 3'000;

// What a socket that would block costs whoever sends, or reads one message.
constexpr unsigned kSendPauseUs = 5'000;
constexpr unsigned kReceivePauseUs = 100'000;

}  // namespace lenswire::waits
