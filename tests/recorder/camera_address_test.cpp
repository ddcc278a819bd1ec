#include "recorder/host/camera_address.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(CameraAddress, ReadsEveryForm) {
    struct Case {
        const char* text;
        const char *user, *password, *host;
        int port, channel, stream;
    };
    const Case cases[] = {
        {"admin:secret@10.0.0.7:9988", "admin", "secret", "10.0.0.7", 9988, 0, 0},
        {"admin:secret@camera.lan:1/3", "admin", "secret", "camera.lan", 1, 3, 0},
        {"admin:secret@10.0.0.7:65535/255/2", "admin", "secret", "10.0.0.7", 65535, 255, 2},
        {"admin:p@ss:w/rd@10.0.0.7:80/1/1", "admin", "p@ss:w/rd", "10.0.0.7", 80, 1, 1},
        {"admin:@10.0.0.7:80", "admin", "", "10.0.0.7", 80, 0, 0},
        {"admin@10.0.0.7:80", "admin", nullptr, "10.0.0.7", 80, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        const CameraAddress address = parse_camera_address(c.text);
        EXPECT_EQ(address.user, c.user);
        EXPECT_EQ(address.password, c.password ? std::optional<std::string>(c.password) : std::nullopt);
        EXPECT_EQ(address.host, c.host);
        EXPECT_EQ(address.port, c.port);
        EXPECT_EQ(address.channel, c.channel);
        EXPECT_EQ(address.stream, c.stream);
    }
}

TEST(CameraAddress, RefusesBadTextWithOneLineThatHidesTheCredentials) {
    const std::string long_user(32, 'u'), long_password(33, 'S');
    const std::string cases[] = {
        "",
        "Secret",
        "user:Secret",
        "@10.0.0.7:80",
        ":Secret@10.0.0.7:80",
        "user:Secret@",
        "user:Secret@10.0.0.7",
        "user:Secret@:80",
        "user:Secret@10.0.0.7:",
        "user:Secret@10.0.0.7:0",
        "user:Secret@10.0.0.7:65536",
        "user:Secret@10.0.0.7:80x",
        "user:Secret@10.0.0.7:-80",
        "user:Secret@10.0.0.7:80/",
        "user:Secret@10.0.0.7:80/256",
        "user:Secret@10.0.0.7:80/1/",
        "user:Secret@10.0.0.7:80/1/2/3",
        "user:Secret@10.0.0.7:80/one",
        long_user + ":Secret@10.0.0.7:80",
        "user:" + long_password + "@10.0.0.7:80",
    };
    for (const std::string& text : cases) {
        SCOPED_TRACE(text);
        try {
            parse_camera_address(text);
            ADD_FAILURE() << "accepted";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.code(), kBadInput);
            EXPECT_THAT(failure.what(),
                        AllOf(Not(HasSubstr("Secret")), Not(HasSubstr("SSS")), Not(HasSubstr("\n"))));
        }
    }
}

TEST(CameraAddress, TakesThePasswordFromTextBeforeFileBeforeEnvironment) {
    const std::string file = testing::TempDir() + "lenswire-password";
    std::ofstream(file) << "from-file\r\nsecond line\n";
    setenv("LENSWIRE_PASSWORD", "from-environment", 1);
    const auto password_of = [](const char* text, const std::string& password_file) {
        return camera_addresses({text}, password_file).front().password.value();
    };
    EXPECT_EQ(password_of("user:own@127.0.0.1:80", file), "own");
    EXPECT_EQ(password_of("user@127.0.0.1:80", file), "from-file");
    EXPECT_EQ(password_of("user@127.0.0.1:80", ""), "from-environment");
    unsetenv("LENSWIRE_PASSWORD");
    EXPECT_THROW(password_of("user@127.0.0.1:80", ""), Failure);
    EXPECT_EQ(password_of("user:@127.0.0.1:80", ""), "");
    EXPECT_THROW(password_of("user@127.0.0.1:80", file + "-missing"), Failure);
}

TEST(CameraAddress, FillsTheLoginRecord) {
    const std::string user(31, 'u'), password(32, 'p');
    const LoginInfo info =
        login_info(camera_addresses({user + ":" + password + "@127.0.0.1:80"}, "").front());
    EXPECT_EQ(std::string(info.szUserName, 32), user + std::string(1, '\0'));
    EXPECT_EQ(std::string(info.szPassword, 32), password);
}

TEST(CameraAddress, ResolvesToNetworkOrder) {
    const CameraAddress address = camera_addresses({"u:p@127.0.0.9:80"}, "").front();
    const uint8_t expected[] = {127, 0, 0, 9};
    EXPECT_EQ(std::memcmp(&address.ip, expected, 4), 0);
    EXPECT_EQ(address.dotted_ip(), "127.0.0.9");
    EXPECT_THROW(camera_addresses({"u:p@0.0.0.0:80"}, ""), Failure);
}

}  // namespace
}  // namespace lenswire::recorder
