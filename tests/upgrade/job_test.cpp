// Upgrade jobs from the call to the end, over loopback connections that the test plays.
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <future>
#include <numeric>
#include <set>

#include "support/interpose.h"
#include "upgrade/upgrade.h"

namespace {

using namespace lenswire::test;

constexpr uint32_t kAll = 100;

// What a job's loop does between two waits: the program's own select stands in front of libc's, for the
// library too, and counts the calls of one thread.
std::atomic<pthread_t> g_thread{};
std::atomic<int> g_select_calls{0};
std::atomic<int> g_watched_for_writing{0};  // descriptors, by the last call
std::atomic<int> g_rounds_of_reading{0};    // how often it read what a call found, and came back
std::atomic<bool> g_found_readable{false};

int members(const fd_set* set, int end) {
    int count = 0;
    for (int i = 0; set != nullptr && i < end; ++i) count += FD_ISSET(i, set) ? 1 : 0;
    return count;
}

void counts_selects_of(pthread_t thread) {
    g_found_readable = false;
    g_thread = thread;
}

}  // namespace

// Outside the namespaces, where it gets the name that the library calls.
extern "C" int select(int end, fd_set* readable, fd_set* writable, fd_set* failed, timeval* timeout) {
    using Select = int (*)(int, fd_set*, fd_set*, fd_set*, timeval*);
    static const auto real = REAL_TIMED(Select, select);
    if (pthread_self() != g_thread.load()) return real(end, readable, writable, failed, timeout);
    g_watched_for_writing = members(writable, end);
    if (g_found_readable) ++g_rounds_of_reading;
    ++g_select_calls;
    const int result = real(end, readable, writable, failed, timeout);
    g_found_readable = result > 0 && members(readable, end) > 0;
    return result;
}

namespace {

class UpgradeJob : public UpgradeTest {
  protected:
    // A file that fits the camera.
    std::string has_file(size_t size) {
        content_ = pattern(size, 9);
        return folder_.write(kFileName, content_);
    }
    uint32_t total() const { return static_cast<uint32_t>(content_.size()) + 32; }
    // The whole upload as it must arrive.
    Bytes upload() const { return upload_header(static_cast<uint32_t>(content_.size())) + content_; }
    // Another host's job may have taken its record over.
    static bool has_ended(pthread_t job) {
        UpgradeJobStatus status{};
        return Prv_ipc_upgrade_get_status(job, &status) != 0 || status.ulUsed == 0;
    }
    // Wakes a job's loop without telling it anything.
    static void nudges(Wire& wire) { wire.sends(Bytes{0}); }
    // Wakes it so often, once at a time, and returns how often it went to wait meanwhile.
    static int waits_while_nudged(Wire& wire, int times) {
        const int before = g_select_calls;
        for (int i = 0; i < times; ++i) {
            const int calls = g_select_calls;
            nudges(wire);
            EXPECT_TRUE(wait_until([calls] { return g_select_calls > calls; }));
        }
        return g_select_calls - before;
    }

