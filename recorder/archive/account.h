// What became of every moment of one stream: footage, or a gap with a reason. Pure: it is told what happened
// and when, all in UTC milliseconds, and says what the ledger has to note.
//
// From the begin of a watch to its end footage and gaps follow each other without a hole and without an
// overlap. That holds by construction: each begins where the one before it ended.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "recorder/archive/clock.h"

namespace lenswire::recorder {

enum class Cause {
    kSilent,       // camera: connected, sends nothing
    kSoundOnly,    // camera: sound, but no picture
    kRefused,      // camera
    kRestarted,    // camera
    kMissing,      // camera: left pictures out, or sent what cannot be recorded
    kUnreachable,  // network
    kLost,         // network: the connection broke
    kStalled,      // network
    kQueueFull,    // recorder
    kDiskFull,     // recorder
    kDiskSlow,     // recorder
    kNotRunning,   // recorder
    kFileLost,     // recorder: the footage was there, its file is not
};

struct CauseWords {
    const char* side;
    const char* words;
};
CauseWords words_of(Cause cause);

struct AccountEntry {
    enum class Kind { kWatchBegins, kWatchEnds, kGapBegins, kGapEnds, kGapWasRestart };
    Kind kind;
    Ms at;
    Cause cause = Cause::kSilent;  // of a gap that begins
    std::string detail = {};
};

class Account {
  public:
    // `resumes`: a watch of an earlier run was cut off, and a gap "not running" is open since then.
    Account(Ms start, bool resumes)
        : start_(start), state_(resumes ? State::kGap : State::kWaiting), end_(start) {
        cause_ = Cause::kNotRunning;
    }

    // Pictures up to `to`. Returns the instant from which they count: `from`, but never before what is
    // accounted for already.
    Ms footage(Ms from, Ms to);
    // From here on pictures are missing, or go missing, for this reason. While there is footage it begins a
    // gap where the footage ended.
    void trouble(Ms now, Cause cause, const std::string& detail);
    // What was footage is none from here on: it cannot be recorded.
    void footage_lost(Ms from) {
        if (state_ == State::kFootage) end_ = std::min(end_, from);
    }
    // The first picture shows that the camera was started anew.
    void camera_restarted();
    // Time passed without a word: after a while that is a gap, for this reason.
    void tick(Ms now, Cause quiet = Cause::kSilent);
    // The watch is over. What is missing at the very end is a gap only when it is long.
    void end(Ms now, Cause quiet = Cause::kSilent);

    bool in_gap() const { return state_ == State::kGap; }
    Cause cause() const { return cause_; }
    Ms footage_end() const { return end_; }
    std::vector<AccountEntry> take() { return std::move(entries_); }

  private:
    enum class State { kWaiting, kFootage, kGap, kOver };
    void begin_gap(Ms at, Cause cause, const std::string& detail);

    Ms start_;
    State state_;
    Ms end_;  // of what is accounted for; a gap that is open begins here
    Cause cause_;
    std::vector<AccountEntry> entries_;
};

// Without a picture for this long a stream that said nothing is silent.
inline constexpr Ms kSilence = 5000;
// A run that is shorter and brought nothing has watched nothing.
inline constexpr Ms kShortestWatch = 2000;

}  // namespace lenswire::recorder
