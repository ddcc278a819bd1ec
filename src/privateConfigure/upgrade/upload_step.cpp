#include "privateConfigure/upgrade/upload_step.h"

#include <sys/sendfile.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>

#include "common/wire.h"
#include "lenswire/upgrade.h"

namespace lenswire::upgrade {

namespace {

static_assert(sizeof(off_t) == 8, "a file's last bytes lie beyond 31 bits");

// sendfile saves both copies of a piece, which is most of what an upload costs, but knows no MSG_NOSIGNAL:
// a SIGPIPE that it causes is taken back before anybody sees it. It may cause one and still have sent some.
ssize_t send_from_file(int sock, int descriptor, off_t offset, size_t length) {
    sigset_t pipe_signal;
    sigset_t before;
    sigset_t pending;
    sigemptyset(&pipe_signal);
    sigaddset(&pipe_signal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe_signal, &before);
    sigpending(&pending);

    const ssize_t accepted = sendfile(sock, descriptor, &offset, length);
    const int error = errno;
    if (!sigismember(&pending, SIGPIPE)) {
        const timespec at_once{};
        sigtimedwait(&pipe_signal, nullptr, &at_once);
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return accepted;
}

// For files that sendfile cannot read: streams in memory, some file systems.
[[gnu::noinline]] ssize_t send_read_bytes(int sock, std::FILE* file, size_t length) {
    char bytes[64 * 1024];
    const size_t count = std::fread(bytes, 1, std::min(length, sizeof bytes), file);
    return count == 0 ? 0 : send(sock, bytes, count, MSG_NOSIGNAL);
}

ssize_t send_piece(int sock, std::FILE* file, off_t offset, size_t length) {
    // Positioning also brings a stream's unwritten bytes into the file.
    if (fseeko(file, offset, SEEK_SET) != 0) return 0;
    const int descriptor = fileno(file);
    if (descriptor < 0) return send_read_bytes(sock, file, length);
    const ssize_t accepted = send_from_file(sock, descriptor, offset, length);
    if (accepted < 0 && (errno == EINVAL || errno == ENOSYS)) return send_read_bytes(sock, file, length);
    return accepted;
}

}  // namespace

void upload_step(int sock, std::FILE* file, const void* header32, uint32_t total, uint32_t& sent) {
    ssize_t accepted = 0;
    if (sent < ARG_HEAD_LEN) {
        const auto* const header = static_cast<const uint8_t*>(header32);
        accepted = send(sock, header + sent, ARG_HEAD_LEN - sent, MSG_NOSIGNAL);
    } else if (sent < total) {
        accepted =
            send_piece(sock, file, off_t{sent} - ARG_HEAD_LEN, std::min<uint32_t>(total - sent, kPieceSize));
    }
    if (accepted > 0) sent += static_cast<uint32_t>(accepted);
}

}  // namespace lenswire::upgrade

int upload_process(int sock, FILE* file, const void* header32, uint32_t* sent) {
    if (file == nullptr || header32 == nullptr || sent == nullptr) return 0;
    lenswire::upgrade::upload_step(sock, file, header32, UINT32_MAX, *sent);
    return 0;
}