    Bytes content_;
};

// What a camera does once it has the whole file, and what becomes of it.
TEST_F(UpgradeJob, TakesTheCamerasAnswer) {
    const Message nonsense = command(0x1234, repeated(0, 8));
    const std::string done = "1: done 100%, ";
    const std::string failed = "1: failed 100%, ";
    const struct {
        const char* name;
        std::vector<Message> sends;
        std::string outcome;
    } endings[] = {
        {"success", {upload_answer()}, done},
        {"success with a payload", {command(0x2002, repeated(7, 100))}, done},
        {"failure", {upload_answer(1)}, failed},
        {"failure in the high byte", {upload_answer(0x100)}, failed},
        {"nothing, then the end", {}, failed},
        {"29 unexpected, then success", std::vector<Message>(29, nonsense), done},
        {"30 unexpected", std::vector<Message>(30, nonsense), failed},
    };
    const std::string path = has_file(700001);
    binds({1}, uploads_.port());
    Capture capture;
    size_t alarms = 0;
    for (const auto& ending : endings) {
        SCOPED_TRACE(ending.name);
        const pthread_t job = starts({1}, path);
        counts_selects_of(job);
        Wire wire = uploads_.accepts();
        EXPECT_EQ(wire.reads(total()), upload());
        EXPECT_TRUE(wait_until([&] { return text_of(status(job)) == "1: running 100%, "; }));
        EXPECT_EQ(status(job).ulUsed, 1U);
        EXPECT_EQ(status(job).ulThreadId, static_cast<uint32_t>(job));
        EXPECT_EQ(host().record(24, 1), Bytes(9));
        for (const Message& message : ending.sends) {
            // One receive per message.
            const int rounds = g_rounds_of_reading;
            wire.sends(message);
            EXPECT_TRUE(wait_until([&] { return g_rounds_of_reading > rounds || status(job).ulUsed == 0; }));
        }
        if (ending.sends.size() == 29) wire.sends(upload_answer());
        if (ending.sends.empty()) wire.closes();
        EXPECT_EQ(text_of(waits_for_end(job)), ending.outcome);
        EXPECT_TRUE(ending.sends.empty() || wire.sees_close());
        if (ending.outcome == failed) ++alarms;
        ASSERT_EQ(host().alarms().size(), alarms);
    }
    EXPECT_EQ(host().alarms().front().queue, 0);
    EXPECT_EQ(host().alarms().front().record, (Bytes{40, 1, 0, 1}));
    EXPECT_EQ(capture.err(), "");
    for (const char* line : {"p_cmd->usCmd:4660,ret:40,ipc_upgrade_cfg[i].sock:",
                             "#####################ipc_upgrade_thread##########",
                             "###############Ipc Upgrade Check successful##########"})
        EXPECT_THAT(capture.out(), HasSubstr(line));
}

TEST_F(UpgradeJob, FailsTheCameraThatBreaksOff) {
    const std::string path = has_file(8 << 20);
    binds({1, 2, 3}, uploads_.port());
    binds({2}, refused_port());
    host().when(Service::kAlarm, [](int, int) {  // on the job's thread
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        EXPECT_TRUE(sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGSEGV) == 0);
    });
    const pthread_t job = starts({1, 2, 3}, path);
    Wire closing = uploads_.accepts();
    Wire resetting = uploads_.accepts();
    closing.reads(100000);
    resetting.reads(10);
    closing.closes();
    resetting.resets();
    EXPECT_THAT(
        text_of(waits_for_end(job)),
        testing::MatchesRegex("1: failed [0-9]{1,2}%, 2: failed [0-9]{1,2}%, 3: failed [0-9]{1,2}%, "));
    std::multiset<int> alarmed;
    for (const Alarm& alarm : host().alarms()) alarmed.insert(alarm.record[1]);
    EXPECT_EQ(alarmed, (std::multiset<int>{1, 2, 3}));
}

TEST_F(UpgradeJob, ServesSixtyFourCamerasAtOnce) {
    const std::string path = has_file((1 << 20) + 3);
    std::vector<int> channels(64);
    std::iota(channels.begin(), channels.end(), 0);
    binds(channels, uploads_.port());
    const Bytes expected = upload();
    Capture capture;
    const pthread_t job = starts(channels, path);
    std::vector<std::future<bool>> cameras;
    for (int i = 0; i < 64; ++i) {
        cameras.push_back(std::async(std::launch::async, [&expected, wire = uploads_.accepts()]() mutable {
            const Bytes received = wire.reads(expected.size());
            wire.sends(upload_answer());
            return received == expected && wire.sees_close();
        }));
    }
    for (auto& camera : cameras) EXPECT_TRUE(camera.get());
    std::string all_done;
    for (const int channel : channels) all_done += std::to_string(channel) + ": done 100%, ";
    EXPECT_EQ(text_of(waits_for_end(job)), all_done);
    EXPECT_EQ(host().database_calls(24, 1), 64);
}

// -- Time.

