#include "engine/engine.h"

#include <sys/resource.h>

namespace lenswire::test {

bool limits_descriptors(unsigned count) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = count;
    return setrlimit(RLIMIT_NOFILE, &limit) == 0;
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
    std::future<Wire> served = camera.logs_in_next(login_id);
    EXPECT_EQ(login(unit, camera), 0);
    return served.get();
}

EngineTest::LoggedIn EngineTest::new_login(ScriptedCamera& camera, uint32_t login_id) {
    StreamConn* unit = PC_CreateNew();
    EXPECT_NE(unit, nullptr);
    return {unit, logs_in(unit, camera, login_id)};
}

}  // namespace lenswire::test
