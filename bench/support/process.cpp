#include "bench/support/process.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>

#include "bench/support/measure.h"

namespace lenswire::bench {

namespace {

sockaddr_in address_of(const char* text, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, text, &address.sin_addr);
    return address;
}

}  // namespace

SharedMemory::SharedMemory(size_t bytes) : size_(bytes) {
    void* memory = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) give_up("shared memory");
    bytes_ = static_cast<std::byte*>(memory);
}

SharedMemory::~SharedMemory() {
    munmap(bytes_, size_);
}

ChildProcess::ChildProcess(const std::function<void()>& body) : process_(fork()) {
    if (process_ < 0) give_up("fork");
    if (process_ > 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    body();
    _exit(0);
}

ChildProcess::~ChildProcess() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

FILE* keep_output_for_figures() {
    const int out = dup(STDOUT_FILENO);
    const int nowhere = open("/dev/null", O_WRONLY);
    if (out < 0 || nowhere < 0 || dup2(nowhere, STDOUT_FILENO) < 0) give_up("standard output");
    close(nowhere);
    return fdopen(out, "w");
}

int listen_at(const char* address, int& port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in bound = address_of(address, 0);
    socklen_t length = sizeof bound;
    if (bind(listener, reinterpret_cast<sockaddr*>(&bound), length) != 0 || listen(listener, 256) != 0 ||
        getsockname(listener, reinterpret_cast<sockaddr*>(&bound), &length) != 0) {
        give_up("listening");
    }
    port = ntohs(bound.sin_port);
    return listener;
}

int connect_to(const char* address, int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in target = address_of(address, port);
    if (fd < 0 || connect(fd, reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0) {
        give_up("connecting");
    }
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    return fd;
}

}  // namespace lenswire::bench