TEST_F(UpgradeJob, GivesACameraSixtySecondsEitherWay) {
    const struct {
        uint32_t start;
        int32_t step;
        bool over;
    } moments[] = {{1000, 59, false},
                   {1000, 60, true},
                   {1000, -59, false},
                   {1000, -60, true},
                   {UINT32_MAX - 10, 59, false},
                   {UINT32_MAX - 10, 60, true}};
    const std::string path = has_file(100);
    binds({1}, uploads_.port());
    for (const auto& moment : moments) {
        SCOPED_TRACE(testing::Message() << moment.start << " " << moment.step);
        host().clock.set(moment.start);
        const pthread_t job = starts({1}, path);
        Wire wire = uploads_.accepts();
        wire.reads(total());
        host().clock.set(moment.start + static_cast<uint32_t>(moment.step));
        if (!moment.over) {
            counts_selects_of(job);
            waits_while_nudged(wire, 3);
            wire.sends(upload_answer());
        } else {
            nudges(wire);
        }
        EXPECT_EQ(text_of(waits_for_end(job)), moment.over ? "1: late 100%, " : "1: done 100%, ");
    }
    EXPECT_THAT(host().alarms(), testing::IsEmpty());
}

// -- Waiting: a loop that spins would go to wait many thousand times meanwhile.

constexpr int kNudges = 20;
constexpr int kFew = 100;

TEST_F(UpgradeJob, SleepsWhileACameraDoesNotRead) {
    binds({1, 2}, uploads_.port());
    const pthread_t job = starts({1, 2}, has_file(16 << 20));
    counts_selects_of(job);
    Wire first = uploads_.accepts();
    Wire second = uploads_.accepts();
    // The second camera takes everything, the first one nothing.
    EXPECT_EQ(second.reads(total()), upload());
    waits_while_nudged(second, 2);
    EXPECT_LT(waits_while_nudged(second, kNudges), kFew);
    EXPECT_EQ(g_watched_for_writing, 1);
    second.sends(upload_answer());
    EXPECT_EQ(first.reads(total()), upload());
    first.sends(upload_answer());
    EXPECT_EQ(text_of(waits_for_end(job)), "1: done 100%, 2: done 100%, ");
}

TEST_F(UpgradeJob, TimesOutQuietlyWhenTheFileShrinks) {
    const std::string path = has_file(16 << 20);
    binds({1}, uploads_.port());
    const pthread_t job = starts({1}, path);
    counts_selects_of(job);
    Wire wire = uploads_.accepts();
    wire.reads(1000000);
    ASSERT_EQ(truncate(path.c_str(), 1000), 0);
    // The camera takes all that was under way; then it is ready for more, and there is none.
    waits_while_nudged(wire, 2);
    while (wire.has_bytes()) wire.reads(static_cast<size_t>(waiting_bytes(wire.descriptor())));
    waits_while_nudged(wire, 2);
    EXPECT_LT(waits_while_nudged(wire, kNudges), kFew);
    host().clock.advance(60);
    nudges(wire);
    EXPECT_THAT(text_of(waits_for_end(job)), testing::MatchesRegex("1: late [0-9]{1,2}%, "));
    EXPECT_THAT(host().alarms(), testing::IsEmpty());
}

// A file that grows meanwhile is sent as long as it was announced.
TEST_F(UpgradeJob, SendsWhatItAnnounced) {
    const std::string path = has_file((16 << 20) + 5);
    binds({1}, uploads_.port());
    const pthread_t job = starts({1}, path);
    Wire wire = uploads_.accepts();
    const Bytes start = wire.reads(1000);
    ASSERT_EQ(truncate(path.c_str(), 64 << 20), 0);
    EXPECT_EQ(start + wire.reads(total() - 1000), upload());
    EXPECT_TRUE(wait_until([&] { return status(job).camera[0].ulPercent == kAll; }));
    EXPECT_FALSE(wire.has_bytes());
    wire.sends(upload_answer());
    waits_for_end(job);
}

// -- The table.

