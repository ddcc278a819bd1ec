// Jobs that cannot start, cameras and files that are refused, and what the system has run out of.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>

#include "upgrade/upgrade.h"

namespace {

using namespace lenswire::test;

const std::string kThread = "[src/privateConfigure:ipc_upgrade_thread:N]:";

class UpgradeFailure : public UpgradeTest {
  protected:
    std::string has_file(size_t size = 1000) { return folder_.write(kFileName, pattern(size)); }
    // All descriptors up to the process's limit, or to this one.
    static std::vector<int> takes_descriptors(int last) {
        std::vector<int> taken;
        do taken.push_back(open("/dev/null", O_RDWR | O_CLOEXEC));
        while (taken.back() >= 0 && taken.back() < last);
        return taken;
    }
};

// -- The camera.

TEST_F(UpgradeFailure, IsToldFromAFileThatDoesNotFit) {
    binds({1, 2}, uploads_.port());
    host().has_channel(2, Channel{.address = "0.0.0.0"});
    const std::tuple<int, std::string, int, const char*> cases[] = {
        {1, kFileName, 1, ""},
        {1, "A_C_x.bin", 0, ""},
        {2, kFileName, -1, "[src/privateConfigure:Get_IPC_upgradeParam:N]:IP error\n"},
        {4, kFileName, -1, "[src/privateConfigure:Get_IPC_upgradeParam:N]:IP error\n"},
    };
    for (auto [channel, name, result, err] : cases) {
        Capture capture;
        EXPECT_EQ(Get_IPC_upgradeParam(channel, name.data()), result);
        EXPECT_EQ(unnumbered(capture.err()), err);
    }
}

// -- The call.

TEST_F(UpgradeFailure, StopsAtTheFirstChannelOfAnotherProtocol) {
    const std::string path = has_file();
    for (const int protocol : {2, 3}) {
        binds({5, 7, 9}, uploads_.port());
        binds({7}, uploads_.port(), protocol);
        Capture capture;
        starts({5, 7, 9}, path, -protocol);
        const std::string text =
            " the protocol can't update ipc the chano = 8 the ip = 127.0.0.1 the protocol = ";
        EXPECT_EQ(unnumbered(capture.err()),
                  "[src/privateConfigure:Prv_ipc_upgrade:N]" + text + std::to_string(protocol) + "  i = 7\n");
        EXPECT_EQ(host().record(24, 5), Bytes(9));
        EXPECT_EQ(host().record(24, 9), repeated(0xEE, 9));
    }
    Bytes record = repeated('x', 450);  // the host's text is read no further than its field
    record[186] = 2;
    host().has_record(17, 1, record);
    Capture capture;
    starts({1}, path, -2);
    EXPECT_THAT(capture.err(), testing::HasSubstr("the ip = " + std::string(64, 'x') + " the protocol = 2"));
}

TEST_F(UpgradeFailure, StopsAtTheFirstCameraThatTheFileDoesNotFit) {
    binds({1}, uploads_.port());
    Capture capture;
    starts({1}, folder_.path("A_C_x.bin"), -1);
    EXPECT_EQ(capture.out(), "###############Ipc Upgrade Check fault###############");
    EXPECT_EQ(host().record(24, 1), repeated(0xEE, 9));
    // A path without an end fits nobody.
    starts({1}, std::string(122, '/') + "A_B_xy", -1);
}

TEST_F(UpgradeFailure, OfArgumentsStartsNothingAndAShortChannelTableDoes) {
    const UpgradeRequest request{};
    pthread_t job;
    Capture capture;
    EXPECT_EQ(Prv_ipc_upgrade(nullptr, &job), -1);
    EXPECT_EQ(Prv_ipc_upgrade(&request, nullptr), -1);
    EXPECT_EQ(host().database_calls(17, 2), 0);
    host().has_record(17, 250, Bytes(100));
    waits_for_end(starts({}, has_file()));
    EXPECT_THAT(capture.out(), testing::HasSubstr("get devChannel info error, len = 100\r\n"));
}

// A thread that no job started has nothing to do, and owns its request all the same.
TEST_F(UpgradeFailure, OfAForeignThreadFreesItsRequest) {
    Capture capture;
    for (void* request : {std::malloc(192), static_cast<void*>(nullptr)}) {
        pthread_t thread;
        ASSERT_EQ(pthread_create(&thread, nullptr, ipc_upgrade_thread, request), 0);
    }
    EXPECT_TRUE(wait_until([&] { return occurrences(capture.out(), "ipc_upgrade_thread") == 2; }));
}

// -- The job.

TEST_F(UpgradeFailure, OfOneChannelEndsTheJobAtOnce) {
    binds({1, 2}, uploads_.port());
    std::atomic<int> asked{0};
    host().when(Service::kChannelInfo, [&](int channel, int) {
        if (channel == 2 && ++asked == 2) host().has_channel(2, Channel{.address = "", .known = false});
    });
    const pthread_t job = starts({1, 2}, has_file());
    Wire wire = uploads_.accepts();
    EXPECT_TRUE(wire.sees_close());
    EXPECT_EQ(text_of(waits_for_end(job)), "");
    EXPECT_EQ(status(job).camera[0].ulState, uint32_t{UPGRADE_RUNNING});  // as the job left it
    EXPECT_THAT(host().alarms(), testing::IsEmpty());
}

// The names of the file fit; the file itself cannot be had.
TEST_F(UpgradeFailure, OfTheFileEndsTheJobAtOnce) {
    binds({1}, uploads_.port());
    const std::string missing = folder_.path("A_B_missing");
    const std::string folder = folder_.path("A_B_folder");
    ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
    const std::string longest = folder_.write("A_B_longest", {});
    const std::string long_one = folder_.write("A_B_long", {});
    if (truncate64(longest.c_str(), UINT32_MAX) != 0 || truncate64(long_one.c_str(), int64_t{1} << 32) != 0) {
        GTEST_SKIP() << "no room for a sparse file of 4 GiB";
    }
    const auto size_error = [](const std::string& path, int error) {
        return kThread + "get file(" + path + ") size failed, errno = " + std::to_string(error) + "\n";
    };
    const std::pair<std::string, std::string> cases[] = {
        {missing, size_error(missing, ENOENT)},
        {long_one, size_error(long_one, EFBIG)},
        {longest, size_error(longest, EFBIG)},
        {folder, kThread + "fopen fail, errno = 22\n"},
    };
    for (const auto& [path, err] : cases) {
        Capture capture;
        const pthread_t job = starts({1}, path);
        Wire wire = uploads_.accepts();
        EXPECT_TRUE(wire.sees_close());
        EXPECT_EQ(waits_for_end(job).ulCameraCount, 1U);
        EXPECT_EQ(unnumbered(capture.err()), err);
    }
}

// -- Descriptors.

TEST_F(UpgradeFailure, OfEverySocketIsNoAlarm) {
    binds({1, 2}, uploads_.port());
    const std::string path = has_file();
    Capture capture;
    ASSERT_TRUE(limits_descriptors(100));
    const std::vector<int> taken = takes_descriptors(INT_MAX);
    EXPECT_EQ(text_of(waits_for_end(starts({1, 2}, path))), "1: failed 0%, 2: failed 0%, ");
    std::for_each(taken.begin(), taken.end() - 1, close);
    const std::string unconnected = kThread + "SK_ConnectTo fail\n";
    EXPECT_EQ(unnumbered(capture.err()), unconnected + unconnected + kThread + "fopen fail, errno = 24\n");
    EXPECT_THAT(host().alarms(), testing::IsEmpty());
}

TEST_F(UpgradeFailure, OfASocketThatSelectCannotHoldIsNoneOfOneWithDescriptorZero) {
    binds({1, 2}, uploads_.port());
    const std::string path = has_file();
    if (!limits_descriptors(1100)) GTEST_SKIP() << "no more than 1024 descriptors here";
    Capture capture;
    const std::vector<int> taken = takes_descriptors(1023);
    close(STDIN_FILENO);  // the first camera gets it
    const pthread_t job = starts({1, 2}, path);
    // The second gets the next, 1024.
    EXPECT_TRUE(wait_until([&] { return unnumbered(capture.err()) == kThread + "sock >= 1024\n"; }));
    Wire wire = uploads_.accepts();
    wire.reads(1032);
    EXPECT_TRUE(is_open(STDIN_FILENO));
    wire.sends(upload_answer());
    EXPECT_EQ(text_of(waits_for_end(job)), "1: done 100%, 2: failed 0%, ");
    EXPECT_EQ(open("/dev/null", O_RDWR | O_CLOEXEC), STDIN_FILENO) << "the socket was not closed";
    std::for_each(taken.begin(), taken.end(), close);
    EXPECT_THAT(host().alarms(), testing::IsEmpty());
}

}  // namespace
