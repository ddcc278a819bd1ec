// The pan, tilt and zoom of a simulated camera: it moves, goes to presets and runs cruise lines as time
// passes. Time is the caller's, in microseconds; nothing happens between two calls.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

namespace lenswire::camera {

struct PtzPosition {
    double pan = 180;  // degrees, 0 to 360, goes round
    double tilt = 20;  // degrees, 0 to 90
    double zoom = 1;   // times, 1 to 30
};

struct CruiseStop {
    uint8_t point = 0;   // its place in the cruise line, 0 to 31
    uint8_t preset = 0;  // index, from 0
    uint8_t dwell = 0;   // tenths of a second
    uint32_t speed = 0;  // as a move's, 0: the camera's own
};

class PtzModel {
  public:
    enum class Doing : uint8_t { kStill = 0, kMoving = 1, kToPreset = 2, kCruising = 3 };

    static constexpr size_t kPresets = 256;
    static constexpr size_t kLines = 3;

    PtzModel();

    // Carries out one PTZ operation; a code that this camera does not know changes nothing.
    void operate(uint8_t code, uint8_t argument, int64_t now_us);
    void set_speed(uint8_t speed) { speed_ = speed; }
    // A line that is running goes on with its new stops.
    void set_line(size_t line, std::vector<CruiseStop> stops, int64_t now_us);

    void advance(int64_t now_us);
    const PtzPosition& position() const { return position_; }
    Doing doing() const { return doing_; }
    std::optional<uint8_t> preset() const { return preset_; }  // the last one reached
    std::optional<uint8_t> line() const { return line_; }      // the cruise line that runs
    std::optional<uint8_t> point() const;                      // and where in it the camera is or goes

    std::array<PtzPosition, kPresets>& presets() { return presets_; }

  private:
    void start_line(uint8_t line);
    void halt();
    double step(double seconds);
    double step_move(double seconds);
    double step_to_preset(double seconds);
    double step_dwell(double seconds);
    void aim_at_stop();
    double degrees_per_second(uint32_t speed) const;

    PtzPosition position_;
    std::array<PtzPosition, kPresets> presets_;
    std::array<std::vector<CruiseStop>, kLines> lines_;
    int64_t time_us_ = 0;
    uint8_t speed_ = 64;
    Doing doing_ = Doing::kStill;
    PtzPosition velocity_{0, 0, 0};  // of a move, per second
    uint32_t travel_speed_ = 0;      // to a preset
    uint8_t target_ = 0;
    std::optional<uint8_t> preset_;
    std::optional<uint8_t> line_;
    size_t stop_ = 0;
    bool dwelling_ = false;
    double dwell_left_ = 0;
};

}  // namespace lenswire::camera
