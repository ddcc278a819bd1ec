#include "recorder/cli/console.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "recorder/support/failure.h"

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

void Console::print(const std::string& text) {
    std::fputs(text.c_str(), out_);
    std::fflush(out_);
}

void Console::line(const std::string& text) {
    print(text + "\n");
}

void Console::error_line(const std::string& text) {
    std::fflush(out_);
    std::fprintf(err_, "lenswire: %s\n", text.c_str());
}

}  // namespace lenswire::recorder
