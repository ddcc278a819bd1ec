// What the engine promises when the system or the host is at its worst: waits that nothing but an event ends,
// calls that fail, descriptors closed under it, a stop in the middle of everything.
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <set>
#include <thread>

#include "engine/engine.h"
#include "lenswire/settings.h"
#include "support/interpose.h"

namespace {

// The program's own select, prctl, recv, fcntl and clock_gettime stand in front of libc's. They misbehave
// only as a test asks for, and only towards threads that are not the test's.
struct UnkindSystem {
    // The loops' short waits in select end only when something happens.
    std::atomic<bool> endless_waits{false};
    // prctl fails at each thread's n-th call when bit n is set, 1 being its first.
    std::atomic<uint32_t> refused_prctl{0};
    // The next recv fails with this error; 0 for none.
    std::atomic<int> recv_error{0};
    std::atomic<int> received_from[1024]{};  // recv calls by descriptor
    // The next recv that brings something returns only when it is let go.
    enum class Hold { kNot, kNext, kHeld };
    std::atomic<Hold> recv_hold{Hold::kNot};
    // Every other reading of the monotonic clock fails, each thread's second first.
    std::atomic<bool> failing_clock{false};
    // Descriptors cannot be made non-blocking; the test's threads are not spared.
    std::atomic<bool> blocking_only{false};
};
UnkindSystem g_unkind;

// The test's own thread is the process's first.
bool spared() {
    return gettid() == getpid();
}

int fail_with(int error) {
    errno = error;
    return -1;
}

}  // namespace

extern "C" {

int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* timeout) {
    using Select = int (*)(int, fd_set*, fd_set*, fd_set*, timeval*);
    static const auto real_select = REAL_TIMED(Select, select);
    const bool short_wait = timeout != nullptr && timeout->tv_sec == 0 && timeout->tv_usec == 1000;
    if (g_unkind.endless_waits && short_wait && !spared()) timeout = nullptr;
    return real_select(count, readable, writable, exceptional, timeout);
}

int prctl(int option, ...) {
    va_list list;
    va_start(list, option);
    const unsigned long argument = va_arg(list, unsigned long);
    va_end(list);
    static thread_local int calls;
    if (!spared() && (g_unkind.refused_prctl >> std::min(++calls, 31) & 1) != 0) return fail_with(EPERM);
    using Prctl = int (*)(int, unsigned long, unsigned long, unsigned long, unsigned long);
    static const auto real_prctl = REAL(Prctl, prctl);
    return real_prctl(option, argument, 0, 0, 0);
}

ssize_t recv(int fd, void* buffer, size_t length, int flags) {
    using Recv = ssize_t (*)(int, void*, size_t, int);
    static const auto real_recv = REAL(Recv, recv);
    if (fd >= 0 && fd < 1024) ++g_unkind.received_from[fd];
    if (const int error = spared() ? 0 : g_unkind.recv_error.exchange(0); error != 0) return fail_with(error);
    const ssize_t received = real_recv(fd, buffer, length, flags);
    using Hold = UnkindSystem::Hold;
    Hold next = Hold::kNext;
    const bool holds =
        received > 0 && !spared() && g_unkind.recv_hold.compare_exchange_strong(next, Hold::kHeld);
    if (holds) g_unkind.recv_hold.wait(Hold::kHeld);
    return received;
}

int fcntl(int fd, int command, ...) {
    va_list list;
    va_start(list, command);
    const long argument = va_arg(list, long);
    va_end(list);
    if (command == F_SETFL && g_unkind.blocking_only) return fail_with(EPERM);
#ifdef SYS_fcntl64
    return static_cast<int>(syscall(SYS_fcntl64, fd, command, argument));
#else
    return static_cast<int>(syscall(SYS_fcntl, fd, command, argument));
#endif
}

