// A firmware file to many cameras at once: by the library's upgrade job, by a plain loop of select, read and
// send that reads again what was not accepted, and by the same loop with sendfile.
#include <fcntl.h>
#include <sys/select.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <unistd.h>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/cameras/answers.h"
#include "bench/cameras/video.h"
#include "bench/host/thread_notes.h"
#include "bench/receivers/library_clients.h"
#include "bench/rounds/round.h"
#include "bench/support/measure.h"
#include "lenswire/connection.h"
#include "lenswire/upgrade.h"

namespace lenswire::bench {

namespace {

struct Options {
    std::string way = "library";
    uint32_t cameras = 64;
    uint32_t mebibytes = 16;
};

// A file of random bytes in a directory of its own, under the name that the cameras' firmware has.
class FirmwareFile {
  public:
    explicit FirmwareFile(size_t size) : size_(size) {
        char directory[] = "/tmp/lenswire-bench-XXXXXX";
        if (mkdtemp(directory) == nullptr) give_up("a directory for the firmware");
        directory_ = directory;
        path_ = directory_ + "/" + kFirmwareFile;
        const std::vector<uint8_t> bytes = payload_bytes(size);
        FILE* file = std::fopen(path_.c_str(), "w");
        if (file == nullptr || std::fwrite(bytes.data(), 1, size, file) != size) give_up("the firmware file");
        std::fclose(file);
    }
    ~FirmwareFile() {
        unlink(path_.c_str());
        rmdir(directory_.c_str());
    }
    FirmwareFile(const FirmwareFile&) = delete;
    FirmwareFile& operator=(const FirmwareFile&) = delete;
    const std::string& path() const { return path_; }
    size_t size() const { return size_; }

