// What the user sees while a recording runs: on a terminal a table that is drawn again and again, elsewhere a
// line when something changes and now and then how it stands; for programs the lines are objects.
#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "recorder/cli/console.h"
#include "recorder/session/recording_session.h"

namespace lenswire::recorder {

// What a stream brought lately: a rate over the last two seconds or so.
class RateMeter {
  public:
    void update(uint64_t pictures, uint64_t bytes, std::chrono::steady_clock::time_point now);
    double pictures_per_second() const { return pictures_per_second_; }
    double megabits_per_second() const { return megabits_per_second_; }

  private:
    bool started_ = false;
    std::chrono::steady_clock::time_point since_{};
    uint64_t pictures_ = 0;
    uint64_t bytes_ = 0;
    double pictures_per_second_ = 0;
    double megabits_per_second_ = 0;
};

class RecordingView {
  public:
    enum class Kind { kTable, kLines, kJson, kSilent };

    RecordingView(Console& console, Kind kind) : console_(console), kind_(kind) {}

    void show(const std::vector<StreamStatus>& streams);
    // A line that stays, above the table if there is one.
    void event(const std::string& line);
    void error(const std::string& line);

  private:
    struct Shown {
        StreamPlan::State state = StreamPlan::State::kConnecting;
        bool any = false;
        RateMeter rate;
    };

    Shown& shown(const StreamStatus& stream) { return shown_[{stream.channel, stream.stream}]; }
    void draw_table(const std::vector<StreamStatus>& streams);
    void erase_table();
    void show_lines(const std::vector<StreamStatus>& streams);

    Console& console_;
    Kind kind_;
    int drawn_lines_ = 0;
    std::map<std::pair<int, int>, Shown> shown_;
    std::chrono::steady_clock::time_point next_report_{};
};

}  // namespace lenswire::recorder