int clock_gettime(clockid_t clock, timespec* now) noexcept {
    static thread_local int readings;
    const bool fails = g_unkind.failing_clock && !spared() && ++readings % 2 == 0;
    if (clock == CLOCK_MONOTONIC && fails) return fail_with(EINVAL);
    using ClockGettime = int (*)(clockid_t, timespec*);
    static const auto real_clock_gettime = REAL_TIMED(ClockGettime, clock_gettime);
    return real_clock_gettime(clock, now);
}
}

namespace lenswire::test {
namespace {

std::set<int> descriptors() {
    std::set<int> open;
    for (int fd = 0; fd < 1024; ++fd) {
        if (is_open(fd)) open.insert(fd);
    }
    return open;
}

// Cameras whose pushes the host counts, and streams.
class System : public EngineTest {
  protected:
    void SetUp() override {
        before_ = descriptors();
        EngineTest::SetUp();
        host().has_channel(0, {.address = "127.0.0.1", .armed = true});
        host().has_channel(1, {.address = "127.0.0.2", .armed = true});
    }
    // A push gets through.
    void expects_push(Wire& wire, uint8_t state) {
        const size_t calls = host().motion_calls().size();
        wire.sends(motion(state));
        ASSERT_TRUE(host().motion_calls.waits_for(calls + 1));
        EXPECT_EQ(host().motion_calls().back().status, state);
    }
    // A stream opens, brings a frame that was waiting, and closes.
    void streams(int channel) {
        Pair pair;
        StreamConn unit{};
        CmdClient client{};
        unit.sockFd = pair.ours();
        unit.pCmdClient = &client;
        pair.theirs().sends(Packet{.payload = pattern(100)}.bytes() + Packet{.payload = pattern(1)}.bytes());
        host().posts_open(channel, 0, &unit, buffer_, stream_);
        ASSERT_TRUE(stream_.frames.waits_for(static_cast<size_t>(++frames_expected_)));
        host().posts_close(channel, 0);
        ASSERT_TRUE(wait_until([&] { return peek(arrayfd[0]) == 0; }));
    }

    std::set<int> before_;
    ScriptedCamera camera_{"127.0.0.1"}, other_{"127.0.0.2"};
    ReceiveBuffer buffer_;
    FakeStream stream_;
    int frames_expected_ = 0;
};

TEST_F(System, NothingWaitsForTheEndOfAWait) {
    g_unkind.endless_waits = true;
    streams(0);
    LoggedIn login = new_login(camera_);
    expects_push(login.wire, 1);
    streams(1);
    login.wire = logs_in(login.unit, camera_);
    expects_push(login.wire, 2);
    PC_SetCBState(login.unit->pCmdClient, PC_STATE_IDLE);
    PC_SetCBState(login.unit->pCmdClient, PC_STATE_READY);
    expects_push(login.wire, 3);
    PC_Delete(login.unit);
    EXPECT_TRUE(login.wire.sees_close());
    stops_engine();
}

// The clock cannot be read, or the timer slack not be set: always, or at a single call of a thread's first
// passes.
class RefusedCall : public System, public testing::WithParamInterface<int> {
  protected:
    RefusedCall() {
        g_unkind.failing_clock = GetParam() == 0;
        g_unkind.refused_prctl = GetParam() == 7 ? UINT32_MAX : 1u << GetParam();
    }
};

TEST_P(RefusedCall, ChangesNothing) {
    LoggedIn login = new_login(camera_);
    streams(0);
    // A stream's descriptor closed by the host is found by the error of the select that the slack surrounds.
    Pair closed;
    StreamConn unit{};
    unit.sockFd = closed.ours();
    host().posts_open(2, 0, &unit, buffer_, stream_);
    ASSERT_TRUE(wait_until([&] { return peek(arrayfd[0]) != 0; }));
    closed.closes_ours();
    ASSERT_TRUE(wait_until([] { return host().restarts.size() == 1; }));
    streams(3);
    expects_push(login.wire, 1);
}

INSTANTIATE_TEST_SUITE_P(AtEachCall, RefusedCall, testing::Range(0, 8));

TEST_F(System, WorkersTakeOnlyTheSignalsTheyBringOnThemselves) {
    std::atomic<int> wrong{0};
    host().when(Service::kGetRequest, [&](int, int) {
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGCHLD, SIGPIPE, SIGALRM})
            wrong += sigismember(&blocked, signal) != 1;
        for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGABRT})
            wrong += sigismember(&blocked, signal) != 0;
    });
    ASSERT_TRUE(wait_until([] { return host().calls(Service::kGetRequest) > 100; }));
    EXPECT_EQ(wrong, 0);
}