TEST_F(UpgradeJob, RefusesTheSixtyFifth) {
    const std::string path = has_file(100);
    binds({1}, uploads_.port());
    Capture capture;
    std::set<pthread_t> jobs;
    std::vector<Wire> wires;
    for (int i = 0; i < 64; ++i) {
        jobs.insert(starts({1}, path));
        wires.push_back(uploads_.accepts());
    }
    EXPECT_EQ(jobs.size(), 64U);
    starts({1}, path, -1);
    for (const pthread_t job : jobs) EXPECT_EQ(status(job).ulUsed, 1U);

    wires.front().closes();
    EXPECT_TRUE(wait_until([&] { return std::any_of(jobs.begin(), jobs.end(), has_ended); }));
    const pthread_t next = starts({1}, path);
    wires.front() = uploads_.accepts();
    host().clock.advance(60);
    for (Wire& wire : wires) nudges(wire);
    EXPECT_EQ(waits_for_end(next).camera[0].ulState, uint32_t{UPGRADE_TIMED_OUT});
    EXPECT_TRUE(wait_until([&] { return std::all_of(jobs.begin(), jobs.end(), has_ended); }));
}

TEST_F(UpgradeJob, IsUnknownUntilItIsStarted) {
    UpgradeJobStatus untouched;
    std::memset(&untouched, 0x55, sizeof untouched);
    EXPECT_EQ(Prv_ipc_upgrade_get_status(pthread_self(), &untouched), -1);
    EXPECT_EQ(Prv_ipc_upgrade_get_status(pthread_t{}, &untouched), -1);
    EXPECT_EQ(untouched.ulUsed, 0x55555555U);
    const pthread_t job = starts({}, has_file(10));
    EXPECT_EQ(Prv_ipc_upgrade_get_status(job, nullptr), -1);
    EXPECT_EQ(text_of(waits_for_end(job)), "") << "it has no channel";
#if UINTPTR_MAX > UINT32_MAX
    // The same low half is not the same thread.
    EXPECT_EQ(Prv_ipc_upgrade_get_status(job ^ pthread_t{1} << 40, &untouched), -1);
#endif
}

// The record of an ended job goes with the next one of its thread, whose identity comes back: here the last
// thread that ended is the next one's, as long as nobody else starts one.
TEST_F(UpgradeJob, IsFoundByItsThreadAsLongAsItIsTheLastOne) {
    const std::string path = has_file(100);
    binds({1}, uploads_.port());
    const int threads = thread_count();
    const auto ends = [&, left = threads](pthread_t job, Wire wire, int others) {
        wire.closes();
        waits_for_end(job);
        EXPECT_TRUE(wait_until([&] { return thread_count() == left + others; }));
    };
    const pthread_t first = starts({1}, path);
    Wire wire = uploads_.accepts();
    const pthread_t second = starts({1}, path);
    Wire second_wire = uploads_.accepts();
    ends(first, std::move(wire), 1);
    ends(second, std::move(second_wire), 0);
    const pthread_t third = starts({1}, path);
    ends(third, uploads_.accepts(), 0);
    std::promise<void> done;
    std::thread other([&] { done.get_future().wait(); });
    const pthread_t fourth = starts({1}, path);
    ends(fourth, uploads_.accepts(), 1);
    done.set_value();
    other.join();
    UpgradeJobStatus status{};
    if (third == second && fourth != second) {
        EXPECT_EQ(Prv_ipc_upgrade_get_status(second, &status), -1);
    }
}

// Hosts start, poll and start again from several threads while jobs end.
TEST_F(UpgradeJob, StartsPollsAndEndsTogether) {
    const std::string path = has_file(1000);
    Capture capture;
    const auto plays_host = [&] {
        for (int k = 0; k < 25; ++k) {
            const pthread_t job = starts({}, path);
            EXPECT_TRUE(wait_until([&] { return has_ended(job); }));
        }
    };
    std::vector<std::future<void>> hosts;
    for (int i = 0; i < 4; ++i) hosts.push_back(std::async(std::launch::async, plays_host));
    for (auto& host : hosts) host.get();
}

}  // namespace
