#include "settings/settings.h"

namespace lenswire::test {

std::string line(const std::string& operation, const std::string& text) {
    return "PRI_LOG src/privateConfigure-" + operation + "-N: " + text + "\n";
}

std::string error(const std::string& operation, const std::string& text) {
    return "[src/privateConfigure:" + operation + ":N]:" + text + "\n";
}

void SettingsTest::SetUp() {
    EngineTest::SetUp();
    LoggedIn login = new_login(camera_);
    unit_ = login.unit;
    wire_ = std::move(login.wire);
    Channel channel;
    channel.address = camera_.address_text();
    channel.port = camera_.port();
    host().has_channel(kChannel, channel);
}

void SettingsTest::TearDown() {
    loses_camera();
    EXPECT_EQ(g_rs_num, 0) << "a request slot was not given back";
    EngineTest::TearDown();
}

std::future<int> SettingsTest::starts(std::function<int()> operation) {
    return std::async(std::launch::async, std::move(operation));
}

SettingsTest::Exchanged SettingsTest::runs(const std::function<int()>& operation,
                                           const std::vector<Message>& answers) {
    Exchanged exchanged{};
    std::future<int> result = starts(operation);
    for (const Message& answer : answers) {
        exchanged.requests.push_back(wire_.reads_command());
        wire_.sends(answer);
    }
    exchanged.result = result.get();
    EXPECT_FALSE(camera_was_asked());
    return exchanged;
}

SettingsTest::Exchanged SettingsTest::sends(const std::function<int()>& operation, size_t commands) {
    Exchanged exchanged{.result = operation(), .requests = {}};
    for (size_t i = 0; i < commands; ++i) exchanged.requests.push_back(wire_.reads_command());
    EXPECT_FALSE(camera_was_asked());
    return exchanged;
}

void SettingsTest::loses_camera() {
    if (unit_ != nullptr) PC_Delete(unit_);
    unit_ = nullptr;
}

}  // namespace lenswire::test