TEST_F(System, AProgramThatTheHostStartsInheritsNoDescriptor) {
    LoggedIn login = new_login(camera_);
    const int socket = SK_ConnectTo(camera_.address(), camera_.port());
    for (const int fd : descriptors()) {
        if (before_.contains(fd) || fd == login.wire.descriptor()) continue;
        EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC) << fd;
    }
    close(socket);
}

TEST_F(System, ASocketThatWouldBlockIsNone) {
    g_unkind.blocking_only = true;
    Capture capture;
    EXPECT_EQ(login(PC_CreateNew(), camera_), -1);
    EXPECT_THAT(capture.err(), HasSubstr("RTSP_Client_SubSvr Failed"));
    g_unkind.blocking_only = false;
}

// -- Control connections.

TEST_F(System, AHostThatReconnectsByItselfIsReadAgain) {
    LoggedIn login = new_login(camera_);
    CmdClient* client = login.unit->pCmdClient;
    const int socket = client->sockFd;
    login.wire.closes();
    ASSERT_TRUE(wait_until([&] { return g_unkind.received_from[socket] > 0; }));
    std::future<Wire> served = camera_.logs_in_next();
    PC_Exit(client);
    poke(client->sockFd, SK_ConnectTo(camera_.address(), camera_.port()));
    EXPECT_EQ(client->sockFd, socket) << "the number is the old one, to make it hard";
    client->ulLoginStep = 0;
    PC_SetCBState(client, PC_STATE_CONNECTED);
    ASSERT_TRUE(
        wait_until([&] { return PC_TaskProc(client), peek(client->ucClientState) == PC_STATE_READY; }));
    login.wire = served.get();
    expects_push(login.wire, 7);

    // Nor does a socket that is put in its place without a word of it.
    g_unkind.received_from[socket] = 0;
    login.wire.closes();
    ASSERT_TRUE(wait_until([&] { return g_unkind.received_from[socket] > 0; }));
    PC_Exit(client);
    Pair pair;
    ASSERT_EQ(pair.ours(), socket);
    poke(client->sockFd, pair.gives_ours());
    expects_push(pair.theirs(), 8);
}

TEST_F(System, ADescriptorThatTheHostClosedSilencesNoOtherCamera) {
    LoggedIn closed = new_login(camera_);
    LoggedIn living = new_login(other_);
    const int socket = closed.unit->pCmdClient->sockFd;
    host().when(Service::kSetMotionStatus, [socket](int, int status) {
        if (status == 1) close(socket);  // between two waits, the next of which fails
    });
    for (const uint8_t state : {1, 2, 3}) expects_push(living.wire, state);
    poke(closed.unit->pCmdClient->sockFd, -1);  // the number may be somebody else's by now
}

