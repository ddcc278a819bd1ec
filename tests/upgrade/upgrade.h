// What the tests of the upgrade stand on: files to send, a camera that says what it is, jobs over a set of
// channels whose upload connections the test plays.
#pragma once

#include <string>
#include <thread>
#include <vector>

#include "engine/engine.h"
#include "lenswire/upgrade.h"
#include "support/folder.h"

namespace lenswire::test {

// 464 bytes of device information, built by offsets.
Bytes device_info(uint8_t type, const std::string& firmware, const std::string& platform = "",
                  const std::string& sensor = "");

constexpr const char* kFirmware = "A_B_MTAXC_D";
constexpr const char* kFileName = "A_B_x.bin";

class UpgradeTest : public EngineTest {
  protected:
    void SetUp() override;
    // Nothing of any job is left over: descriptors, threads, memory, request slots.
    void TearDown() override;

    // Binds channels to an upload port; all of them are the same camera on the control connection.
    void binds(const std::vector<int>& channels, int port, int protocol = 4);
    // Starts a job; the test fails unless the result is the expected one.
    pthread_t starts(const std::vector<int>& channels, const std::string& path, int expected = 0);
    static UpgradeJobStatus status(pthread_t job) {
        UpgradeJobStatus status{};
        EXPECT_EQ(Prv_ipc_upgrade_get_status(job, &status), 0);
        return status;
    }
    static UpgradeJobStatus waits_for_end(pthread_t job) {
        EXPECT_TRUE(wait_until([job] { return status(job).ulUsed == 0; })) << "the job does not end";
        return status(job);
    }

    Folder folder_;
    ScriptedCamera uploads_;  // takes the upload connections

  private:
    void answers_requests();

    ScriptedCamera control_;
    StreamConn* unit_ = nullptr;
    Wire control_wire_;
    std::thread control_thread_;
    int descriptors_ = 0;
    int threads_ = 0;
};

// The cameras of a job, as "3: running 17%, 4: done 100%, "; a state is running, done, failed or late.
std::string text_of(const UpgradeJobStatus& status);

// The answer to an upload.
inline Message upload_answer(uint16_t state = 0) {
    return command(0x2002, {}, state);
}

}  // namespace lenswire::test
