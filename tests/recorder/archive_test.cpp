// The small parts of the archive: names, times, the ledger's versions, what is removed first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "recorder/archive/keeper.h"
#include "recorder/archive/ledger_schema.h"
#include "recorder/archive/names.h"
#include "recorder/archive/verify.h"
#include "recorder/support/failure.h"
#include "sim_disk.h"

namespace lenswire::recorder {
namespace {

constexpr Ms kDay = 1'795'442'700'120;

TEST(Archive, NamesStreams) {
    struct Case {
        StreamIdentity identity;
        const char* name;
    };
    for (const Case& c : {Case{{"front", "192.0.2.7", 7001, 0, 0}, "front"},
                          Case{{"front", "192.0.2.7", 7788, 0, 1}, "front-sub"},
                          Case{{"", "192.0.2.7", 7788, 0, 0}, "192.0.2.7"},
                          Case{{"", "192.0.2.7", 7001, 2, 2}, "192.0.2.7-7001-ch2-sub2"},
                          Case{{"../a b", "x", 1, 0, 0}, "_._a_b"}}) {
        EXPECT_EQ(stream_name(c.identity), c.name);
    }
}

TEST(Archive, WritesAndReadsTimes) {
    EXPECT_EQ(utc_text(kDay), "2026-11-23T14:05:00.120Z");
    EXPECT_EQ(segment_name(kDay), "2026-11-23/14-05-00.120Z.mkv");
    EXPECT_EQ(segment_time(segment_name(kDay)), kDay);
    const std::map<std::string, std::optional<Ms>> read = {
        {"2026-11-23T14:05:00.120Z", kDay},
        {"2026-11-23 14:05", kDay - 120},
        {"2026-11-23", kDay - 120 - 14 * 3'600'000 - 5 * 60'000},
        {"yesterday", std::nullopt},
        {"2026-13-01", std::nullopt},
        {"2026-11-23T24:00", std::nullopt},
        {"2026-11-23T14:05x", std::nullopt}};
    for (const auto& [text, time] : read) EXPECT_EQ(parse_utc(text), time) << text;
}

TEST(Archive, KeepsUtcThroughAWallClockThatIsSet) {
    constexpr Ms kHour = 3'600'000;
    // The monotonic clock runs fast by 500 ppm; the wall clock is set after half an hour.
    struct : ArchiveClock {
        Ms monotonic() const override { return seconds * 1000 + seconds / 2; }
        Ms wall() const override { return kDay + seconds * 1000 + set; }
        Ms seconds = 0, set = 0;
    } board;
    SteeredClock clock(board);
    const UtcAnchor anchor(clock.monotonic(), clock.wall());
    for (; board.seconds <= 3600; ++board.seconds) {
        board.set = board.seconds < 1800 ? 0 : kHour;
        ASSERT_EQ(clock.look().has_value(), board.seconds == 1800);
        ASSERT_NEAR(anchor.utc(clock.monotonic()), board.wall() - board.set, 5);
    }
    EXPECT_EQ(UtcAnchor(0, kDay, kDay + kHour).utc(0), kDay + kHour)
        << "set back since the last run: no overlap";
    EXPECT_EQ(UtcAnchor(0, kDay, kDay + 48 * kHour).utc(0), kDay) << "the last run's clock was the wrong one";
}

class LedgerFile : public testing::Test {
  protected:
    void SetUp() override { remove_all(); }
    void TearDown() override { remove_all(); }
    void remove_all() {
        for (const char* end : {"", "-wal", "-shm", "-journal"}) std::filesystem::remove(file_ + end);
    }
    std::string file_ =
        testing::TempDir() + "lenswire-" + testing::UnitTest::GetInstance()->current_test_info()->name();
};

// From every older version, stopped after each statement of the way.
TEST_F(LedgerFile, ComesToThePresentVersionHoweverOftenItWasStopped) {
    std::vector<std::string> statements;
    for (const char* step : kSchemaSteps) {
        const std::string text = step;
        for (size_t at = 0, end = 0; (end = text.find(';', at)) != std::string::npos; at = end + 1)
            statements.push_back(text.substr(at, end + 1 - at));
    }
    ASSERT_GT(statements.size(), 10u);
    for (size_t stopped = 0; stopped <= statements.size(); ++stopped) {
        remove_all();
        {
            Database database(file_);
            database.execute("BEGIN");
            for (size_t i = 0; i < stopped; ++i) database.execute(statements[i].c_str());
        }  // gone before the commit
        Ledger ledger(file_);
        ledger.segment_begins({.stream = "a", .path = "a/b", .from = 1, .state = "open"});
        EXPECT_TRUE(ledger.write()) << stopped;
        EXPECT_EQ(ledger.check(), "ok");
    }
    Database(file_).execute("PRAGMA user_version = 99");
    EXPECT_THROW(Ledger{file_}, Failure) << "of a later version";
}

// Segments of 100 bytes, one a minute, for each of two streams; the second is gone after its third.
class RetentionTest : public testing::Test {
  protected:
    void keep(KeepLimits limits) {
        Keeper keeper(*disk_, *ledger_, limits, {"a", "b"});
        keeper.reopen(kDay);
        for (int stream : {0, 1}) give(keeper, AccountNote{stream, {AccountEntry::Kind::kWatchBegins, kDay}});
        for (int minute = 0; minute < 10; ++minute) {
            for (int stream : {0, 1}) {
                if (stream == 1 && minute >= 3) continue;
                const Ms from = kDay + minute * 60'000;
                give(keeper, SegmentBegins{stream, from, 0});
                give(keeper, SegmentGrows{stream, 0, std::vector<uint8_t>(100), from});
                give(keeper, SegmentEnds{stream, from + 60'000, 0, 1});
            }
            for (Keeper::Job& job : keeper.take_jobs()) {
                Keeper::work(job, *disk_);
                keeper.done(std::move(job));
            }
            keeper.settle(kDay + (minute + 1) * 60'000);
            if (limits.quota > 0) {
                ASSERT_LE(disk_->recorded(), limits.quota);
            }
        }
    }
    void give(Keeper& keeper, Note note) { EXPECT_EQ(keeper.take(note), 0); }
    size_t left(const std::string& stream) { return ledger_->segments(stream).size(); }

    std::optional<SimDisk> disk_;
    std::optional<Ledger> ledger_;
};

TEST_F(RetentionTest, RemovesTheOldestRowsAndFilesTogetherAndTheLastOfAStreamLast) {
    struct Case {
        KeepLimits limits;
        size_t a, b;
    };
    for (const Case& c : {Case{{.free_share = 0}, 10, 3}, Case{{.quota = 500, .free_share = 0}, 4, 1},
                          Case{{.age = 210'000, .free_share = 0}, 4, 0}, Case{{.free_bytes = 999'600}, 3, 1},
                          Case{{.free_share = 0.9995}, 4, 1}}) {
        disk_.emplace(1'000'000, testing::TempDir() + "lenswire-retention");
        ledger_.emplace("");
        keep(c.limits);
        EXPECT_EQ(left("a"), c.a);
        EXPECT_EQ(left("b"), c.b);
        EXPECT_EQ(disk_->list().size(), c.a + c.b);
        Verdict verdict;
        verify_account(*ledger_, verdict, kDay + 600'000);
        EXPECT_EQ(verdict.footage, static_cast<Ms>(c.a + c.b) * 60'000);
    }
}

}  // namespace
}  // namespace lenswire::recorder
