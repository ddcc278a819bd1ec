// What the library adds to a host's memory when it is full: 192 clients logged in, 192 streams running.
#include <link.h>
#include <unistd.h>
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "bench/cameras/sender.h"
#include "bench/host/host.h"
#include "bench/host/thread_notes.h"
#include "bench/receivers/library_clients.h"
#include "bench/rounds/round.h"
#include "bench/support/measure.h"
#include "lenswire/connection.h"
#include "lenswire/settings.h"

namespace lenswire::bench {

namespace {

struct Options {
    uint32_t clients = 192;
    uint32_t streams = 192;
    int64_t measure_ms = 3000;
};

struct Range {
    uintptr_t from = UINTPTR_MAX;
    uintptr_t to = 0;
};

// Where the library's code and data stand.
Range library_range() {
    Range range;
    dl_iterate_phdr(
        [](dl_phdr_info* info, size_t, void* data) {
            if (std::string(info->dlpi_name).find("liblenswire") == std::string::npos) return 0;
            auto& found = *static_cast<Range*>(data);
            for (int i = 0; i < info->dlpi_phnum; ++i) {
                const auto& segment = info->dlpi_phdr[i];
                if (segment.p_type != PT_LOAD) continue;
                const uintptr_t start = info->dlpi_addr + segment.p_vaddr;
                found.from = std::min<uintptr_t>(found.from, start);
                found.to = std::max<uintptr_t>(found.to, start + segment.p_memsz);
            }
            return 1;
        },
        &range);
    if (range.to == 0) give_up("the library is not loaded");
    return range;
}

struct Resident {
    uint64_t kilobytes = 0;
    uint64_t written_kilobytes = 0;  // pages of this process alone
};

Resident resident_in(const Range& range) {
    Resident resident;
    std::ifstream maps("/proc/self/smaps");
    bool inside = false;
    for (std::string line; std::getline(maps, line);) {
        uintptr_t from, to;
        uint64_t kilobytes;
        if (std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR " ", &from, &to) == 2) {
            inside = from < range.to && to > range.from;
        } else if (inside && std::sscanf(line.c_str(), "Rss: %" SCNu64, &kilobytes) == 1) {
            resident.kilobytes += kilobytes;
        } else if (inside && std::sscanf(line.c_str(), "Private_Dirty: %" SCNu64, &kilobytes) == 1) {
            resident.written_kilobytes += kilobytes;
        }
    }
    return resident;
}

uint64_t frames_inserted(Host& host) {
    uint64_t frames = 0;
    for (uint32_t stream = 0; stream < host.streams(); ++stream) frames += host.stream(stream).inserted;
    return frames;
}

// Gets from every camera and a sign of life to it, which it answers with a motion alarm.
double ask_everyone(Host& host, const CameraProcess& cameras, const std::vector<StreamConn*>& units) {
    uint8_t image[LENSWIRE_IMAGE_SIZE];
    const int asked_before = host.allocations;
    const uint64_t before = allocations_of_this_thread();
    for (uint32_t camera = 0; camera < cameras.cameras(); ++camera) {
        if (Prv_GetIPCImageProperty(0, CameraProcess::address(camera), image) != 0) give_up("a get failed");
    }
    const uint64_t after = allocations_of_this_thread();
    if (static_cast<uint64_t>(host.allocations - asked_before) != after - before) {
        give_up("a get allocated memory beside the host's");
    }
    for (StreamConn* unit : units) PC_SendHeartbeat(unit->pCmdClient);
    return static_cast<double>(after - before) / cameras.cameras();
}

Json stacks(const std::vector<Role>& workers) {
    Json used;
    for (const ThreadNote& note : noted_threads()) {
        const auto worker = std::find_if(workers.begin(), workers.end(),
                                         [&](const Role& role) { return role.thread == note.thread; });
        if (worker != workers.end()) used[worker->name] = used_stack(note.handle);
    }
    if (used.size() != workers.size()) give_up("a thread of the library never called its host");
    return used;
}

const ThreadNote& receive_loop_of(const std::vector<ThreadNote>& notes, const std::vector<Role>& workers) {
    for (const ThreadNote& note : notes) {
        for (const Role& role : workers) {
            if (role.name == "receive_loop" && role.thread == note.thread) return note;
        }
    }
    give_up("no frames came");
}

Json run(const Options& options) {
    const CameraProcess cameras(options.clients);
    const int64_t longest_ms = options.measure_ms + 3000;
    Sender sender({options.streams, Pacing::kWhole, Protocol::kCamera, longest_ms});
    Host host(options.streams);
    const std::vector<Role> workers = start_library();
    const std::vector<StreamConn*> units = log_in(host, cameras);
    open_streams(host, sender.port(), units);
    sender.go();
    sleep_ms(1000);

    const std::vector<ThreadNote> notes = noted_threads();
    const uint64_t* allocations = receive_loop_of(notes, workers).allocations;
    const uint64_t allocations_before = *allocations;
    const uint64_t frames_before = frames_inserted(host);
    const double allocations_per_get = ask_everyone(host, cameras, units);
    sleep_ms(options.measure_ms);
    const uint64_t frames = frames_inserted(host) - frames_before;
    const double allocations_per_frame = static_cast<double>(*allocations - allocations_before) / frames;
    const Resident library = resident_in(library_range());
    const Json used_stacks = stacks(workers);
    sender.stop();
    PC_UnInitCtx();
    return {{"clients", options.clients},
            {"streams", options.streams},
            {"library_resident_kb", library.kilobytes},
            {"library_written_kb", library.written_kilobytes},
            {"stack_bytes", used_stacks},
            {"frames", frames},
            {"allocations_per_frame", allocations_per_frame},
            {"allocations_per_get", allocations_per_get}};
}

}  // namespace

Round add_memory(CLI::App& app) {
    const auto options = std::make_shared<Options>();
    app.add_option("--clients", options->clients)->check(CLI::Range(1, 192));
    app.add_option("--streams", options->streams)->check(CLI::Range(1, 192));
    app.add_option("--measure-ms", options->measure_ms)->check(CLI::PositiveNumber);
    return [options] { return run(*options); };
}

}  // namespace lenswire::bench
