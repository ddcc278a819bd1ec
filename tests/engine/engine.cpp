#include "engine/engine.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace lenswire::test {

LoginInfo credentials(const std::string& user, const std::string& password) {
    LoginInfo info{};
    std::memcpy(info.szUserName, user.data(), std::min(user.size(), sizeof info.szUserName));
    std::memcpy(info.szPassword, password.data(), std::min(password.size(), sizeof info.szPassword));
    return info;
}

Pair::Pair() {
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
        ADD_FAILURE() << "no socket pair: " << strerror(errno);
        return;
    }
    ours_ = sockets[0];
    theirs_ = Wire(sockets[1]);
    fcntl(ours_, F_SETFL, fcntl(ours_, F_GETFL) | O_NONBLOCK);
}

Pair::~Pair() {
    closes_ours();
}

int Pair::gives_ours() {
    const int ours = ours_;
    ours_ = -1;
    return ours;
}

void Pair::closes_ours() {
    if (ours_ >= 0) close(ours_);
    ours_ = -1;
}

int waiting_bytes(int descriptor) {
    int count = -1;
    ioctl(descriptor, FIONREAD, &count);
    return count;
}

void HostTest::TearDown() {
    EXPECT_THAT(host().complaints(), testing::IsEmpty());
    EXPECT_EQ(host().live_allocations(), 0) << "memory of the host was not given back";
}

namespace {
bool g_context_used = false;
}

EngineTest::EngineTest() : threads_before_(thread_count()) {}

EngineTest::~EngineTest() {
    stops_engine();
}

void EngineTest::SetUp() {
    ASSERT_FALSE(g_context_used) << "a context starts once in a process: run one test at a time, or ctest";
    g_context_used = true;
    ASSERT_EQ(PC_InitCtx(), 0);
    running_ = true;
}

void EngineTest::TearDown() {
    stops_engine();
    HostTest::TearDown();
}

void EngineTest::stops_engine() {
    if (!running_) return;
    running_ = false;
    EXPECT_EQ(PC_UnInitCtx(), 0);
}

void EngineTest::stops_thread(uint8_t& run_switch) {
    ++stopped_threads_;
    __atomic_store_n(&run_switch, uint8_t{0}, __ATOMIC_RELEASE);
    EXPECT_TRUE(wait_until([&] { return thread_count() == threads_before_ + 3 - stopped_threads_; }));
}

Wire EngineTest::logs_in(StreamConn* unit, ScriptedCamera& camera, uint32_t login_id) {
    const LoginInfo info = credentials();
    std::future<Wire> served = camera.logs_in_next(login_id);
    EXPECT_EQ(PC_Login(unit, camera.address(), camera.port(), &info, 0, 0), 0);
    return served.get();
}

EngineTest::LoggedIn EngineTest::new_login(ScriptedCamera& camera, uint32_t login_id) {
    StreamConn* unit = PC_CreateNew();
    EXPECT_NE(unit, nullptr);
    return {unit, logs_in(unit, camera, login_id)};
}

}  // namespace lenswire::test
