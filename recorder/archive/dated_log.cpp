#include "recorder/archive/dated_log.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "recorder/archive/clock.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

constexpr int kPipe = 1024 * 1024;
constexpr int kDrainSteps = 20;
constexpr useconds_t kDrainStepUs = 5000;

// What the disk refuses is left out: a log is not worth waiting for.
void write_all(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(file, text.data(), text.size());
        if (written <= 0) return;
        text.remove_prefix(static_cast<size_t>(written));
    }
}

}  // namespace

DatedLog::DatedLog(const std::string& file)
    : file_(open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644)) {
    if (file_ < 0) throw bad_input("cannot write the log " + file + ": " + std::strerror(errno));
    int ends[2] = {-1, -1};
    end_ = eventfd(0, EFD_CLOEXEC);
    // A pipe that blocked would never let the thread end.
    if (end_ < 0 || pipe2(ends, O_CLOEXEC) != 0 || fcntl(ends[0], F_SETFL, O_NONBLOCK) != 0) {
        const int error = errno;
        for (const int descriptor : {file_, end_, ends[0], ends[1]}) {
            if (descriptor >= 0) close(descriptor);
        }
        throw bad_input(std::string("cannot make a log: ") + std::strerror(error));
    }
    from_ = ends[0];
    to_ = ends[1];
    fcntl(from_, F_SETPIPE_SZ, kPipe);
    path_ = "/proc/self/fd/" + std::to_string(to_);
    thread_ = std::thread([this] { run(); });
}

DatedLog::~DatedLog() {
    eventfd_write(end_, 1);
    thread_.join();
    // The pipe stays: who prints later must not get a signal for it.
    for (const int descriptor : {file_, end_}) close(descriptor);
}

void DatedLog::drain() {
    int waiting = 0;
    for (int i = 0; i < kDrainSteps && ioctl(from_, FIONREAD, &waiting) == 0 && waiting > 0; ++i)
        usleep(kDrainStepUs);
}

void DatedLog::run() {
    const SystemClock clock;
    std::string lines;
    char bytes[4096];
    bool begins = true;
    while (true) {
        const ssize_t count = read(from_, bytes, sizeof bytes);
        if (count <= 0) {
            pollfd both[] = {{.fd = from_, .events = POLLIN, .revents = 0},
                             {.fd = end_, .events = POLLIN, .revents = 0}};
            poll(both, 2, -1);
            if (both[0].revents == 0 && both[1].revents != 0) return;
            continue;
        }
        lines.clear();
        for (const char c : std::string_view(bytes, static_cast<size_t>(count))) {
            if (begins) lines += utc_text(clock.wall()) + " ";
            lines += c;
            begins = c == '\n';
        }
        write_all(file_, lines);
    }
}

}  // namespace lenswire::recorder