// One read finds the end; with a camera that goes on pushing, passes go by without another.
TEST_F(System, AnEndIsReadOnceAndCostsNothing) {
    LoggedIn ended = new_login(camera_);
    LoggedIn living = new_login(other_);
    CmdClient* client = ended.unit->pCmdClient;
    Capture capture;
    for (void (Wire::*ends)() : {&Wire::closes, &Wire::resets}) {
        const int socket = client->sockFd;
        g_unkind.received_from[socket] = 0;
        (ended.wire.*ends)();
        ASSERT_TRUE(wait_until([&] { return g_unkind.received_from[socket] > 0; }));
        for (uint8_t state = 1; state < 10; ++state) expects_push(living.wire, state);
        EXPECT_EQ(g_unkind.received_from[socket], 1);
        EXPECT_TRUE(is_open(socket));
        EXPECT_EQ(peek(client->ucClientState), PC_STATE_READY);
        ended.wire = logs_in(ended.unit, camera_);
        expects_push(ended.wire, 77);
    }
    EXPECT_EQ(occurrences(capture.out() + capture.err(), "\n"), 2) << "the two logins";
}

TEST_F(System, APassingErrorIsNoEnd) {
    LoggedIn login = new_login(camera_);
    for (const int error : {ENOMEM, ENOBUFS, EINTR, EAGAIN}) {
        g_unkind.recv_error = error;
        expects_push(login.wire, static_cast<uint8_t>(error));
    }
}

TEST_F(System, UrgentDataIsTakenOutOfTheWay) {
    LoggedIn login = new_login(camera_);
    const int socket = login.unit->pCmdClient->sockFd;
    for (const uint8_t state : {1, 2}) {
        ASSERT_EQ(send(login.wire.descriptor(), "!", 1, MSG_OOB), 1);
        ASSERT_TRUE(wait_until([&] {
            pollfd urgent{.fd = socket, .events = POLLPRI, .revents = 0};
            return g_unkind.received_from[socket] > 0 && poll(&urgent, 1, 0) == 0;
        }));
        g_unkind.received_from[socket] = 0;
        expects_push(login.wire, state);
    }
}

// The event loop is held between its reading of a message's first half and the keeping of it, while a pass of
// the host's own finds the second half.
TEST_F(System, TwoReadersDoNotShareAClient) {
    using Hold = UnkindSystem::Hold;
    LoggedIn login = new_login(camera_);
    const Bytes message = motion(5).bytes();
    g_unkind.recv_hold = Hold::kNext;
    login.wire.sends(slice(message, 0, 20));
    ASSERT_TRUE(wait_until([] { return g_unkind.recv_hold == Hold::kHeld; }));
    login.wire.sends(slice(message, 20, message.size()));
    ASSERT_TRUE(wait_until([&] { return waiting_bytes(login.unit->pCmdClient->sockFd) > 0; }));
    PC_SingleStep();
    g_unkind.recv_hold = Hold::kNot;
    g_unkind.recv_hold.notify_all();
    ASSERT_TRUE(host().motion_calls.waits_for(1));
    EXPECT_EQ(host().motion_calls()[0].status, 5);
}

// -- The end.

// A get that waits, an invitation of a stream and a login that nobody answers: the host has its threads back.
TEST_F(System, AStopEndsWhateverWaits) {
    LoggedIn asked = new_login(camera_);
    LoggedIn streaming = new_login(other_);
    StreamConn* refused = PC_CreateNew();
    ScriptedCamera mute("127.0.0.3");
    Capture capture;
    auto get = std::async(std::launch::async, [&] {
        Bytes record(36);
        return Prv_GetIPCImageProperty(0, camera_.address(), record.data());
    });
    auto stream = std::async(std::launch::async, [&] { return PC_GetStream(streaming.unit, 0, 0, nullptr); });
    auto log_in = std::async(std::launch::async, [&] { return login(refused, mute); });
    asked.wire.reads_command();
    Wire stream_wire = other_.accepts();
    stream_wire.reads(36);
    Wire login_wire = mute.accepts();
    login_wire.reads_command();
    stops_engine();
    EXPECT_EQ(get.get(), -1);
    EXPECT_EQ(host().dumped_count("pthread_cond_timedwait time out"), 0) << "the get waited to its end";
    EXPECT_EQ(stream.get(), -1);
    EXPECT_EQ(log_in.get(), -1);
    EXPECT_TRUE(stream_wire.sees_close());
    EXPECT_TRUE(login_wire.sees_close());
    EXPECT_TRUE(is_open(0));
    EXPECT_THAT(capture.out(), Not(HasSubstr("respone time out")));
}

