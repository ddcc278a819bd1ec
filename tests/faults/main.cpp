// fault_points --all | --sample | --small-sample | --points | NAME NUMBER ERROR: runs a recorder's whole
// scenario once for each point at which a call of the library can fail, each in a process of its own: nothing
// may crash or hang, the next try must work, and at the end no descriptor, thread or block may be left.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "faults/points.h"
#include "faults/scenario.h"
#include "lenswire/connection.h"
#include "support/fake_host.h"

using namespace lenswire::test;

namespace {

constexpr unsigned kLongest_s = 100;
constexpr int kTries = 5;  // at a machine that is busy elsewhere a wait that was cut short may be too short
constexpr size_t kAtOnce = 4;
// Of a call that loops, these many from the first on, and as many more spread over the rest.
constexpr int kEach = 60;

enum Verdict { kGood, kNextTryFails, kSomethingLeft };

struct Case {
    Point* point;
    int number;
    int error;
};

// The child's whole life. The context starts once in a process: when that fails, there is no next try.
int live(const Case* fault) {
    Scenario scenario;
    const Holdings before = scenario.holdings();
    if (fault != nullptr) fault->point->fails_at(fault->number, fault->error);
    if (PC_InitCtx() != 0) return Point::has_failed() && PC_UnInitCtx() == 0 ? kGood : kNextTryFails;
    const bool failed_at_start = Point::has_failed();
    if (!failed_at_start) scenario.run();
    Point::nothing_fails();
    bool works = failed_at_start;
    for (int i = 0; i < kTries && !works; ++i) works = scenario.run();
    PC_UnInitCtx();
    if (!works) return kNextTryFails;
    return scenario.comes_back_to(before) ? kGood : kSomethingLeft;
}

pid_t start(const Case* fault, bool quiet) {
    std::fflush(stdout);
    const pid_t child = fork();
    if (child != 0) return child;
    if (quiet && (std::freopen("/dev/null", "w", stdout) == nullptr ||
                  std::freopen("/dev/null", "w", stderr) == nullptr))
        _exit(99);
    alarm(kLongest_s);
    _exit(live(fault));
}

// Empty when all is well.
std::string trouble(int status) {
    if (WIFSIGNALED(status)) return WTERMSIG(status) == SIGALRM ? "hangs" : strsignal(WTERMSIG(status));
    switch (WEXITSTATUS(status)) {
        case kGood:
            return "";
        case kNextTryFails:
            return "the next try does not work";
        case kSomethingLeft:
            return "something is left over";
        default:
            return "ends with " + std::to_string(WEXITSTATUS(status));
    }
}

// How often each point is passed when nothing fails.
std::map<Point*, int> count_calls() {
    size_t points = 0;
    for (Point* point = Point::first(); point != nullptr; point = point->next()) ++points;
    auto* shared = static_cast<int*>(
        mmap(nullptr, points * sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    const pid_t child = fork();
    if (child == 0) {
        alarm(kLongest_s);
        const int verdict = live(nullptr);
        int* count = shared;
        for (Point* point = Point::first(); point != nullptr; point = point->next())
            *count++ = point->calls();
        _exit(verdict);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (const std::string what = trouble(status); !what.empty()) {
        std::printf("without any fault: %s\n", what.c_str());
        std::exit(1);
    }
    std::map<Point*, int> counts;
    int* count = shared;
    for (Point* point = Point::first(); point != nullptr; point = point->next()) counts[point] = *count++;
    return counts;
}

enum class Extent { kAll, kSample, kSmallSample };

std::vector<int> numbers(int calls, Extent extent) {
    if (calls == 0) return {};
    if (extent == Extent::kSmallSample) return {(calls + 1) / 2};
    if (extent == Extent::kSample && calls > 1) return {calls / 3 + 1, calls * 2 / 3 + 1};
    std::vector<int> list;
    for (int n = 1; n <= std::min(calls, kEach); ++n) list.push_back(n);
    const int step = std::max(1, (calls - kEach) / kEach);
    for (int n = kEach + step; n <= calls; n += step) list.push_back(n);
    return list;
}

std::vector<Case> cases(Extent extent) {
    std::vector<Case> list;
    for (const auto& [point, calls] : count_calls()) {
        if (calls == 0) std::printf("%s: the scenario does not call it\n", point->name());
        for (const int number : numbers(calls, extent)) {
            for (int error = 0; error < (extent == Extent::kAll ? point->errors() : 1); ++error)
                list.push_back({point, number, error});
        }
    }
    return list;
}

int run(const std::vector<Case>& list) {
    std::map<pid_t, const Case*> running;
    size_t next = 0;
    int failed = 0;
    while (next < list.size() || !running.empty()) {
        if (next < list.size() && running.size() < kAtOnce) {
            running[start(&list[next], true)] = &list[next];
            ++next;
            continue;
        }
        int status = 0;
        const Case* fault = running.extract(wait(&status)).mapped();
        const std::string what = trouble(status);
        if (what.empty()) continue;
        ++failed;
        std::printf("%s %d %d: %s\n", fault->point->name(), fault->number, fault->error, what.c_str());
        std::fflush(stdout);
    }
    std::printf("%zu faults: %d failed\n", list.size(), failed);
    return failed > 0 || list.empty() ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 1 ? argv[1] : "";
    if (what == "--points") {
        for (Point* point = Point::first(); point != nullptr; point = point->next()) std::puts(point->name());
        return 0;
    }
    if (argc == 4) {
        const Case one{Point::find(what), std::atoi(argv[2]), std::atoi(argv[3])};
        int status = 0;
        waitpid(start(&one, false), &status, 0);
        std::printf("%s\n", trouble(status).c_str());
        return status;
    }
    const std::map<std::string, Extent> extents = {
        {"--all", Extent::kAll}, {"--sample", Extent::kSample}, {"--small-sample", Extent::kSmallSample}};
    return extents.contains(what) ? run(cases(extents.at(what))) : 2;
}
