// Time as the archive sees it: milliseconds on the monotonic clock, and in UTC since 1970.
//
// Lengths come from the monotonic clock, and UTC is anchored to it once, when a recorder starts. The two
// drift apart, by 500 ppm on a poor board: so the monotonic clock is steered to the wall clock, a thousandth
// of the time at most. A wall clock that is set moves nothing that has been or will be recorded in this run,
// and is noted as an event.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

namespace lenswire::recorder {

using Ms = int64_t;

class ArchiveClock {
  public:
    virtual ~ArchiveClock() = default;
    virtual Ms monotonic() const = 0;
    virtual Ms wall() const = 0;
};

class SystemClock : public ArchiveClock {
  public:
    Ms monotonic() const override;
    Ms wall() const override;
};

// The monotonic clock, steered. Goes on evenly: it never jumps, and never back.
class SteeredClock : public ArchiveClock {
  public:
    // `source` must outlive it.
    explicit SteeredClock(const ArchiveClock& source);

    Ms monotonic() const override { return source_.monotonic() + ahead_; }
    Ms wall() const override { return source_.wall(); }
    // Once a second or so, by one thread. How far the wall clock was set since the last call, when it was.
    std::optional<Ms> look();

  private:
    const ArchiveClock& source_;
    Ms looked_;       // source_'s monotonic clock at the latest look
    Ms apart_;        // how far the wall clock was from it then
    Ms wanted_ = 0;   // how far they drifted apart since the first look
    Ms unspent_ = 0;  // time that went by since it was steered last
    std::atomic<Ms> ahead_{0};
};

class UtcAnchor {
  public:
    // `not_before` is the last instant that the archive holds. A clock that was set back since, by up to a
    // day and a bit, does not make recordings overlap: they go on from there.
    UtcAnchor(Ms monotonic, Ms wall, Ms not_before = 0);

    Ms utc(Ms monotonic) const { return monotonic + offset_; }
    Ms monotonic(Ms utc) const { return utc - offset_; }

  private:
    Ms offset_;
};

// 2026-11-23T14:05:00.120Z
std::string utc_text(Ms utc);
// Reads the above, or shorter forms down to a date; none when it is no such text.
std::optional<Ms> parse_utc(const std::string& text);
// 2026-11-23/14-05-00.120Z.mkv, and back.
std::string segment_name(Ms utc);
std::optional<Ms> segment_time(const std::string& name);
// 1 h 02 min 03.4 s
std::string length_text(Ms length);

}  // namespace lenswire::recorder