// A stop that waits for a service of the host: what begins meanwhile ends with it, and a second stop returns.
TEST_F(System, WhatBeginsDuringAStopEndsWithIt) {
    LoggedIn login = new_login(camera_);
    std::promise<void> held, go_on;
    std::atomic<bool> holds{true};
    host().when(Service::kGetRequest, [&](int, int) {
        if (!holds.exchange(false)) return;
        held.set_value();
        go_on.get_future().wait();
    });
    held.get_future().wait();
    auto stopping = std::async(std::launch::async, [&] { stops_engine(); });
    ASSERT_TRUE(wait_until([] { return peek(PC_G_RecvQueue) == 0; }));
    EXPECT_EQ(PC_UnInitCtx(), 0);
    auto stream = std::async(std::launch::async, [&] { return PC_GetStream(login.unit, 0, 0, nullptr); });
    Wire wire = camera_.accepts();
    wire.reads(36);
    EXPECT_NE(login.unit->pCmdClient, nullptr) << "the second stop emptied the tables";
    while (g_rs_num < 128) Init_Cond_Msg(0x7777, 0, camera_.address());
    auto request = std::async(std::launch::async, [] { return Prv_PacketMsg(0x7777, 0, 100, 1); });
    ASSERT_TRUE(wait_until([] { return host().dumped_count("please wait") >= 1; }));
    go_on.set_value();
    stopping.get();
    EXPECT_EQ(stream.get(), -1);
    EXPECT_TRUE(wire.sees_close());
    EXPECT_EQ(request.wait_for(std::chrono::seconds(20)), std::future_status::ready)
        << "of 100 a second apart";
    EXPECT_EQ(request.get(), nullptr);
    for (RecvSendSlot& slot : g_recvsendlist) prv_destroy_msg(&slot);
}

// Threads of which no two ever hold the same unit, and that call on while the library stops, and stops again.
TEST_F(System, LateCallersFindWorkingLocks) {
    constexpr int kCallers = 3, kRounds = 100;  // before the stop, and then as many as there is time for
    LoggedIn login = new_login(camera_);
    std::atomic<bool> done{false};
    std::atomic<int> clashes{0}, ready{0};
    std::vector<std::thread> callers;
    Capture capture;
    for (uint8_t caller = 1; caller <= kCallers; ++caller) {
        callers.emplace_back([&, caller] {
            for (int round = 0; round < kRounds || !done; ++round) {
                StreamConn* units[5];
                for (StreamConn*& unit : units) {
                    unit = PC_CreateNew();
                    if (round < kRounds) unit->reserved[0] = caller;
                }
                for (StreamConn* unit : units) {
                    if (round < kRounds)
                        clashes += unit->reserved[0] != caller || unit->pCmdClient == nullptr;
                    PC_Delete(unit);
                }
                Bytes message = in_buffer(command(0x0006));
                Private_Protocol_CMDDelivery(camera_.address(), message.data(), message.data(), 1);
                prv_destroy_msg(Prv_PacketMsg(0x1004, 0, 1, camera_.address()));
                ready += round == kRounds - 1;
            }
        });
    }
    EXPECT_TRUE(wait_until([&] { return ready == kCallers; }));
    stops_engine();
    EXPECT_EQ(PC_UnInitCtx(), 0);
    EXPECT_EQ(PC_UnInitCtx(), 0);
    done = true;
    for (std::thread& caller : callers) caller.join();
    EXPECT_EQ(clashes, 0);
    EXPECT_EQ(PC_CreateNew(), nullptr);
}

}  // namespace
}  // namespace lenswire::test
