// Preloaded into the recorder, makes one of its calls fail: LENSWIRE_FAIL=CALLER/FUNCTION:NUMBER:ERROR, where
// the error is the first or the second that the function's row names. At the program's end
// LENSWIRE_FAIL_COUNTS names a file for a line of each CALLER/FUNCTION: how often it was called, and how many
// errors it has; and for a line "struck" when the call was reached. Callers are the recorder with its C++
// library, SQLite and the libav family with their own calls of libc, and the plug-in. Others' calls are not
// touched.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <pthread.h>
#include <sqlite3.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/interpose.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace {

constexpr const char* kCallers[] = {"recorder", "sqlite", "libav", "plug-in"};
constexpr size_t kNobody = std::size(kCallers);
constexpr unsigned kAll = 15, kRecorderOnly = 1, kLibrariesOnly = 14;

size_t caller_of(void* place) {
    dl_find_object object{};
    if (_dl_find_object(place, &object) != 0) return kNobody;
    const char* path = object.dlfo_link_map->l_name;
    const char* slash = std::strrchr(path, '/');
    const char* name = slash != nullptr ? slash + 1 : path;
    const auto is = [name](const char* start) { return std::strncmp(name, start, std::strlen(start)) == 0; };
    if (*name == 0 || is("libstdc++.so")) return 0;
    return is("libsqlite3.so") ? 1 : is("libav") ? 2 : is("liblenswire.so") ? 3 : kNobody;
}

struct Wanted {
    char name[64] = "";
    int number = 0, error = 0;
    Wanted() {
        const char* text = std::getenv("LENSWIRE_FAIL");
        if (text != nullptr) std::sscanf(text, "%63[^:]:%d:%d", name, &number, &error);
    }
};
const Wanted g_wanted;
std::atomic<bool> g_struck;

class Point {
  public:
    Point(const char* name, int error, int other) : name_(name), errors_{error, other}, next_(g_first) {
        while (!g_first.compare_exchange_weak(next_, this)) {
        }
    }

    // The error with which this call fails; 0: it does not.
    int fails(void* place, unsigned callers = kAll) {
        const size_t caller = caller_of(place);
        if ((callers >> caller & 1) == 0) return 0;
        if (++calls_[caller] != g_wanted.number) return 0;
        char name[64];
        std::snprintf(name, sizeof name, "%s/%s", kCallers[caller], name_);
        if (std::strcmp(name, g_wanted.name) != 0) return 0;
        g_struck = true;
        return errno = errors_[g_wanted.error];
    }

    static void report() {
        const char* path = std::getenv("LENSWIRE_FAIL_COUNTS");
        FILE* file = path != nullptr ? std::fopen(path, "w") : nullptr;
        if (file == nullptr) return;
        if (g_struck) std::fputs("struck\n", file);
        for (const Point* point = g_first; point != nullptr; point = point->next_) {
            for (size_t i = 0; i < std::size(kCallers); ++i) {
                if (point->calls_[i] > 0)
                    std::fprintf(file, "%s/%s %d %d\n", kCallers[i], point->name_, point->calls_[i].load(),
                                 point->errors_[1] != 0 ? 2 : 1);
            }
        }
        std::fclose(file);
    }

  private:
    const char* name_;
    int errors_[2];
    std::atomic<int> calls_[std::size(kCallers)] = {};
    Point* next_;
    static inline std::atomic<Point*> g_first;
};

[[gnu::destructor]] void end() {
    Point::report();
}

}  // namespace

