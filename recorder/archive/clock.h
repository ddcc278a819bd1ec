// Time as the archive sees it: milliseconds on the monotonic clock, and in UTC since 1970.
//
// Lengths come from the monotonic clock alone. UTC is anchored to it once, when a recorder starts: a wall
// clock that is set later moves nothing that has been or will be recorded in this run, and is noted as an
// event.
#pragma once

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

class UtcAnchor {
  public:
    // `not_before` is the last instant that the archive holds. A clock that was set back since, by up to a
    // day and a bit, does not make recordings overlap: they go on from there.
    UtcAnchor(Ms monotonic, Ms wall, Ms not_before = 0);

    Ms utc(Ms monotonic) const { return monotonic + offset_; }
    Ms monotonic(Ms utc) const { return utc - offset_; }
    // How far the wall clock was set since the last call, when it was.
    std::optional<Ms> step(Ms monotonic, Ms wall);

  private:
    Ms offset_;
    Ms seen_;  // the wall clock's distance from the monotonic clock
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
