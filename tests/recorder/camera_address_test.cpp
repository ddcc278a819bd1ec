#include "recorder/host/camera_address.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "recorder/support/failure.h"
#include "support/folder.h"

namespace lenswire::recorder {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using Bytes = std::vector<uint8_t>;

TEST(CameraAddress, ReadsEveryForm) {
    const std::string user(31, 'u'), password(32, 'p');
    const std::tuple<std::string, std::string, std::string, std::string> cases[] = {
        {"admin:secret@10.0.0.7:9988", "admin", "secret", "10.0.0.7:9988/0/0"},
        {"admin:secret@camera.lan:1/3", "admin", "secret", "camera.lan:1/3/0"},
        {"admin:p@ss:w/rd@10.0.0.7:65535/255/2", "admin", "p@ss:w/rd", "10.0.0.7:65535/255/2"},
        {"admin:@10.0.0.7:80", "admin", "", "10.0.0.7:80/0/0"},
        {"admin:secret@10.0.0.7/1", "admin", "secret", "10.0.0.7:7788/1/0"},
        {user + ":" + password + "@10.0.0.7:80", user, password, "10.0.0.7:80/0/0"}};
    for (const auto& [text, name, secret, place] : cases) {
        const CameraAddress address = parse_camera_address(text);
        EXPECT_EQ(address.password, secret);
        EXPECT_EQ(
            address.name() + "/" + std::to_string(address.channel) + "/" + std::to_string(address.stream),
            place);
        const LoginInfo info = login_info(address);
        EXPECT_EQ(std::string(info.szUserName, 32), name + std::string(32 - name.size(), '\0'));
        EXPECT_EQ(std::string(info.szPassword, 32), secret + std::string(32 - secret.size(), '\0'));
    }
}

TEST(CameraAddress, RefusesBadTextWithOneLineThatHidesTheCredentials) {
    std::vector<std::string> cases = {"", "Secret", "user:Secret", "@10.0.0.7:80", ":Secret@10.0.0.7:80"};
    cases.push_back(std::string(32, 'u') + ":Secret@10.0.0.7:80");
    cases.push_back("user:" + std::string(33, 'S') + "@10.0.0.7:80");
    for (const char* place : {"", ":80", "10.0.0.7:", "10.0.0.7:0", "10.0.0.7:65536", "10.0.0.7:80x",
                              "10.0.0.7:-80", "10.0.0.7:80/", "10.0.0.7:80/256", "10.0.0.7:80/1/",
                              "10.0.0.7:80/1/256", "10.0.0.7:80/1/2/3", "10.0.0.7:80/one"})
        cases.push_back(std::string("user:Secret@") + place);
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

TEST(CameraAddress, TakesThePasswordFromTextBeforeListBeforeFileBeforeEnvironment) {
    const test::Folder folder;
    const std::string long_one(33, 'x'), file = "from-file\r\nsecond line\n";
    const std::string list = "# cameras\n127.0.0.1:80 of one\n127.0.0.1 of-host\r\n* of-others\n";
    setenv("LENSWIRE_PASSWORD_127_0_0_9", "of-environment", 1);
    using Text = std::optional<std::string>;  // none where there is no such source
    const std::tuple<const char*, Text, Text, Text, Text> cases[] = {
        {"user:own@127.0.0.1:80", {}, file, "all", "own"},
        {"user:@127.0.0.1:80", {}, file, "all", ""},
        {"user@127.0.0.1:80", {}, file, "all", "from-file"},
        {"user@127.0.0.1:80", {}, {}, "all", "all"},
        {"user@127.0.0.1:80", {}, long_one, "all", {}},
        {"user@127.0.0.1:80", {}, "", "all", {}},
        {"user@127.0.0.1:80", {}, {}, long_one, {}},
        {"user@127.0.0.1:80", {}, {}, {}, {}},
        {"127.0.0.1:80", list, {}, {}, "of one"},
        {"u@127.0.0.1:81", list, {}, {}, "of-host"},
        {"u@127.0.0.2", list, {}, {}, "of-others"},
        {"u:own@127.0.0.1:80", list, {}, {}, "own"},
        {"u:own@127.0.0.1:80", "127.0.0.1\n", {}, {}, {}},
        {"u:own@127.0.0.1:80", " secret\n", {}, {}, {}},
        {"127.0.0.9", {}, {}, "all", "of-environment"}};
    const auto path = [&](const char* name, const Text& text) {
        return text ? folder.write(name, Bytes(text->begin(), text->end())) : "";
    };
    for (const auto& [camera, lines, first_line, environment, password] : cases) {
        unsetenv("LENSWIRE_PASSWORD");
        if (environment) setenv("LENSWIRE_PASSWORD", environment->c_str(), 1);
        Text taken;
        try {
            taken = camera_addresses({camera}, {path("file", first_line), path("list", lines)})[0].password;
        } catch (const Failure&) {
        }
        EXPECT_EQ(taken, password) << camera;
    }
}

TEST(CameraAddress, ResolvesToNetworkOrder) {
    const CameraAddress address = camera_addresses({"u:p@127.0.0.9:80"}, "").front();
    EXPECT_EQ(address.ip, htonl(0x7F000009));
    EXPECT_EQ(address.dotted_ip(), "127.0.0.9");
    EXPECT_THROW(camera_addresses({"u:p@0.0.0.0:80"}, ""), Failure);
    EXPECT_THROW(camera_addresses({"u:p@127.0.0.1.1:80"}, ""), Failure) << "no host";
}

}  // namespace
}  // namespace lenswire::recorder