  private:
    std::string directory_;
    std::string path_;
    size_t size_;
};

// Sends some of the file from a position on. What was accepted, 0 or less for nothing.
using SendPiece = std::function<ssize_t(int socket, int file, off_t from)>;
constexpr size_t kPieceBytes = 256 * 1024;

ssize_t read_and_send(int socket, int file, off_t from) {
    static std::vector<uint8_t> piece(kPieceBytes);
    if (lseek(file, from, SEEK_SET) < 0) return -1;
    const ssize_t count = read(file, piece.data(), piece.size());
    return count <= 0 ? count : send(socket, piece.data(), static_cast<size_t>(count), MSG_NOSIGNAL);
}

ssize_t send_from_file(int socket, int file, off_t from) {
    return sendfile(socket, file, &from, kPieceBytes);
}

struct Upload {
    int socket;
    size_t sent = 0;  // of the file, once the header is out
    bool done = false;
};

// Until every camera has answered.
void send_to_all(std::vector<Upload>& uploads, const FirmwareFile& firmware, const SendPiece& send_piece) {
    const int file = open(firmware.path().c_str(), O_RDONLY | O_CLOEXEC);
    size_t open_uploads = uploads.size();
    while (open_uploads > 0) {
        fd_set readable, writable;
        FD_ZERO(&readable);
        FD_ZERO(&writable);
        int largest = 0;
        for (const Upload& upload : uploads) {
            if (upload.done) continue;
            FD_SET(upload.socket, &readable);
            if (upload.sent < firmware.size()) FD_SET(upload.socket, &writable);
            largest = std::max(largest, upload.socket);
        }
        timeval wait{.tv_sec = 1, .tv_usec = 0};
        if (select(largest + 1, &readable, &writable, nullptr, &wait) <= 0) continue;
        for (Upload& upload : uploads) {
            if (upload.done) continue;
            PrivateCmd answer;
            if (FD_ISSET(upload.socket, &readable) &&
                recv(upload.socket, &answer, sizeof answer, 0) == sizeof answer) {
                upload.done = true;
                --open_uploads;
            } else if (FD_ISSET(upload.socket, &writable)) {
                const ssize_t sent = send_piece(upload.socket, file, static_cast<off_t>(upload.sent));
                upload.sent += static_cast<size_t>(std::max<ssize_t>(sent, 0));
            }
        }
    }
    close(file);
}

struct Cost {
    int64_t cpu_ns;
    int64_t wall_ns;
    size_t stack_bytes = 0;  // of the library's upgrade thread
};

Cost run_loop(const CameraProcess& cameras, const FirmwareFile& firmware, const SendPiece& send_piece) {
    std::vector<Upload> uploads;
    PrivateCmd header{};
    header.ucTag1 = header.ucTag2 = 1;
    header.usCmd = LENSWIRE_CMD_UPGRADE;
    header.ulBufferSize = static_cast<uint32_t>(firmware.size());
    header.ulBufferNum = 1;
    for (uint32_t i = 0; i < cameras.cameras(); ++i) {
        uploads.push_back({connect_to(CameraProcess::address_text(i).c_str(), cameras.port(i))});
        if (send(uploads.back().socket, &header, sizeof header, 0) != sizeof header) give_up("a header");
    }
    const Cost before{process_cpu_ns(), now_ns()};
    std::thread(send_to_all, std::ref(uploads), std::cref(firmware), std::cref(send_piece)).join();
    const Cost cost{process_cpu_ns() - before.cpu_ns, now_ns() - before.wall_ns};
    for (const Upload& upload : uploads) close(upload.socket);
    return cost;
}

UpgradeJobStatus wait_for_job(pthread_t job) {
    UpgradeJobStatus status;
    do {
        sleep_ms(5);
        if (Prv_ipc_upgrade_get_status(job, &status) != 0) give_up("the status of the upgrade job");
    } while (status.ulUsed != 0);
    return status;
}

// Threads started from now on get stacks that no thread had before: the C library keeps old ones, by size.
void want_fresh_stacks() {
    constexpr size_t kUnusualSize = size_t{9} << 20;
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, kUnusualSize);
    if (pthread_setattr_default_np(&attributes) != 0) give_up("the size of stacks");
    pthread_attr_destroy(&attributes);
}

// What the next thread to end had used of its stack.
size_t stack_of_next_to_end(size_t ended_before) {
    for (int i = 0; i < 1000; ++i) {
        const EndedThreads ended = ended_threads();
        if (ended.count > ended_before) return ended.latest_stack;
        sleep_ms(1);
    }
    give_up("the upgrade thread did not end");
}

// What the job's thread spent: what the process did, without its other threads.
Cost run_library(const CameraProcess& cameras, const FirmwareFile& firmware) {
    Host host(1);
    const std::vector<Role> workers = start_library();
    const std::vector<StreamConn*> units = log_in(host, cameras);
    const auto others_ns = [&] {
        int64_t cpu = thread_cpu_ns(host.consumer().thread()) + thread_cpu_ns(gettid());
        for (const Role& worker : workers) cpu += thread_cpu_ns(worker.thread);
        return cpu;
    };
    UpgradeRequest request{};
    std::fill_n(request.aucChannel, cameras.cameras(), uint8_t{1});
    std::strcpy(request.szFilePath, firmware.path().c_str());

    want_fresh_stacks();
    const size_t ended_before = ended_threads().count;
    // The call asks every camera first; it returns when the job has just begun.
    const int64_t cpu_before = process_cpu_ns() - others_ns();
    pthread_t job;
    if (Prv_ipc_upgrade(&request, &job) != 0) give_up("Prv_ipc_upgrade");
    const int64_t start = now_ns();
    const UpgradeJobStatus status = wait_for_job(job);
    const int64_t cpu_ns = process_cpu_ns() - others_ns() - cpu_before;
    const Cost cost{cpu_ns, now_ns() - start, stack_of_next_to_end(ended_before)};
    for (uint32_t i = 0; i < cameras.cameras(); ++i) {
        if (status.camera[i].ulState != UPGRADE_DONE) give_up("a camera was not upgraded");
    }
    for (StreamConn* unit : units) PC_Delete(unit);
    PC_UnInitCtx();
    return cost;
}

Json run(const Options& options) {
    const CameraProcess cameras(options.cameras);
    const FirmwareFile firmware(size_t{options.mebibytes} << 20);
    Cost cost;
    if (options.way == "library") {
        cost = run_library(cameras, firmware);
    } else {
        cost = run_loop(cameras, firmware, options.way == "plain" ? read_and_send : send_from_file);
    }
    for (uint32_t i = 0; i < options.cameras; ++i) {
        if (cameras.uploaded(i) != firmware.size()) give_up("a camera did not get the whole file");
    }
    const double gigabytes = static_cast<double>(firmware.size()) * options.cameras * 1e-9;
    const double cpu_s = static_cast<double>(cost.cpu_ns) * 1e-9;
    return {{"way", options.way},
            {"cameras", options.cameras},
            {"gigabytes", gigabytes},
            {"cpu_s_per_gb", cpu_s / gigabytes},
            {"wall_s", static_cast<double>(cost.wall_ns) * 1e-9},
            {"stack_bytes", cost.stack_bytes}};
}

}  // namespace

Round add_upload(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    app.add_option("--way", options->way)->check(CLI::IsMember({"library", "plain", "sendfile"}));
    app.add_option("--cameras", options->cameras)->check(CLI::Range(1, 64));
    app.add_option("--mebibytes", options->mebibytes, "of the file")->check(CLI::Range(1, 512));
    return [options] { return run(*options); };
}

}  // namespace lenswire::bench
