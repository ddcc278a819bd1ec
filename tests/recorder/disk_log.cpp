// Preloaded into a program, logs what it does to the files below LENSWIRE_DISK_LOG_ROOT into the file
// LENSWIRE_DISK_LOG: scripts/power-cut makes from it what a disk could hold at any moment.
//
// With LENSWIRE_DISK_STALL=FROM_MS,LENGTH_MS the disk below that folder stands still for a while, counted
// from the program's start: what touches it then returns when that is over. See scripts/stalled-disk.
//
// An entry is a line of text, "KIND TIME_MS PATH OFFSET LENGTH BEGAN", and after a write its bytes. BEGAN is
// how many entries there were when a sync began: only what was logged before that is on the disk when it
// ends.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>

namespace {

template <typename F>
F next(const char* name) {
    return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

long long milliseconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1'000'000;
}

class Log {
  public:
    Log() {
        const char* file = std::getenv("LENSWIRE_DISK_LOG");
        const char* root = std::getenv("LENSWIRE_DISK_LOG_ROOT");
        const char* stall = std::getenv("LENSWIRE_DISK_STALL");
        if (root != nullptr) root_ = root;
        if (stall != nullptr && std::sscanf(stall, "%lld,%lld", &stall_from_, &stall_to_) == 2) {
            stall_from_ += milliseconds(CLOCK_MONOTONIC);
            stall_to_ += stall_from_;
        }
        if (file == nullptr || root == nullptr) return;
        descriptor_ = static_cast<int>(
            syscall(SYS_openat, AT_FDCWD, file, O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0644));
    }
    // Below the root, or empty.
    std::string relative(const std::string& path) const {
        if (root_.empty() || path.compare(0, root_.size(), root_) != 0) return "";
        return path.size() == root_.size() ? "." : path.substr(root_.size() + 1);
    }
    std::string path_of(int descriptor) const {
        if (root_.empty()) return "";
        char link[64], target[4096];
        std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
        const ssize_t length = readlink(link, target, sizeof target);
        return length > 0 ? relative(std::string(target, static_cast<size_t>(length))) : "";
    }
    long count() {
        const std::lock_guard lock(mutex_);
        return entries_;
    }
    void add(const char* kind, const std::string& path, long long offset = 0, size_t length = 0,
             const void* bytes = nullptr, long began = 0) {
        if (path.empty()) return;
        wait_out_stall();
        if (descriptor_ < 0) return;
        const std::string head = std::string(kind) + " " + std::to_string(milliseconds(CLOCK_REALTIME)) +
                                 " " + path + " " + std::to_string(offset) + " " + std::to_string(length) +
                                 " " + std::to_string(began) + "\n";
        const std::lock_guard lock(mutex_);
        ++entries_;
        syscall(SYS_write, descriptor_, head.data(), head.size());
        if (bytes != nullptr) syscall(SYS_write, descriptor_, bytes, length);
    }

  private:
    void wait_out_stall() const {
        const long long now = milliseconds(CLOCK_MONOTONIC);
        if (now >= stall_from_ && now < stall_to_) usleep(static_cast<useconds_t>((stall_to_ - now) * 1000));
    }

    int descriptor_ = -1;
    long long stall_from_ = 0, stall_to_ = 0;  // on the monotonic clock
    std::string root_;
    std::mutex mutex_;
    long entries_ = 0;
};

Log& log() {
    static Log* const only = new Log;  // writes come until the very end
    return *only;
}

[[gnu::constructor]] void begin_to_count() {
    log();
}

std::string absolute(const char* path) {
    if (path[0] == '/') return path;
    char folder[4096];
    return getcwd(folder, sizeof folder) != nullptr ? std::string(folder) + "/" + path : path;
}

int logged_open(const char* name, const char* path, int flags, mode_t mode) {
    const bool is_new = (flags & O_CREAT) != 0 && access(path, F_OK) != 0;
    const int result = next<int (*)(const char*, int, ...)>(name)(path, flags, mode);
    const int error = errno;
    if (result >= 0 && is_new) log().add("create", log().relative(absolute(path)));
    if (result >= 0 && (flags & O_TRUNC) != 0) log().add("truncate", log().relative(absolute(path)));
    errno = error;
    return result;
}

ssize_t logged_pwrite(const char* name, int fd, const void* bytes, size_t size, off_t offset) {
    const ssize_t result = next<ssize_t (*)(int, const void*, size_t, off_t)>(name)(fd, bytes, size, offset);
    const int error = errno;
    if (result > 0) log().add("write", log().path_of(fd), offset, static_cast<size_t>(result), bytes);
    errno = error;
    return result;
}

int logged_sync(const char* name, int fd) {
    const long began = log().count();
    const int result = next<int (*)(int)>(name)(fd);
    const int error = errno;
    if (result == 0) log().add("sync", log().path_of(fd), 0, 0, nullptr, began);
    errno = error;
    return result;
}

int logged_truncate(const char* name, int fd, off_t size) {
    const int result = next<int (*)(int, off_t)>(name)(fd, size);
    if (result == 0) log().add("truncate", log().path_of(fd), size);
    return result;
}

mode_t mode_of(int flags, va_list arguments) {
    return (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(arguments, unsigned)) : 0;
}

}  // namespace

extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_of(flags, arguments);
    va_end(arguments);
    return logged_open("open", path, flags, mode);
}
int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = mode_of(flags, arguments);
    va_end(arguments);
    return logged_open("open64", path, flags, mode);
}
ssize_t pwrite(int fd, const void* bytes, size_t size, off_t offset) {
    return logged_pwrite("pwrite", fd, bytes, size, offset);
}
ssize_t pwrite64(int fd, const void* bytes, size_t size, off_t offset) {
    return logged_pwrite("pwrite64", fd, bytes, size, offset);
}
int fsync(int fd) {
    return logged_sync("fsync", fd);
}
int fdatasync(int fd) {
    return logged_sync("fdatasync", fd);
}
int ftruncate(int fd, off_t size) noexcept {
    return logged_truncate("ftruncate", fd, size);
}
int ftruncate64(int fd, off_t size) noexcept {
    return logged_truncate("ftruncate64", fd, size);
}
int unlink(const char* path) noexcept {
    const int result = next<int (*)(const char*)>("unlink")(path);
    const int error = errno;
    if (result == 0) log().add("unlink", log().relative(absolute(path)));
    errno = error;
    return result;
}
int mkdir(const char* path, mode_t mode) noexcept {
    const int result = next<int (*)(const char*, mode_t)>("mkdir")(path, mode);
    const int error = errno;
    if (result == 0) log().add("create", log().relative(absolute(path)) + "/");
    errno = error;
    return result;
}
}
