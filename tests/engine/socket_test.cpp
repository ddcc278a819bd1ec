// The steps that every connection to a camera is made of.
#include <arpa/inet.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "engine/engine.h"

namespace lenswire::test {
namespace {

TEST(Sockets, ConnectToGivesANonBlockingSocketThatBecomesUsable) {
    ScriptedCamera camera;
    // Only the low 16 bits of the port count.
    const int socket = SK_ConnectTo(camera.address(), camera.port() + 0x10000);
    ASSERT_GT(socket, 0);
    EXPECT_TRUE(fcntl(socket, F_GETFL) & O_NONBLOCK);
    camera.accepts();
    EXPECT_EQ(PC_SockReadable(socket), 1);
    EXPECT_EQ(SK_SelectWaitWriteable(socket, 20000), 0);
    EXPECT_EQ(Getsockerron(socket), 0);
    close(socket);
}

TEST(Sockets, ARefusedConnectShowsInTheReadinessTests) {
    int sockets[3];
    for (int& socket : sockets) socket = SK_ConnectTo(inet_addr("127.0.0.1"), refused_port());
    EXPECT_EQ(PC_SockReadable(sockets[0]), -3);
    EXPECT_EQ(SK_SelectWaitWriteable(sockets[1], 20000), -1);
    ASSERT_EQ(SK_SelectWaitReadable(sockets[2], 20000), 0);
    EXPECT_EQ(Getsockerron(sockets[2]), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    for (int socket : sockets) close(socket);
}

// A listener whose queue is full leaves further connects in progress.
TEST(Sockets, AConnectInProgressIsNotReady) {
    ScriptedCamera camera("127.0.0.1", 0);
    std::vector<int> queued;
    for (int i = 0; i < 4; ++i) queued.push_back(SK_ConnectTo(camera.address(), camera.port()));
    EXPECT_EQ(PC_SockReadable(queued.back()), -2);
    EXPECT_EQ(SK_SelectWaitWriteable(queued.back(), 0), -1);
    for (int socket : queued) close(socket);
}

TEST(Sockets, WaitingTellsReadableFromTimedOut) {
    Pair pair;
    const int socket = pair.ours();
    fcntl(socket, F_SETFL, O_APPEND);
    EXPECT_EQ(SK_SetSocketUnblock(socket), 0);
    EXPECT_EQ(fcntl(socket, F_GETFL) & (O_NONBLOCK | O_APPEND), O_NONBLOCK | O_APPEND);
    EXPECT_EQ(SK_SelectWaitReadable(socket, 0), -1);
    EXPECT_EQ(SK_SelectWaitWriteable(socket, 0), 0);
    EXPECT_EQ(PC_SockReadable(socket), 1);
    pair.theirs().sends(pattern(1));
    EXPECT_EQ(SK_SelectWaitReadable(socket, 1500), 0);
    // The end of the stream is readable too.
    pair.theirs().closes();
    EXPECT_EQ(SK_SelectWaitReadable(socket, 0), 0);
}

TEST(Sockets, IllegalDescriptorsFailAtOnce) {
    Pair pair;
    const int closed = fcntl(pair.ours(), F_DUPFD, 500);  // a number that nobody takes over
    close(closed);
    Capture capture;
    EXPECT_EQ(PC_SockReadable(-1), -1);
    EXPECT_EQ(capture.out(), "illegal socket fd[-1]\n");
    EXPECT_EQ(PC_SockReadable(closed), 0);
    EXPECT_EQ(SK_SelectWaitReadable(-1, 10000), -1);
    EXPECT_LT(SK_SelectWaitWriteable(-1, 10000), 0);
    EXPECT_LT(SK_SelectWaitReadable(closed, 10000), 0);
    EXPECT_LT(SK_SelectWaitWriteable(closed, 10000), 0);
    EXPECT_EQ(SK_SelectWaitWriteable(0, 10000), -1);
    EXPECT_EQ(SK_SetSocketUnblock(closed), -1);
    EXPECT_EQ(Getsockerron(closed), -1);
    EXPECT_THAT(capture.out(), HasSubstr(std::string("getsockopt(SO_ERROR): ") + strerror(EBADF)));
    // select's sets end at 1024: a larger descriptor is an error and touches no memory beyond them.
    if (!limits_descriptors(1100)) GTEST_SKIP() << "no descriptor above 1023 is allowed here";
    const int large = fcntl(pair.ours(), F_DUPFD_CLOEXEC, 1024);
    pair.theirs().sends(pattern(1));
    EXPECT_LE(PC_SockReadable(large), 0);
    EXPECT_LT(SK_SelectWaitReadable(large, 0), 0);
    EXPECT_LT(SK_SelectWaitWriteable(large, 0), 0);
    close(large);
}

}  // namespace
}  // namespace lenswire::test
