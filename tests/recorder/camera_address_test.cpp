#include "recorder/host/camera_address.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "recorder/support/failure.h"
#include "support/folder.h"

namespace lenswire::recorder {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(CameraAddress, ReadsEveryForm) {
    const std::string user(31, 'u'), password(32, 'p');
    struct Case {
        std::string text, user, password, place;
    };
    const Case cases[] = {
        {"admin:secret@10.0.0.7:9988", "admin", "secret", "10.0.0.7:9988/0/0"},
        {"admin:secret@camera.lan:1/3", "admin", "secret", "camera.lan:1/3/0"},
        {"admin:p@ss:w/rd@10.0.0.7:65535/255/2", "admin", "p@ss:w/rd", "10.0.0.7:65535/255/2"},
        {"admin:@10.0.0.7:80", "admin", "", "10.0.0.7:80/0/0"},
        {"admin:secret@10.0.0.7/1", "admin", "secret", "10.0.0.7:7788/1/0"},
        {user + ":" + password + "@10.0.0.7:80", user, password, "10.0.0.7:80/0/0"}};
    for (const Case& c : cases) {
        const CameraAddress address = parse_camera_address(c.text);
        EXPECT_EQ(address.user, c.user);
        EXPECT_EQ(address.password, c.password);
        EXPECT_EQ(
            address.name() + "/" + std::to_string(address.channel) + "/" + std::to_string(address.stream),
            c.place);
        const LoginInfo info = login_info(address);
        EXPECT_EQ(std::string(info.szUserName, 32), c.user + std::string(32 - c.user.size(), '\0'));
        EXPECT_EQ(std::string(info.szPassword, 32), c.password + std::string(32 - c.password.size(), '\0'));
    }
    EXPECT_FALSE(parse_camera_address("admin@10.0.0.7:80").password);
}

TEST(CameraAddress, RefusesBadTextWithOneLineThatHidesTheCredentials) {
    std::vector<std::string> cases = {"", "Secret", "user:Secret", "@10.0.0.7:80", ":Secret@10.0.0.7:80"};
    cases.push_back(std::string(32, 'u') + ":Secret@10.0.0.7:80");
    cases.push_back("user:" + std::string(33, 'S') + "@10.0.0.7:80");
    for (const char* place : {"", ":80", "10.0.0.7:", "10.0.0.7:0", "10.0.0.7:65536", "10.0.0.7:80x",
                              "10.0.0.7:-80", "10.0.0.7:80/", "10.0.0.7:80/256", "10.0.0.7:80/1/",
                              "10.0.0.7:80/1/256", "10.0.0.7:80/1/2/3", "10.0.0.7:80/one"}) {
        cases.push_back(std::string("user:Secret@") + place);
    }
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
    const test::Folder folder;
    const std::string file = folder.path("password"), long_one = folder.path("long"),
                      empty = folder.path("empty");
    std::ofstream(file) << "from-file\r\nsecond line\n";
    std::ofstream(long_one) << std::string(33, 'x');
    std::ofstream{empty};
    setenv("LENSWIRE_PASSWORD", "from-environment", 1);
    const auto password_of = [](const char* text, const std::string& password_file) {
        return camera_addresses({text}, password_file).front().password.value();
    };
    EXPECT_EQ(password_of("user:own@127.0.0.1:80", file), "own");
    EXPECT_EQ(password_of("user:@127.0.0.1:80", file), "");
    EXPECT_EQ(password_of("user@127.0.0.1:80", file), "from-file");
    EXPECT_EQ(password_of("user@127.0.0.1:80", ""), "from-environment");
    for (const std::string& bad : {long_one, empty, folder.path("missing")})
        EXPECT_THROW(password_of("user@127.0.0.1:80", bad), Failure) << bad;
    const std::string list = folder.path("list");
    std::ofstream(list) << "# cameras\n127.0.0.1:80 of one\n127.0.0.1 of-host\r\n* of-others\n";
    setenv("LENSWIRE_PASSWORD_127_0_0_9", "of-environment", 1);
    const std::pair<const char*, const char*> cases[] = {{"127.0.0.1:80", "of one"},
                                                         {"u@127.0.0.1:81", "of-host"},
                                                         {"u@127.0.0.2", "of-others"},
                                                         {"u:own@127.0.0.1:80", "own"}};
    for (const auto& [text, password] : cases)
        EXPECT_EQ(camera_addresses({text}, {"", list}).front().password, password) << text;
    EXPECT_EQ(password_of("127.0.0.9", ""), "of-environment");
    for (const char* bad : {"127.0.0.1\n", " secret\n"}) {
        std::ofstream(list) << bad;
        EXPECT_THROW(camera_addresses({"u:p@127.0.0.1"}, {"", list}), Failure) << bad;
    }
    unsetenv("LENSWIRE_PASSWORD_127_0_0_9");
    setenv("LENSWIRE_PASSWORD", std::string(33, 'x').c_str(), 1);
    EXPECT_THROW(password_of("user@127.0.0.1:80", ""), Failure);
    unsetenv("LENSWIRE_PASSWORD");
    EXPECT_THROW(password_of("user@127.0.0.1:80", ""), Failure);
}

TEST(CameraAddress, ResolvesToNetworkOrder) {
    const CameraAddress address = camera_addresses({"u:p@127.0.0.9:80"}, "").front();
    const uint8_t expected[] = {127, 0, 0, 9};
    EXPECT_EQ(std::memcmp(&address.ip, expected, 4), 0);
    EXPECT_EQ(address.dotted_ip(), "127.0.0.9");
    EXPECT_THROW(camera_addresses({"u:p@0.0.0.0:80"}, ""), Failure);
    EXPECT_THROW(camera_addresses({"u:p@127.0.0.1.1:80"}, ""), Failure) << "no host";
}

}  // namespace
}  // namespace lenswire::recorder
