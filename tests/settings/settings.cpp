#include "settings/settings.h"

namespace lenswire::test {

void SettingsTest::SetUp() {
    EngineTest::SetUp();
    LoggedIn login = new_login(camera_);
    unit_ = login.unit;
    wire_ = std::move(login.wire);
    host().has_channel(kChannel, Channel{.address = camera_.address_text(), .port = camera_.port()});
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

}  // namespace lenswire::test
