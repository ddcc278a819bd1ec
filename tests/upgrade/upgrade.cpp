#include "upgrade/upgrade.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>

namespace lenswire::test {

Bytes device_info(uint8_t type, const std::string& firmware, const std::string& platform,
                  const std::string& sensor) {
    return Bytes{0, type} + Bytes(366) + padded(bytes_of(firmware), 64) + padded(bytes_of(platform), 16) +
           padded(bytes_of(sensor), 16);
}

std::string text_of(const UpgradeJobStatus& status) {
    std::string text;
    for (uint32_t k = 0; k < status.ulCameraCount; ++k) {
        const auto& [channel, state, percent] = status.camera[k];
        const char* name = state == UPGRADE_RUNNING  ? "running"
                           : state == UPGRADE_DONE   ? "done"
                           : state == UPGRADE_FAILED ? "failed"
                                                     : "late";
        text += std::to_string(channel) + ": " + name + " " + std::to_string(percent) + "%, ";
    }
    return text;
}

void UpgradeTest::SetUp() {
    EngineTest::SetUp();
    LoggedIn login = new_login(control_);
    unit_ = login.unit;
    control_wire_ = std::move(login.wire);
    control_thread_ = std::thread([this] { answers_requests(); });
    descriptors_ = open_descriptors();
    threads_ = thread_count();
}

void UpgradeTest::TearDown() {
    EXPECT_TRUE(wait_until([this] { return thread_count() <= threads_; })) << "a job's thread was left over";
    EXPECT_EQ(open_descriptors(), descriptors_) << "a descriptor was left over";
    PC_Delete(unit_);
    control_thread_.join();
    EXPECT_EQ(g_rs_num, 0) << "a request slot was not given back";
    EngineTest::TearDown();
}

// Until the library closes the control connection.
void UpgradeTest::answers_requests() {
    const auto more_comes = [this] {
        uint8_t byte;
        return recv(control_wire_.descriptor(), &byte, 1, MSG_PEEK) > 0;
    };
    while (more_comes()) {
        const Message request = control_wire_.reads_command();
        if (request.command != 0x2003) continue;
        EXPECT_EQ(request.payload, Bytes(464));
        control_wire_.sends(command(0x2003, device_info(0, kFirmware)));
    }
}

void UpgradeTest::binds(const std::vector<int>& channels, int port, int protocol) {
    for (const int channel : channels) {
        host().has_channel(channel, Channel{.address = control_.address_text(), .port = port});
        Bytes record = padded(
            Bytes(97) + Bytes{static_cast<uint8_t>(channel + 1), 0, 0} + bytes_of(control_.address_text()),
            450);
        record[186] = static_cast<uint8_t>(protocol);
        host().has_record(17, static_cast<uint32_t>(channel), record);
        host().has_record(24, static_cast<uint32_t>(channel), repeated(0xEE, 9));
    }
}

pthread_t UpgradeTest::starts(const std::vector<int>& channels, const std::string& path, int expected) {
    UpgradeRequest request{};
    for (const int channel : channels) request.aucChannel[channel] = 1;
    std::memcpy(request.szFilePath, path.data(), std::min(path.size(), sizeof request.szFilePath));
    pthread_t job{};
    EXPECT_EQ(Prv_ipc_upgrade(&request, &job), expected);
    return job;
}

}  // namespace lenswire::test
