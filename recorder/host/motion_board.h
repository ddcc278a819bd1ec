// Motion and alarms of every channel, as the library reports them.
//
// Called by the event loop, upgrade threads and the program's own; one mutex guards it all.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>

#include "recorder/host/store.h"

namespace lenswire::recorder {

enum AlarmType { kMotionAlarm = 2, kUpgradeAlarm = 40 };

class MotionBoard {
  public:
    struct Counts {
        bool motion = false;  // at this moment
        bool snapshots = false;
        uint64_t motions = 0;  // how often motion began
        uint64_t alarms = 0;   // alarm records queued
    };

    void set_armed(int channel, bool armed);
    bool armed(int channel) const;

    int status(int channel) const;
    bool set_status(int channel, int status);
    bool set_snapshots(int channel, int state);
    bool queue_alarm(uint8_t type, int channel);

    Counts counts(int channel) const;

    // One line per thing that happened, oldest first; none when there is no more.
    std::optional<std::string> next_event();

  private:
    struct Channel {
        bool armed = true;
        int status = 0;
        Counts counts;
    };
    static bool valid(int channel) { return channel >= 0 && channel < kMostChannels; }
    void note(std::string line);

    mutable std::mutex mutex_;
    std::array<Channel, kMostChannels> channels_;
    std::deque<std::string> events_;
};

}  // namespace lenswire::recorder
