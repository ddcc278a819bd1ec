// Upgrade jobs from the call to the end, over loopback connections that the test plays.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstring>
#include <future>
#include <set>

#include "upgrade/upgrade.h"

namespace {

using namespace lenswire::test;

class UpgradeJob : public UpgradeTest {
  protected:
    // A file that fits the camera.
    std::string has_file(size_t size) {
        content_ = pattern(size, 9);
        return folder_.write(kFileName, content_);
    }
    uint32_t total() const { return static_cast<uint32_t>(content_.size()) + 32; }
    // The whole upload as it must arrive.
    Bytes upload() const { return announcing(0x2002, {1, total() - 32}, content_).bytes(); }
    // Another host's job may have taken its record over.
    static bool has_ended(pthread_t job) {
        UpgradeJobStatus status{};
        return Prv_ipc_upgrade_get_status(job, &status) != 0 || status.ulUsed == 0;
    }
    // A job asks for the time before each of its waits.
    void counts_waits_of(pthread_t job) {
        host().when(Service::kUptime,
                    [this, job](int, int) { waits_ += pthread_equal(pthread_self(), job); });
    }
    // Wakes a job's loop without telling it anything.
    static void nudges(Wire& wire) { wire.sends(Bytes{0}); }
    // Wakes it so often, once at a time, and returns how often it went to wait meanwhile.
    int waits_while_nudged(Wire& wire, int times) {
        const int before = waits_;
        for (int i = 0; i < times; ++i) {
            const int waits = waits_;
            nudges(wire);
            EXPECT_TRUE(wait_until([this, waits] { return waits_ > waits; }));
        }
        return waits_ - before;
    }

