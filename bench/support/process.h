// Processes beside the measured one, and the memory shared with them.
#pragma once

#include <sys/types.h>
#include <cstddef>
#include <cstdio>
#include <functional>

namespace lenswire::bench {

// Zeroed memory that a child process made later shares with this one.
class SharedMemory {
  public:
    explicit SharedMemory(size_t bytes);
    ~SharedMemory();
    SharedMemory(const SharedMemory&) = delete;
    SharedMemory& operator=(const SharedMemory&) = delete;
    std::byte* bytes() const { return bytes_; }

  private:
    std::byte* bytes_;
    size_t size_;
};

// Runs the body in a process of its own until this object is gone. To be made before this process has
// threads.
class ChildProcess {
  public:
    explicit ChildProcess(const std::function<void()>& body);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

  private:
    pid_t process_;
};

// The library prints its own lines on standard output. They go nowhere; what this returns is the way out for
// the figures.
FILE* keep_output_for_figures();

constexpr const char* kLoopback = "127.0.0.1";

// A listening TCP socket on a free port of the address (dotted text).
int listen_at(const char* address, int& port);
// A TCP connection, non-blocking as the library's are.
int connect_to(const char* address, int port);

}  // namespace lenswire::bench
