// lenswire-cut: every kind of session with a camera, closed, reset, stalled and turned to garbage after each
// byte that the camera sends. Each ends with a result that is stated here, nothing is left behind, and a
// camera beside them misses nothing.
//
//   lenswire-cut            every byte and every ending
//   lenswire-cut --sample   some of them, for a test run
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>

#include "fuzz/cut/neighbour.h"
#include "fuzz/cut/session.h"
#include "tests/support/capture.h"

namespace {

using namespace lenswire::fuzz;

constexpr int kNeighbour = 63;
constexpr int kAttempts = 12;  // a busy machine may be late for a clock that runs fast

struct Cut {
    const Kind* kind;
    size_t after;
    size_t total;
    Ending ending;
};

struct Plan {
    int workers;
    int time_scale;
    size_t step;  // of the bytes
};
constexpr Plan kWhole{.workers = 48, .time_scale = 25, .step = 1};
constexpr Plan kSample{.workers = 48, .time_scale = 25, .step = 17};

std::FILE* g_report;  // the library's lines go to standard output and error, and nowhere
std::mutex g_mutex;
std::vector<Cut> g_cuts;
size_t g_next = 0;
int g_findings = 0;
std::array<int, kKinds.size()> g_sessions;

std::vector<Cut> make_cuts(const Plan& plan) {
    std::vector<Cut> cuts;
    for (const Kind& kind : kKinds) {
        Part dry;
        kind.camera(dry);
        const size_t total = dry.total();
        for (size_t after = 0; after <= total; ++after) {
            for (size_t ending = 0; ending < kEndings.size(); ++ending) {
                const bool bound = after == 0 || after == 32 || after == total;
                if (bound || (after + 2 * ending) % plan.step == 0)
                    cuts.push_back({&kind, after, total, static_cast<Ending>(ending)});
            }
        }
    }
    return cuts;
}

// Whether a session may end so.
bool is_stated(const Cut& cut, Outcome outcome) {
    if (cut.kind->recorder == kKinds[3].recorder) return outcome == Outcome::kDone;  // a stream
    const bool whole = cut.after == cut.total;
    if (cut.ending == Ending::kReset && whole) return true;  // what came may go with the reset
    if (cut.ending == Ending::kGarbage) return true;         // it may be an answer, or spoil one
    return (outcome == Outcome::kDone) == whole;
}

Outcome play(const Cut& cut, int worker) {
    const std::string address = "127.0.1." + std::to_string(worker + 1);
    ScriptedCamera camera(address), uploads(address);
    host().has_channel(worker, Channel{.address = address, .port = uploads.port(), .armed = 1});
    Part part(camera, uploads, cut.after, cut.ending);
    std::atomic<bool> played{false};
    std::thread camera_thread([&] {
        try {
            cut.kind->camera(part);
        } catch (const Part::Over&) {
        }
        played = true;
    });
    Side side{.camera = camera,
              .uploads = uploads,
              .channel = worker,
              .cut = cut.after,
              .ending = cut.ending,
              .unit = PC_CreateNew()};
    const Outcome outcome = cut.kind->recorder(side);
    // A camera that still waits to be called is called. Not by a future's wait: its deadline would be the
    // fast clock's, and the system's clock is not.
    while (!wait_until([&] { return played.load(); }, std::chrono::seconds(g_time_scale))) {
        close(SK_ConnectTo(camera.address(), camera.port()));
        close(SK_ConnectTo(camera.address(), uploads.port()));
    }
    camera_thread.join();
    const int stream_socket = side.unit->sockFd;
    PC_Delete(side.unit);
    if (stream_socket > 0) close(stream_socket);  // the host's
    return outcome;
}

void run_cut(const Cut& cut, int worker) {
    Outcome outcome = Outcome::kNotBegun;
    for (int i = 0; i < kAttempts; ++i) {
        outcome = play(cut, worker);
        if (outcome != Outcome::kNotBegun && is_stated(cut, outcome)) break;
    }
    const std::lock_guard lock(g_mutex);
    ++g_sessions[static_cast<size_t>(cut.kind - kKinds.data())];
    if (outcome != Outcome::kNotBegun && is_stated(cut, outcome)) return;
    ++g_findings;
    constexpr const char* kOutcomes[] = {"done", "failed", "never began"};
    std::fprintf(g_report, "FOUND: %s, %s after %zu of %zu bytes: %s\n", cut.kind->name,
                 kEndings[static_cast<size_t>(cut.ending)], cut.after, cut.total,
                 kOutcomes[static_cast<size_t>(outcome)]);
}

void work(int worker) {
    for (;;) {
        Cut cut;
        {
            const std::lock_guard lock(g_mutex);
            if (g_next == g_cuts.size()) return;
            cut = g_cuts[g_next++];
        }
        run_cut(cut, worker);
    }
}

void finding(const std::string& text) {
    if (text.empty()) return;
    std::fprintf(g_report, "FOUND: %s\n", text.c_str());
    ++g_findings;
}

void run_all(const Plan& plan) {
    const HostNotes notes;
    for (int worker = 0; worker < plan.workers; ++worker) {
        HostChannelRecord record{};
        record.ucChannelNo = static_cast<uint8_t>(worker);
        record.ucProtocol = LENSWIRE_PROTOCOL;
        const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
        host().has_record(LENSWIRE_TABLE_CHANNELS, static_cast<uint32_t>(worker),
                          Bytes(bytes, bytes + sizeof record));
    }
    PC_InitCtx();
    {
        Neighbour neighbour(kNeighbour);
        const int descriptors = open_descriptors(), threads = thread_count();
        std::vector<std::thread> workers;
        for (int i = 0; i < plan.workers; ++i) workers.emplace_back(work, i);
        for (std::thread& worker : workers) worker.join();
        // The library takes its time to leave the thread of an upgrade.
        if (!wait_for([&] { return thread_count() <= threads; })) finding("threads are left");
        if (open_descriptors() > descriptors) finding("descriptors are left");
        const std::string missed = neighbour.stop();
        if (!missed.empty()) finding("the neighbour missed " + missed);
        std::fprintf(g_report, "neighbour: %d answers, %u frames\n", neighbour.gets(), neighbour.frames());
    }
    PC_UnInitCtx();
    if (host().live_allocations() != 0) finding("memory of the host is left");
    for (const std::string& complaint : host().complaints()) finding(complaint);
}

}  // namespace