    Bytes content_;
    std::atomic<int> waits_{0};
};

// What a camera does once it has the whole file, and what becomes of it.
TEST_F(UpgradeJob, TakesTheCamerasAnswer) {
    const Message nonsense = command(0x1234, repeated(0, 8));
    const std::string unexpected = "p_cmd->usCmd:4660,ret:40,ipc_upgrade_cfg[i].sock:";
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
        Wire wire = uploads_.accepts();
        EXPECT_EQ(wire.reads(total()), upload());
        EXPECT_TRUE(wait_until([&] { return text_of(status(job)) == "1: running 100%, "; }));
        EXPECT_EQ(status(job).ulUsed, 1U);
        EXPECT_EQ(status(job).ulThreadId, static_cast<uint32_t>(job));
        EXPECT_EQ(host().record(24, 1), Bytes(9));
        for (const Message& message : ending.sends) {
            // One receive per message.
            const int before = occurrences(capture.out(), unexpected);
            wire.sends(message);
            EXPECT_TRUE(wait_until(
                [&] { return occurrences(capture.out(), unexpected) > before || status(job).ulUsed == 0; }));
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
    for (const char* line : {"#####################ipc_upgrade_thread##########",
                             "###############Ipc Upgrade Check successful##########"})
        EXPECT_THAT(capture.out(), HasSubstr(line));
}

TEST_F(UpgradeJob, FailsTheCameraThatBreaksOff) {
    const std::string path = has_file(8 << 20);
    binds({1, 2, 63}, uploads_.port());
    binds({2}, refused_port());
    host().when(Service::kAlarm, [](int, int) {  // on the job's thread
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        EXPECT_TRUE(sigismember(&mask, SIGTERM) == 1 && sigismember(&mask, SIGSEGV) == 0);
    });
    const pthread_t job = starts({1, 2, 63}, path);
    Wire closing = uploads_.accepts();
    Wire resetting = uploads_.accepts();
    closing.reads(100000);
    resetting.reads(10);
    closing.closes();
    resetting.resets();
    EXPECT_THAT(
        text_of(waits_for_end(job)),
        testing::MatchesRegex("1: failed [0-9]{1,2}%, 2: failed [0-9]{1,2}%, 63: failed [0-9]{1,2}%, "));
    std::multiset<int> alarmed;
    for (const Alarm& alarm : host().alarms()) alarmed.insert(alarm.record[1]);
    EXPECT_EQ(alarmed, (std::multiset<int>{1, 2, 63}));
    EXPECT_EQ(host().record(24, 63), Bytes(9));
}

// -- Time.

TEST_F(UpgradeJob, GivesACameraSixtySecondsEitherWay) {
    const std::string path = has_file(100);
    binds({1}, uploads_.port());
    for (const uint32_t start : {1000u, UINT32_MAX - 10}) {
        for (const int step : {59, 60, -59, -60}) {
            host().clock.set(start);
            const pthread_t job = starts({1}, path);
            Wire wire = uploads_.accepts();
            wire.reads(total());
            host().clock.set(start + static_cast<uint32_t>(step));
            const bool over = std::abs(step) == 60;
            counts_waits_of(job);
            waits_while_nudged(wire, over ? 0 : 3);
            over ? nudges(wire) : wire.sends(upload_answer());
            EXPECT_EQ(text_of(waits_for_end(job)), over ? "1: late 100%, " : "1: done 100%, ") << step;
        }
    }
    EXPECT_THAT(host().alarms(), testing::IsEmpty());
}

// -- Waiting: a loop that spins would go to wait many thousand times meanwhile.

constexpr int kNudges = 20;
constexpr int kFew = 100;

TEST_F(UpgradeJob, SleepsWhileACameraDoesNotRead) {
    binds({1, 2}, uploads_.port());
    const pthread_t job = starts({1, 2}, has_file(16 << 20));
    counts_waits_of(job);
    Wire first = uploads_.accepts();
    Wire second = uploads_.accepts();
    // The second camera takes everything, the first one nothing.
    EXPECT_EQ(second.reads(total()), upload());
    waits_while_nudged(second, 2);
    EXPECT_LT(waits_while_nudged(second, kNudges), kFew);
    second.sends(upload_answer());
    EXPECT_EQ(first.reads(total()), upload());
    first.sends(upload_answer());
    EXPECT_EQ(text_of(waits_for_end(job)), "1: done 100%, 2: done 100%, ");
}

TEST_F(UpgradeJob, TimesOutQuietlyWhenTheFileShrinks) {
    const std::string path = has_file(16 << 20);
    binds({1}, uploads_.port());
    const pthread_t job = starts({1}, path);
    counts_waits_of(job);
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
    EXPECT_TRUE(wait_until([&] { return status(job).camera[0].ulPercent == 100; }));
    EXPECT_FALSE(wire.has_bytes());
    wire.sends(upload_answer());
    waits_for_end(job);
}

// -- The table.

TEST_F(UpgradeJob, RefusesTheSixtyFifth) {
    const std::string path = has_file(100);
    binds({1}, uploads_.port());
    Capture capture;
    // Those whose thread cannot start, since none can have a stack of this size, leave their record free.
    pthread_attr_t usual, huge;
    pthread_getattr_default_np(&usual);
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, sizeof(void*) == 8 ? SIZE_MAX / (1 << 16) : SIZE_MAX / 16 * 15);
    ASSERT_EQ(pthread_setattr_default_np(&huge), 0);
    starts({}, path, -1);
    ASSERT_EQ(pthread_setattr_default_np(&usual), 0);

    std::set<pthread_t> jobs;
    std::vector<Wire> wires;
    for (int i = 0; i < 64; ++i) {
        jobs.insert(starts({1}, path));
        wires.push_back(uploads_.accepts());
    }
    EXPECT_EQ(jobs.size(), 64U);
    starts({1}, path, -1);
    wires.front().closes();
    EXPECT_TRUE(wait_until([&] { return std::any_of(jobs.begin(), jobs.end(), has_ended); }));
    const pthread_t next = starts({1}, path);
    wires.clear();
    uploads_.accepts();
    EXPECT_EQ(waits_for_end(next).camera[0].ulState, uint32_t{UPGRADE_FAILED});
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
    const auto ends = [&](pthread_t job, int others) {
        waits_for_end(job);
        EXPECT_TRUE(wait_until([&] { return thread_count() == threads + others; }));
    };
    const pthread_t first = starts({1}, path);
    Wire wire = uploads_.accepts();
    const pthread_t second = starts({1}, path);
    Wire second_wire = uploads_.accepts();
    wire.closes();
    ends(first, 1);
    second_wire.closes();
    ends(second, 0);
    const pthread_t third = starts({}, path);
    ends(third, 0);
    std::promise<void> done;
    std::thread other([&] { done.get_future().wait(); });
    const pthread_t fourth = starts({}, path);
    ends(fourth, 1);
    done.set_value();
    other.join();
    UpgradeJobStatus status{};
    EXPECT_EQ(Prv_ipc_upgrade_get_status(second, &status), third == second && fourth != second ? -1 : 0);
}

}  // namespace
