#include "recorder/archive/account.h"

#include <algorithm>

namespace lenswire::recorder {

using Kind = AccountEntry::Kind;

CauseWords words_of(Cause cause) {
    switch (cause) {
        case Cause::kSilent:
            return {"camera", "silent"};
        case Cause::kSoundOnly:
            return {"camera", "sound but no picture"};
        case Cause::kRefused:
            return {"camera", "refused the login"};
        case Cause::kRestarted:
            return {"camera", "restarted"};
        case Cause::kMissing:
            return {"camera", "pictures missing"};
        case Cause::kUnreachable:
            return {"network", "unreachable"};
        case Cause::kLost:
            return {"network", "connection lost"};
        case Cause::kStalled:
            return {"network", "stalled"};
        case Cause::kQueueFull:
            return {"recorder", "queue full"};
        case Cause::kDiskFull:
            return {"recorder", "disk full"};
        case Cause::kDiskSlow:
            return {"recorder", "disk slow"};
        case Cause::kFileLost:
            return {"recorder", "file lost"};
        case Cause::kNotRunning:
            break;
    }
    return {"recorder", "not running"};
}

void Account::begin_gap(Ms at, Cause cause, const std::string& detail) {
    state_ = State::kGap;
    end_ = at;
    cause_ = cause;
    entries_.push_back({Kind::kGapBegins, at, cause, detail});
}

Ms Account::footage(Ms from, Ms to) {
    if (state_ == State::kOver) return from;
    if (state_ == State::kWaiting) entries_.push_back({Kind::kWatchBegins, from});
    if (state_ == State::kGap) {
        from = std::max(from, end_);
        entries_.push_back({Kind::kGapEnds, from});
    }
    if (state_ != State::kFootage) end_ = from;
    state_ = State::kFootage;
    end_ = std::max(end_, to);
    return from;
}

void Account::trouble(Ms now, Cause cause, const std::string& detail) {
    if (state_ == State::kWaiting) {
        entries_.push_back({Kind::kWatchBegins, start_});
        return begin_gap(start_, cause, detail);
    }
    if (state_ == State::kFootage) return begin_gap(end_, cause, detail);
    if (state_ != State::kGap || cause == cause_) return;
    now = std::max(now, end_);
    entries_.push_back({Kind::kGapEnds, now});
    begin_gap(now, cause, detail);
}

void Account::camera_restarted() {
    if (state_ == State::kGap && cause_ == Cause::kLost) entries_.push_back({Kind::kGapWasRestart, end_});
}

void Account::tick(Ms now, Cause quiet) {
    const bool waits = state_ == State::kWaiting || state_ == State::kFootage ||
                       (state_ == State::kGap && cause_ == Cause::kNotRunning);
    const Ms since = state_ == State::kFootage ? end_ : start_;
    if (waits && now - since >= kSilence) trouble(now, quiet, "no picture");
}

void Account::end(Ms now, Cause quiet) {
    tick(now, quiet);
    if (state_ == State::kWaiting && now - start_ >= kShortestWatch) trouble(now, quiet, "no picture");
    if (state_ == State::kGap) entries_.push_back({Kind::kGapEnds, std::max(now, end_)});
    if (state_ == State::kGap) end_ = std::max(now, end_);
    if (state_ == State::kGap || state_ == State::kFootage) entries_.push_back({Kind::kWatchEnds, end_});
    state_ = State::kOver;
}

}  // namespace lenswire::recorder