int main(int count, char** arguments) {
    const bool sample = count == 2 && std::strcmp(arguments[1], "--sample") == 0;
    if (count > 1 && !sample) {
        std::fprintf(stderr, "usage: %s [--sample]\n", arguments[0]);
        return 2;
    }
    g_report = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), "w");
    std::setvbuf(g_report, nullptr, _IOLBF, 0);
    if (std::freopen("/dev/null", "w", stdout) == nullptr ||
        std::freopen("/dev/null", "w", stderr) == nullptr)
        return 1;
    const Plan& plan = sample ? kSample : kWhole;
    g_cuts = make_cuts(plan);
    timespec began{}, ended{};
    clock_gettime(CLOCK_MONOTONIC, &began);
    g_time_scale = plan.time_scale;
    run_all(plan);
    g_time_scale = 1;
    clock_gettime(CLOCK_MONOTONIC, &ended);
    for (size_t i = 0; i < kKinds.size(); ++i)
        std::fprintf(g_report, "  %-12s %6d sessions\n", kKinds[i].name, g_sessions[i]);
    std::fprintf(g_report, "%zu sessions in %ld s, %d findings\n", g_cuts.size(),
                 static_cast<long>(ended.tv_sec - began.tv_sec), g_findings);
    return g_findings == 0 ? 0 : 1;
}
