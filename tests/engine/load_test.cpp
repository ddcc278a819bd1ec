// A host loads the library, works with it and unloads it, over and over.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "lenswire/lenswire.h"
#include "support/capture.h"
#include "support/connections.h"
#include "support/fake_host.h"
#include "support/scripted_camera.h"

namespace lenswire::test {
namespace {

// One load of the library; this program is not linked with it.
struct Library {
    Library() { EXPECT_NE(handle, nullptr) << dlerror(); }
    void unload() { EXPECT_EQ(dlclose(handle), 0); }

    void* handle = dlopen(LENSWIRE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
};
#define CALL(library, function, ...) LENSWIRE_FIND((library).handle, function)(__VA_ARGS__)

bool is_mapped() {
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);) {
        if (line.find("liblenswire.so") != std::string::npos) return true;
    }
    return false;
}

// A camera logged in, a frame received: every thread has been used.
void works(Library& library, ScriptedCamera& camera) {
    ASSERT_EQ(CALL(library, PC_InitCtx), 0);
    StreamConn* unit = CALL(library, PC_CreateNew);
    ASSERT_NE(unit, nullptr);
    const LoginInfo info = credentials();
    std::future<Wire> served = camera.logs_in_next();
    ASSERT_EQ(CALL(library, PC_Login, unit, camera.address(), camera.port(), &info, 0, 0), 0);
    Wire control = served.get();

    Pair pair;
    ReceiveBuffer buffer(1 << 16);
    FakeStream stream;
    unit->sockFd = pair.ours();
    host().posts_open(0, 0, unit, buffer, stream);
    pair.theirs().sends(Packet{.payload = pattern(100)}.bytes() + Packet{.payload = pattern(1)}.bytes());
    EXPECT_TRUE(stream.frames.waits_for(1));

    CALL(library, PC_Delete, unit);
    EXPECT_EQ(CALL(library, PC_UnInitCtx), 0);
}

TEST(LoadingAndUnloading, OverAndOverLeavesNothing) {
    ScriptedCamera camera;
    ASSERT_FALSE(is_mapped());
    const int threads = thread_count();
    const int descriptors = open_descriptors();
    Capture capture;
    for (int round = 0; round < 5; ++round) {
        host().reset();
        Library library;
        EXPECT_TRUE(is_mapped());
        works(library, camera);
        library.unload();
        ASSERT_FALSE(is_mapped()) << "round " << round;
        EXPECT_TRUE(wait_until([&] { return thread_count() == threads; })) << "round " << round;
        EXPECT_EQ(host().live_allocations(), 0) << "round " << round;
        EXPECT_THAT(host().complaints(), testing::IsEmpty());
        if (HasFailure()) break;
    }
    // The capture's own four descriptors are among them.
    EXPECT_EQ(open_descriptors(), descriptors + 4);
}

// The thread of a job has still to return when its record is free.
TEST(LoadingAndUnloading, WaitsForTheThreadOfAnUpgrade) {
    host().reset();
    Capture capture;
    for (int round = 0; round < 100; ++round) {
        Library library;
        const UpgradeRequest request{};
        UpgradeJobStatus status{.ulUsed = 1, .ulThreadId = 0, .ulCameraCount = 0, .camera = {}};
        pthread_t job;
        ASSERT_EQ(CALL(library, Prv_ipc_upgrade, &request, &job), 0);
        // Every other round does not even wait for the record.
        while (round % 2 == 0 && status.ulUsed == 1) {
            ASSERT_EQ(CALL(library, Prv_ipc_upgrade_get_status, job, &status), 0);
        }
        library.unload();
        ASSERT_FALSE(is_mapped()) << "round " << round;
    }
}

}  // namespace
}  // namespace lenswire::test
