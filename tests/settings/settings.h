// What the tests of the settings stand on: a library that is logged in to one camera, which the test plays,
// and operations that run on a thread of their own meanwhile.
#pragma once

#include <ctime>
#include <functional>
#include <future>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "lenswire/lenswire.h"

namespace lenswire::test {

// The process's clock and waits in the hands of a test: the program's own usleep, time, select, send,
// clock_gettime and pthread_cond_clockwait stand in front of libc's, for the library too. Outside the scope
// of a Timewarp they are as ever.
//
// For its scope and its thread: sleeps return at once, a wait for something that is not there yet ends at
// once as one that timed out, and all of them are written down.
struct Timewarp {
    Timewarp() { current = this; }
    ~Timewarp() { current = nullptr; }
    inline static thread_local Timewarp* current = nullptr;

    std::vector<long> slept_us;
    std::vector<int> waited_s;        // pthread_cond_clockwait, on the monotonic clock
    std::vector<long> selected_ms;    // select that found nothing ready
    int failing_send = 0;             // the n-th from now on; 0 for none
    bool clock_fails = false;         // clock_gettime says so
    time_t moment = -1;               // time() gives this one; -1 for the time it is
    std::function<void()> meanwhile;  // what happens during such a select
};

// Log lines of the configuration layer as a host sees them, numbers replaced by N.
inline std::string line(const std::string& operation, const std::string& text) {  // standard output
    return "PRI_LOG src/privateConfigure-" + operation + "-N: " + text + "\n";
}
inline std::string error(const std::string& operation, const std::string& text) {  // standard error
    return "[src/privateConfigure:" + operation + ":N]:" + text + "\n";
}

// The recorder channel that the camera is bound to.
constexpr int kChannel = 5;

class SettingsTest : public EngineTest {
  protected:
    void SetUp() override;
    void TearDown() override {
        loses_camera();
        EXPECT_EQ(g_rs_num, 0) << "a request slot was not given back";
        EngineTest::TearDown();
    }

    uint32_t ip() const { return camera_.address(); }

    // Starts an operation; the test then is the camera.
    std::future<int> starts(std::function<int()> operation) {
        return std::async(std::launch::async, std::move(operation));
    }
    // Runs it against the camera's answers, in turn, and checks that no request stays unread.
    struct Exchanged {
        int result;
        std::vector<Message> requests;
    };
    Exchanged runs(const std::function<int()>& operation, const std::vector<Message>& answers);
    // Runs an operation that awaits nothing and returns the commands that the camera received.
    Exchanged sends(const std::function<int()>& operation, size_t commands = 1);
    // Whether the camera has received anything that was not read yet.
    bool camera_was_asked() const { return wire_.has_bytes(); }
    // Takes the camera's address away from the library.
    void loses_camera() {
        if (unit_ != nullptr) PC_Delete(std::exchange(unit_, nullptr));
    }

    ScriptedCamera camera_;
    Wire wire_;

  private:
    StreamConn* unit_ = nullptr;
};

}  // namespace lenswire::test
