// One session with a camera that is cut after so many of the bytes it has to send.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <thread>
#include <vector>

#include "lenswire/lenswire.h"
#include "tests/support/fake_host.h"
#include "tests/support/scripted_camera.h"

namespace lenswire::fuzz {

using namespace lenswire::test;

// What becomes of the connection behind the last byte.
enum class Ending { kClosed, kReset, kStalled, kGarbage };
inline constexpr std::array kEndings = {"closed", "reset", "stalled", "garbage"};

// The camera's part of a session, in the order in which it happens. Thrown out of it: Over.
class Part {
  public:
    struct Over {};

    // Without a camera nothing is sent: total() then says how many bytes there are to cut.
    Part() = default;
    Part(ScriptedCamera& camera, ScriptedCamera& uploads, size_t cut, Ending ending)
        : camera_(&camera), uploads_(&uploads), cut_(cut), ending_(ending) {}

    void accepts() { accept_from(camera_); }
    void accepts_upload() { accept_from(uploads_); }
    void reads(size_t count);
    // From here on bytes count.
    void counts() { counting_ = true; }
    void sends(const Bytes& bytes);
    void logs_in();
    size_t total() const { return sent_; }

  private:
    void accept_from(ScriptedCamera* camera);
    void end();

    ScriptedCamera* camera_ = nullptr;
    ScriptedCamera* uploads_ = nullptr;
    size_t cut_ = SIZE_MAX;
    Ending ending_ = Ending::kClosed;
    bool counting_ = false;
    size_t sent_ = 0;
    std::vector<Wire> wires_;  // stay open as long as the part
};

// The recorder's part.
struct Side {
    ScriptedCamera& camera;
    ScriptedCamera& uploads;
    int channel;  // of this session alone
    size_t cut;
    Ending ending;
    StreamConn* unit = nullptr;
};

enum class Outcome { kDone, kFailed, kNotBegun };

struct Kind {
    const char* name;
    void (*camera)(Part&);
    Outcome (*recorder)(Side&);
};
extern const std::array<Kind, 6> kKinds;

// What the host was told of each channel.
inline std::array<std::atomic<int>, LENSWIRE_CHANNELS> g_restarts, g_motions;
// Starts to take notes, and runs the host's clock as fast as the library's.
class HostNotes {
  public:
    HostNotes();
    ~HostNotes();

  private:
    std::atomic<bool> stop_{false};
    std::thread clock_;
};

// Waits in the library take so many times less than they say; see time_scale.cpp.
inline std::atomic<int> g_time_scale{1};

// Patience in real time, which only a hang uses up.
bool wait_for(const std::function<bool()>& predicate);

}  // namespace lenswire::fuzz
