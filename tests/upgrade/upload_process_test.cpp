// One step of an upload, as a host may call it.

#include <csignal>
#include <cstdio>
#include <memory>

#include "upgrade/upgrade.h"

namespace {

using namespace lenswire::test;

constexpr uint32_t kPiece = 256 * 1024;

using Stream = std::unique_ptr<FILE, int (*)(FILE*)>;

// A temporary file with this content; its last bytes still wait in the stream's buffer.
Stream holding(const Bytes& bytes) {
    Stream file(std::tmpfile(), std::fclose);
    EXPECT_EQ(std::fwrite(bytes.data(), 1, bytes.size(), file.get()), bytes.size());
    return file;
}

// The rest of the header first. The reader takes an odd number of bytes between two steps; each step goes on
// where the last one ended, and takes no more than its piece. A file need not be one of the system.
TEST(UploadProcess, GoesOnWhereTheSocketStopped) {
    Bytes content = pattern(3 * kPiece + 77, 4);
    const Bytes header = pattern(32, 3);
    for (const Stream& file :
         {holding(content), Stream(fmemopen(content.data(), content.size(), "rb"), std::fclose)}) {
        for (const uint32_t start : {0u, 8u, 32u}) {
            Pair pair;
            uint32_t sent = start;
            Bytes received;
            for (uint32_t before = sent; sent < 32 + content.size() || pair.theirs().has_bytes();
                 before = sent) {
                EXPECT_EQ(upload_process(pair.ours(), file.get(), header.data(), &sent), 0);
                EXPECT_LE(sent - before, before < 32 ? 32 - before : kPiece);
                const auto waiting = static_cast<size_t>(waiting_bytes(pair.theirs().descriptor()));
                ASSERT_GT(waiting, 0U);
                received = received + pair.theirs().reads(std::min<size_t>(waiting, 50001));
            }
            EXPECT_EQ(received, slice(header, start, 32) + content);
        }
    }
}

TEST(UploadProcess, StaysWhereItIsWhenNothingCanBeSent) {
    const Bytes content = pattern(1 << 20);
    const Stream file = holding(content);
    const Bytes header(32);
    Pair pair;

    uint32_t beyond = 32 + (1 << 20);  // the end of the file and after it
    for (uint32_t sent : {beyond, beyond + 1, UINT32_MAX - 1, UINT32_MAX}) {
        const uint32_t before = sent;
        EXPECT_EQ(upload_process(pair.ours(), file.get(), header.data(), &sent), 0);
        EXPECT_EQ(sent, before);
    }
    uint32_t sent = 32;
    for (uint32_t before = 0; before != sent;) {  // until the socket is full
        before = sent;
        upload_process(pair.ours(), file.get(), header.data(), &sent);
    }
    EXPECT_LT(sent, beyond);
    EXPECT_EQ(waiting_bytes(pair.theirs().descriptor()), static_cast<int>(sent) - 32);
    EXPECT_EQ(upload_process(pair.ours(), nullptr, header.data(), &sent), 0);
    EXPECT_EQ(upload_process(pair.ours(), file.get(), nullptr, &sent), 0);
    EXPECT_EQ(upload_process(pair.ours(), file.get(), header.data(), nullptr), 0);
}

// SIGPIPE would end the test; one that the host keeps back for itself stays there.
TEST(UploadProcess, RaisesNoSignalWhenTheCameraIsGone) {
    const Stream file = holding(pattern(kPiece));
    const Bytes header(32);
    sigset_t pipe_signal;
    sigset_t pending;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    for (const bool kept : {false, true}) {
        Pair pair;
        pair.theirs().closes();
        if (kept) pthread_sigmask(SIG_BLOCK, &pipe_signal, nullptr), raise(SIGPIPE);
        for (uint32_t start : {0U, 32U}) {
            uint32_t sent = start;
            EXPECT_EQ(upload_process(pair.ours(), file.get(), header.data(), &sent), 0);
            EXPECT_EQ(sent, start);
        }
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        EXPECT_EQ(sigismember(&mask, SIGPIPE), kept);
        sigpending(&pending);
        EXPECT_EQ(sigismember(&pending, SIGPIPE), kept);
    }
    const timespec at_once{};
    sigtimedwait(&pipe_signal, nullptr, &at_once);
}

}  // namespace
