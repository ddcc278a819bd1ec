// What the engine's tests stand on: a started context, logins with a scripted camera, and looks at what
// the library's threads write.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "lenswire/command.h"
#include "lenswire/connection.h"
#include "lenswire/socket.h"
#include "lenswire/stream.h"
#include "support/camera_bytes.h"
#include "support/capture.h"
#include "support/connections.h"
#include "support/fake_host.h"
#include "support/scripted_camera.h"

namespace lenswire::test {

using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// A word that one of the library's threads writes.
template <typename T>
T peek(const T& word) {
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

// Writes a word that the library's threads read.
template <typename T, typename Value>
void poke(T& word, Value value) {
    __atomic_store_n(&word, static_cast<T>(value), __ATOMIC_RELEASE);
}

// Gives the process room for so many descriptors; false where the system allows fewer.
bool limits_descriptors(unsigned count);

// A camera's push of its motion state.
inline Message motion(uint8_t state) {
    return command(0x0009, {0, 0, state});
}

// A host reset, and nothing of it left misused or taken at the end. Starts no context.
class HostTest : public testing::Test {
  protected:
    HostTest() { host().reset(); }
    void TearDown() override;
};

// The same with a started context. One a process, as with every host.
class EngineTest : public HostTest {
  protected:
    EngineTest();
    ~EngineTest() override;
    void SetUp() override;
    void TearDown() override;

    // Stops the context before the end of the test.
    void stops_engine();
    // Ends one worker thread by its switch, so that the test can play its part.
    void stops_thread(uint8_t& run_switch);

    static int login(StreamConn* unit, const ScriptedCamera& camera, const LoginInfo& info = credentials(),
                     int channel = 0, int stream = 0) {
        return PC_Login(unit, camera.address(), camera.port(), &info, channel, stream);
    }
    // Logs a unit in and returns the camera's end of its control connection.
    Wire logs_in(StreamConn* unit, ScriptedCamera& camera, uint32_t login_id = kLoginId);
    // A unit of its own, logged in.
    struct LoggedIn {
        StreamConn* unit;
        Wire wire;
    };
    LoggedIn new_login(ScriptedCamera& camera, uint32_t login_id = kLoginId);

  private:
    int threads_before_ = 0;
    int stopped_threads_ = 0;
    bool running_ = false;
};

}  // namespace lenswire::test