#define CALLER __builtin_return_address(0)
// What is returned instead may be made of `error`.
#define FAILS_FOR(callers, type, name, parameters, arguments, failed, first_error, other_error) \
    type name parameters {                                                                      \
        static Point point(#name, first_error, other_error);                                    \
        static const auto real = REAL(type(*) parameters, name);                                \
        const int error = point.fails(CALLER, callers);                                         \
        return error != 0 ? (failed) : real arguments;                                          \
    }
#define FAILS(...) FAILS_FOR(kAll, __VA_ARGS__)
#define ANSWERS(...) FAILS_FOR(kRecorderOnly, __VA_ARGS__)
#define FILE_OPENS(name)                                                     \
    int name(const char* path, int flags, ...) {                             \
        static Point point(#name, EMFILE, EIO);                              \
        static const auto real = REAL(int (*)(const char*, int, ...), name); \
        if (point.fails(CALLER) != 0) return -1;                             \
        va_list list;                                                        \
        va_start(list, flags);                                               \
        const auto mode = va_arg(list, unsigned);                            \
        va_end(list);                                                        \
        return real(path, flags, mode);                                      \
    }
#define CONTROL_FAILS(name)                                                                                 \
    int name(int fd, int command, ...) {                                                                    \
        static Point point(#name, ENOLCK, EIO);                                                             \
        static const auto real = REAL(int (*)(int, int, ...), name);                                        \
        va_list list;                                                                                       \
        va_start(list, command);                                                                            \
        void* argument = va_arg(list, void*);                                                               \
        va_end(list);                                                                                       \
        const bool unlocks = command == F_SETLK && static_cast<struct flock*>(argument)->l_type == F_UNLCK; \
        if (!unlocks && point.fails(CALLER) != 0) return -1;                                                \
        return real(fd, command, argument);                                                                 \
    }
// The second error is a write that is cut short.
#define PIECE_WRITES(name)                                                                \
    ssize_t name(int fd, const void* bytes, size_t size, off_t offset) {                  \
        static Point point(#name, ENOSPC, EINTR);                                         \
        static const auto real = REAL(ssize_t(*)(int, const void*, size_t, off_t), name); \
        const int error = point.fails(CALLER);                                            \
        if (error == ENOSPC) return -1;                                                   \
        return real(fd, bytes, error == EINTR ? size / 2 : size, offset);                 \
    }

extern "C" {

FILE_OPENS(open)
FILE_OPENS(open64)
CONTROL_FAILS(fcntl)
CONTROL_FAILS(fcntl64)
PIECE_WRITES(pwrite)
PIECE_WRITES(pwrite64)
FAILS(FILE*, fopen64, (const char* path, const char* mode), (path, mode), nullptr, EMFILE, 0)
FAILS(DIR*, fdopendir, (int fd), (fd), nullptr, ENOMEM, 0)
FAILS(DIR*, opendir, (const char* path), (path), nullptr, EMFILE, 0)
FAILS(ssize_t, read, (int fd, void* bytes, size_t size), (fd, bytes, size), -1, EIO, EINTR)
FAILS(ssize_t, write, (int fd, const void* bytes, size_t size), (fd, bytes, size), -1, ENOSPC, EINTR)
FAILS(ssize_t, pread64, (int fd, void* bytes, size_t size, off_t at), (fd, bytes, size, at), -1, EIO, 0)
FAILS(off_t, lseek64, (int fd, off_t at, int whence), (fd, at, whence), -1, EIO, 0)
FAILS(int, ftruncate64, (int fd, off_t size), (fd, size), -1, EIO, 0)
FAILS(int, posix_fallocate, (int fd, off_t at, off_t size), (fd, at, size), error, ENOSPC, 0)
FAILS(int, fsync, (int fd), (fd), -1, EIO, 0)
FAILS(int, fdatasync, (int fd), (fd), -1, EIO, 0)
FAILS(int, flock, (int fd, int operation), (fd, operation), -1, ENOLCK, 0)
FAILS(int, stat, (const char* path, struct stat* status), (path, status), -1, EACCES, 0)
FAILS(int, stat64, (const char* path, struct stat64* status), (path, status), -1, EACCES, 0)
FAILS(int, lstat, (const char* path, struct stat* status), (path, status), -1, EACCES, 0)
FAILS(int, lstat64, (const char* path, struct stat64* status), (path, status), -1, EACCES, 0)
FAILS(int, fstat64, (int fd, struct stat64* status), (fd, status), -1, EIO, 0)
FAILS(int, statvfs, (const char* path, struct statvfs* status), (path, status), -1, EIO, 0)
FAILS(int, access, (const char* path, int mode), (path, mode), -1, EACCES, 0)
FAILS(int, mkdir, (const char* path, mode_t mode), (path, mode), -1, EACCES, 0)
FAILS(int, unlink, (const char* path), (path), -1, EACCES, 0)
FAILS(int, rmdir, (const char* path), (path), -1, EACCES, 0)
FAILS(char*, getcwd, (char* path, size_t size), (path, size), nullptr, ERANGE, 0)
FAILS(int, eventfd, (unsigned count, int flags), (count, flags), -1, EMFILE, 0)
FAILS(int, pipe2, (int ends[2], int flags), (ends, flags), -1, EMFILE, 0)
FAILS(int, poll, (pollfd * ends, nfds_t count, int timeout), (ends, count, timeout), -1, EINTR, 0)
FAILS(int, getrlimit, (__rlimit_resource_t resource, rlimit* limit), (resource, limit), -1, EINVAL, 0)
FAILS(int, sigtimedwait, (const sigset_t* set, siginfo_t* info, const timespec* time), (set, info, time), -1,
      EINTR, 0)
FAILS(void*, mmap64, (void* at, size_t size, int protection, int flags, int fd, off_t from),
      (at, size, protection, flags, fd, from), MAP_FAILED, ENOMEM, 0)
FAILS(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1, EMFILE, 0)
FAILS(int, connect, (int fd, const sockaddr* address, socklen_t length), (fd, address, length), -1,
      ENETUNREACH, EINTR)
FAILS(ssize_t, recv, (int fd, void* bytes, size_t size, int flags), (fd, bytes, size, flags), -1, ECONNRESET,
      EINTR)
FAILS(ssize_t, send, (int fd, const void* bytes, size_t size, int flags), (fd, bytes, size, flags), -1, EPIPE,
      EAGAIN)
FAILS(int, select, (int count, fd_set* readable, fd_set* writable, fd_set* odd, timeval* timeout),
      (count, readable, writable, odd, timeout), -1, EBADF, EINTR)
FAILS(int, getsockopt, (int fd, int level, int name, void* value, socklen_t* length),
      (fd, level, name, value, length), -1, ENOBUFS, 0)
FAILS(int, pthread_create,
      (pthread_t * thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument),
      (thread, attributes, body, argument), error, EAGAIN, 0)

int close(int fd) {  // which does its work all the same
    static Point point("close", EIO, 0);
    static const auto real = REAL(int (*)(int), close);
    const int result = real(fd);
    return point.fails(CALLER) != 0 ? -1 : result;
}

// -- Memory, but for that of the recorder's own objects: a C++ program does not outlive that.

void* __libc_malloc(size_t size);
void* __libc_realloc(void* block, size_t size);
void* malloc(size_t size) {
    static Point point("malloc", ENOMEM, 0);
    return point.fails(CALLER, kLibrariesOnly) != 0 ? nullptr : __libc_malloc(size);
}
void* realloc(void* block, size_t size) {
    static Point point("realloc", ENOMEM, 0);
    return point.fails(CALLER, kLibrariesOnly) != 0 ? nullptr : __libc_realloc(block, size);
}
FAILS(int, posix_memalign, (void** block, size_t alignment, size_t size), (block, alignment, size), error,
      ENOMEM, 0)

// -- What the recorder asks of its libraries.

ANSWERS(int, sqlite3_open_v2, (const char* file, sqlite3** made, int flags, const char* vfs),
        (file, made, flags, vfs), error, SQLITE_CANTOPEN, 0)
ANSWERS(int, sqlite3_prepare_v3,
        (sqlite3 * base, const char* sql, int length, unsigned flags, sqlite3_stmt** made, const char** rest),
        (base, sql, length, flags, made, rest), error, SQLITE_NOMEM, SQLITE_CORRUPT)
ANSWERS(int, sqlite3_step, (sqlite3_stmt * statement), (statement), error, SQLITE_IOERR, SQLITE_BUSY)
ANSWERS(int, sqlite3_exec,
        (sqlite3 * base, const char* sql, int (*row)(void*, int, char**, char**), void* argument,
         char** message),
        (base, sql, row, argument, message), error, SQLITE_FULL, SQLITE_BUSY)
ANSWERS(int, avformat_alloc_output_context2,
        (AVFormatContext * *made, const AVOutputFormat* format, const char* name, const char* file),
        (made, format, name, file), error, AVERROR(ENOMEM), 0)
ANSWERS(AVStream*, avformat_new_stream, (AVFormatContext * context, const AVCodec* codec), (context, codec),
        nullptr, ENOMEM, 0)
ANSWERS(AVPacket*, av_packet_alloc, (), (), nullptr, ENOMEM, 0)
ANSWERS(void*, av_malloc, (size_t size), (size), nullptr, ENOMEM, 0)
ANSWERS(void*, av_mallocz, (size_t size), (size), nullptr, ENOMEM, 0)
ANSWERS(int, av_dict_set, (AVDictionary * *dictionary, const char* key, const char* value, int flags),
        (dictionary, key, value, flags), error, AVERROR(ENOMEM), 0)
ANSWERS(int, avformat_write_header, (AVFormatContext * context, AVDictionary** options), (context, options),
        error, AVERROR(ENOMEM), 0)
ANSWERS(int, av_write_frame, (AVFormatContext * context, AVPacket* packet), (context, packet), error,
        AVERROR(ENOMEM), AVERROR(EINVAL))
ANSWERS(int, av_write_trailer, (AVFormatContext * context), (context), error, AVERROR(EIO), 0)
ANSWERS(int, avformat_open_input,
        (AVFormatContext * *made, const char* url, const AVInputFormat* format, AVDictionary** options),
        (made, url, format, options), error, AVERROR(ENOMEM), 0)
ANSWERS(int, av_read_frame, (AVFormatContext * context, AVPacket* packet), (context, packet), error,
        AVERROR(ENOMEM), 0)
}
