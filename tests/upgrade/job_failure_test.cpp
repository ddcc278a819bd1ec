// Jobs that cannot start, cameras and files that are refused, and what the system has run out of.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "upgrade/upgrade.h"

namespace {

using namespace lenswire::test;

std::string thread_error(const std::string& text) {
    return "[src/privateConfigure:ipc_upgrade_thread:N]:" + text + "\n";
}
std::string query_error(const std::string& text) {
    return "[src/privateConfigure:Get_IPC_upgradeParam:N]:" + text + "\n";
}

constexpr const char* kCheckFault = "###############Ipc Upgrade Check fault###############";

class UpgradeFailure : public UpgradeTest {
  protected:
    std::string has_file(size_t size = 1000) { return folder_.write(kFileName, pattern(size)); }
    int asks(int channel, std::string path) { return Get_IPC_upgradeParam(channel, path.data()); }
};

// -- The camera.

TEST_F(UpgradeFailure, OfTheQueryReadsAsNoFit) {
    binds({1, 2, 3}, uploads_.port());
    host().has_channel(2, Channel{.address = "0.0.0.0"});
    host().has_channel(3, Channel{.address = "127.9.9.9"});  // nobody is logged in there
    struct Case {
        int channel;
        const char* name;
        int result;
        std::string err;
        uint16_t state = 0, flag = 0;  // of the camera's answer
        int refused_allocation = 0;
    };
    const Case cases[] = {
        {1, kFileName, 1, ""},
        {1, "A_C_x.bin", 0, ""},
        {2, kFileName, -1, query_error("IP error")},
        {4, kFileName, -1, query_error("IP error")},
        {3, kFileName, 0, query_error("Prv_Send_Cmd failed")},
        {1, kFileName, 0, query_error("get cond and property failed pCmd->usCmd =2003"), 1},
        {1, kFileName, 0, query_error("ulBufferNum =1 ulFlag=7\tERROR"), 0, 7},
        {1, kFileName, 0, query_error("cond init failed"), 0, 0, 1},
    };
    for (const Case& c : cases) {
        info_state_ = c.state;
        info_flag_ = c.flag;
        host().refuses_allocation(c.refused_allocation);
        Capture capture;
        EXPECT_EQ(asks(c.channel, c.name), c.result) << c.err;
        EXPECT_EQ(unnumbered(capture.err()), c.err);
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
        EXPECT_EQ(
            unnumbered(capture.err()),
            "[src/privateConfigure:Prv_ipc_upgrade:N] the protocol can't update ipc the chano = 8 the ip "
            "= 127.0.0.1 the protocol = " +
                std::to_string(protocol) + "  i = 7\n");
        EXPECT_EQ(host().record(24, 5), Bytes(9));
        EXPECT_EQ(host().record(24, 9), repeated(0xEE, 9));
    }
}

TEST_F(UpgradeFailure, ReadsTheHostsTextNoFurtherThanItsField) {
    binds({1}, uploads_.port());
    Bytes record = repeated('x', 450);
    record[186] = 2;
    host().has_record(17, 1, record);
    Capture capture;
    starts({1}, has_file(), -2);
    EXPECT_THAT(capture.err(), testing::HasSubstr("the ip = " + std::string(64, 'x') + " the protocol = 2"));
}

TEST_F(UpgradeFailure, StopsAtTheFirstCameraThatTheFileDoesNotFit) {
    binds({1}, uploads_.port());
    Capture capture;
    starts({1}, folder_.path("A_C_x.bin"), -1);
    EXPECT_EQ(capture.out(), kCheckFault);
    EXPECT_EQ(host().record(24, 1), repeated(0xEE, 9));
    // A path without an end fits nobody.
    std::string endless(122, '/');
    endless += "A_B_xy";
    starts({1}, endless, -1);
}

TEST_F(UpgradeFailure, GoesOnWithAShortChannelTable) {
    host().has_record(17, 250, Bytes(100));
    Capture capture;
    waits_for_end(starts({}, has_file()));
    EXPECT_THAT(capture.out(), testing::HasSubstr("get devChannel info error, len = 100\r\n"));
}

TEST_F(UpgradeFailure, OfArgumentsStartsNothing) {
    const UpgradeRequest request{};
    pthread_t job;
    Capture capture;
    EXPECT_EQ(Prv_ipc_upgrade(nullptr, &job), -1);
    EXPECT_EQ(Prv_ipc_upgrade(&request, nullptr), -1);
    EXPECT_EQ(host().database_calls(17, 2), 0);
}

// No thread can have a stack of this size.
TEST_F(UpgradeFailure, OfTheThreadLeavesTheRecordFree) {
    pthread_attr_t usual;
    pthread_attr_t huge;
    ASSERT_EQ(pthread_getattr_default_np(&usual), 0);
    pthread_attr_init(&huge);
    ASSERT_EQ(
        pthread_attr_setstacksize(&huge, sizeof(void*) == 8 ? SIZE_MAX / (1 << 16) : SIZE_MAX / 16 * 15), 0);
    const std::string path = has_file();
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    for (int i = 0; i < 65; ++i) starts({}, path, -1);
    ASSERT_EQ(pthread_setattr_default_np(&usual), 0);
    waits_for_end(starts({}, path));
    pthread_attr_destroy(&usual);
    pthread_attr_destroy(&huge);
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
        if (channel == 2 && ++asked == 2) host().loses_channel(2);
    });
    const pthread_t job = starts({1, 2}, has_file());
    Wire wire = uploads_.accepts();
    EXPECT_TRUE(wire.sees_close());
    const UpgradeJobStatus end = waits_for_end(job);
    EXPECT_EQ(end.camera[0].ulState, uint32_t{UPGRADE_RUNNING});  // as the job left it
    EXPECT_EQ(end.ulCameraCount, 0U);
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
        return thread_error("get file(" + path + ") size failed, errno = " + std::to_string(error));
    };
    const std::pair<std::string, std::string> cases[] = {
        {missing, size_error(missing, ENOENT)},
        {long_one, size_error(long_one, EFBIG)},
        {longest, size_error(longest, EFBIG)},
        {folder, thread_error("fopen fail, errno = " + std::to_string(EINVAL))},
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

void open_null_at(int descriptor) {
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (null == descriptor) return;
    dup2(null, descriptor);
    close(null);
}

TEST_F(UpgradeFailure, IsNoneForASocketWithDescriptorZero) {
    binds({1}, uploads_.port());
    const std::string path = has_file();
    open_null_at(STDIN_FILENO);
    for (const bool answers : {true, false}) {
        close(STDIN_FILENO);
        const pthread_t job = starts({1}, path);
        Wire wire = uploads_.accepts();
        EXPECT_TRUE(is_open(STDIN_FILENO));
        wire.reads(1032);
        if (answers) wire.sends(upload_answer());
        wire.closes();
        EXPECT_EQ(waits_for_end(job).camera[0].ulState, uint32_t{answers ? UPGRADE_DONE : UPGRADE_FAILED});
        EXPECT_FALSE(is_open(STDIN_FILENO));
        open_null_at(STDIN_FILENO);
    }
}

// Gives the process's descriptors a limit for its scope.
class DescriptorLimit {
  public:
    explicit DescriptorLimit(rlim_t limit) {
        getrlimit(RLIMIT_NOFILE, &before_);
        rlimit now = before_;
        now.rlim_cur = limit;
        works_ = setrlimit(RLIMIT_NOFILE, &now) == 0;
    }
    ~DescriptorLimit() { setrlimit(RLIMIT_NOFILE, &before_); }
    DescriptorLimit(const DescriptorLimit&) = delete;
    DescriptorLimit& operator=(const DescriptorLimit&) = delete;

    bool works() const { return works_; }

  private:
    rlimit before_;
    bool works_;
};

TEST_F(UpgradeFailure, OfEverySocketIsNoAlarm) {
    binds({1, 2}, uploads_.port());
    const std::string path = has_file();
    Capture capture;
    const DescriptorLimit few(100);
    std::vector<int> taken;
    do taken.push_back(open("/dev/null", O_RDWR | O_CLOEXEC));
    while (taken.back() >= 0);
    taken.pop_back();
    const pthread_t job = starts({1, 2}, path);
    const UpgradeJobStatus end = waits_for_end(job);
    std::for_each(taken.begin(), taken.end(), close);
    EXPECT_EQ(end.ulCameraCount, 2U);
    EXPECT_EQ(end.camera[0].ulState, uint32_t{UPGRADE_FAILED});
    EXPECT_EQ(end.camera[1].ulState, uint32_t{UPGRADE_FAILED});
    EXPECT_EQ(unnumbered(capture.err()), thread_error("SK_ConnectTo fail") +
                                             thread_error("SK_ConnectTo fail") +
                                             thread_error("fopen fail, errno = " + std::to_string(EMFILE)));
    EXPECT_THAT(host().alarms(), testing::IsEmpty());
}

TEST_F(UpgradeFailure, OfASocketThatSelectCannotHold) {
    binds({1, 2}, uploads_.port());
    const std::string path = has_file();
    const DescriptorLimit more(1100);
    if (!more.works()) GTEST_SKIP() << "no more than 1024 descriptors here";
    Capture capture;
    // One descriptor below 1024 is free: the first camera gets it.
    std::vector<int> taken;
    do taken.push_back(open("/dev/null", O_RDWR | O_CLOEXEC));
    while (taken.back() < 1023);
    close(taken.back());
    taken.pop_back();
    const pthread_t job = starts({1, 2}, path);
    Wire wire = uploads_.accepts();
    wire.reads(1032);
    wire.sends(upload_answer());
    const UpgradeJobStatus end = waits_for_end(job);
    std::for_each(taken.begin(), taken.end(), close);
    EXPECT_EQ(unnumbered(capture.err()), thread_error("sock >= 1024"));
    EXPECT_EQ(end.camera[0].ulState, uint32_t{UPGRADE_DONE});
    EXPECT_EQ(end.camera[1].ulState, uint32_t{UPGRADE_FAILED});
    EXPECT_THAT(host().alarms(), testing::IsEmpty());
}

}  // namespace
