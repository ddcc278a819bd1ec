#include "recorder/cli/console.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <nlohmann/json.hpp>

namespace lenswire::recorder {
namespace {

FILE* copy_of(int descriptor, FILE* fallback) {
    const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
    FILE* stream = copy >= 0 ? fdopen(copy, "w") : nullptr;
    return stream != nullptr ? stream : fallback;
}

}  // namespace

Console::Console() : out_(copy_of(STDOUT_FILENO, stdout)), err_(copy_of(STDERR_FILENO, stderr)) {
    setvbuf(err_, nullptr, _IOLBF, 0);
}

Console::~Console() {
    if (out_ != stdout) std::fclose(out_);
    if (err_ != stderr) std::fclose(err_);
}

void Console::divert_library(const std::string& file, bool verbose) {
    int target = STDERR_FILENO;
    if (!verbose) {
        const char* path = file.empty() ? "/dev/null" : file.c_str();
        target = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        if (target < 0) throw bad_input("cannot write the log " + file + ": " + std::strerror(errno));
    }
    std::fflush(stdout);
    setvbuf(stdout, nullptr, _IOLBF, 0);
    dup2(target, STDOUT_FILENO);
    if (target == STDERR_FILENO) return;
    dup2(target, STDERR_FILENO);
    close(target);
}

bool Console::out_is_terminal() const {
    return isatty(fileno(out_)) != 0;
}

int Console::terminal_lines() const {
    winsize size{};
    constexpr int kUsual = 24;
    return ioctl(fileno(out_), TIOCGWINSZ, &size) == 0 && size.ws_row > 0 ? size.ws_row : kUsual;
}

size_t Console::terminal_columns() const {
    winsize size{};
    constexpr size_t kUsual = 80;
    if (!out_is_terminal()) return SIZE_MAX;
    return ioctl(fileno(out_), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

// A pipe that has room takes PIPE_BUF bytes without blocking.
void Console::print_without_waiting(const std::string& text) {
    constexpr int kPatienceMs = 100;
    for (size_t at = 0; at < text.size(); at += PIPE_BUF) {
        pollfd out{.fd = fileno(out_), .events = POLLOUT, .revents = 0};
        if (poll(&out, 1, kPatienceMs) <= 0) return;
        const size_t length = std::min<size_t>(text.size() - at, PIPE_BUF);
        if (write(fileno(out_), text.data() + at, length) < 0) return;
    }
}

void Console::print(const std::string& text) {
    if (impatient_) return print_without_waiting(text);
    std::fputs(text.c_str(), out_);
    std::fflush(out_);
}

void Console::line(const std::string& text) {
    print(text + "\n");
}

void Console::note(const std::string& text) {
    if (!quiet_) print(text);
}

void Console::speak(bool json, bool quiet) {
    json_ = json;
    quiet_ = quiet;
}

void Console::error_line(const std::string& text, int code) {
    std::fflush(out_);
    if (json_) {
        const auto row =
            std::ranges::find(kExitCodes, code, [](const ExitCodeRow& each) { return int{each.code}; });
        const nlohmann::ordered_json error = {
            {"error",
             {{"code", code}, {"cause", row != std::end(kExitCodes) ? row->cause : ""}, {"message", text}}}};
        std::fprintf(err_, "%s\n",
                     error.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
        return;
    }
    std::fprintf(err_, "lenswire: %s\n", text.c_str());
}

}  // namespace lenswire::recorder
