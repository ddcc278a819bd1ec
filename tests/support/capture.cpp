#include "support/capture.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <thread>

// The sanitizers' own: where they report to.
extern "C" void __sanitizer_set_report_fd(void* descriptor) __attribute__((weak));

namespace lenswire::test {

namespace {

void sanitizers_report_to(int descriptor) {
    if (__sanitizer_set_report_fd == nullptr) return;
    __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<intptr_t>(descriptor)));
}

int entries(const char* directory) {
    return static_cast<int>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

}  // namespace

Capture::Stream Capture::redirect(int descriptor) {
    char name[] = "/tmp/lenswire-capture-XXXXXX";
    const int file = mkostemp(name, O_CLOEXEC | O_APPEND);
    if (file < 0) std::abort();
    unlink(name);
    const int saved = fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
    dup2(file, descriptor);
    return {descriptor, saved, file};
}

void Capture::restore(const Stream& stream, bool show) {
    dup2(stream.saved, stream.descriptor);
    if (show) dprintf(stream.saved, "%s", text_of(stream).c_str());
    close(stream.saved);
    close(stream.file);
}

std::string Capture::text_of(const Stream& stream) {
    std::string text;
    char piece[4096];
    ssize_t length;
    while ((length = pread(stream.file, piece, sizeof piece, static_cast<off_t>(text.size()))) > 0) {
        text.append(piece, static_cast<size_t>(length));
    }
    return text;
}

Capture::Capture() {
    fflush(stdout);
    fflush(stderr);
    out_ = redirect(STDOUT_FILENO);
    err_ = redirect(STDERR_FILENO);
    sanitizers_report_to(err_.saved);
}

Capture::~Capture() {
    fflush(stdout);
    fflush(stderr);
    const bool show = testing::Test::HasFailure();
    sanitizers_report_to(STDERR_FILENO);
    restore(out_, show);
    restore(err_, show);
}

std::string Capture::out() const {
    fflush(stdout);
    return text_of(out_);
}

std::string Capture::err() const {
    fflush(stderr);
    return text_of(err_);
}

std::string unnumbered(const std::string& text) {
    static const std::regex kLineNumbers(R"((-)\d+(: )|(:)\d+(\]:?)|(Line: )\d+|(error line: )\d+)");
    return std::regex_replace(text, kLineNumbers, "$1$3$5$6N$2$4");
}

int occurrences(const std::string& text, const std::string& what) {
    int count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size()))
        ++count;
    return count;
}

bool wait_until(const std::function<bool()>& predicate, std::chrono::milliseconds deadline) {
    const auto end = std::chrono::steady_clock::now() + deadline;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// The first thread of a program may bring others of the run time with it, as under the thread sanitizer, so
// one is started and gone before anything is counted.
int thread_count() {
    static const bool warm = [] {
        std::string entry;
        std::thread([&] { entry = "/proc/self/task/" + std::to_string(gettid()); }).join();
        return wait_until([&] { return access(entry.c_str(), F_OK) != 0; });
    }();
    return warm ? entries("/proc/self/task") : -1;
}

// The directory's own descriptor is among its entries.
int open_descriptors() {
    return entries("/proc/self/fd") - 1;
}

bool is_open(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

}  // namespace lenswire::test
