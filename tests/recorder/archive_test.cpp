// The small parts of the archive: names, times, the ledger's versions, what is removed first.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "recorder/archive/keeper.h"
#include "recorder/archive/ledger_schema.h"
#include "recorder/archive/names.h"
#include "recorder/archive/verify.h"
#include "recorder/support/failure.h"
#include "sim_disk.h"
#include "support/folder.h"

namespace lenswire::recorder {
namespace {

constexpr Ms kDay = 1'795'442'700'120;

TEST(Archive, NamesStreams) {
    for (const auto& [identity, name] : {std::pair{StreamIdentity{"front", "192.0.2.7", 7001, 0, 0}, "front"},
                                         {{"front", "192.0.2.7", 7788, 0, 1}, "front-sub"},
                                         {{"", "192.0.2.7", 7788, 0, 0}, "192.0.2.7"},
                                         {{"", "192.0.2.7", 7001, 2, 2}, "192.0.2.7-7001-ch2-sub2"},
                                         {{"../a b", "x", 1, 0, 0}, "_._a_b"}})
        EXPECT_EQ(stream_name(identity), name);
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

// From every older version, stopped after each statement of the way.
TEST(LedgerFile, ComesToThePresentVersionHoweverOftenItWasStopped) {
    std::vector<std::string> statements;
    for (const char* step : kSchemaSteps) {
        const std::string text = step;
        for (size_t at = 0, end = 0; (end = text.find(';', at)) != std::string::npos; at = end + 1)
            statements.push_back(text.substr(at, end + 1 - at));
    }
    ASSERT_GT(statements.size(), 10u);
    for (size_t stopped = 0; stopped <= statements.size(); ++stopped) {
        const test::Folder folder;
        const std::string file = folder.path("ledger");
        {
            Database database(file);
            database.execute("BEGIN");
            for (size_t i = 0; i < stopped; ++i) database.execute(statements[i].c_str());
        }  // gone before the commit
        Ledger ledger(file);
        ledger.segment_begins({.stream = "a", .path = "a/b", .from = 1, .state = "open"});
        EXPECT_TRUE(ledger.write()) << stopped;
        EXPECT_EQ(ledger.check(), "ok");
        Database(file).execute("PRAGMA user_version = 99");
        EXPECT_THROW(Ledger{file}, Failure) << "of a later version";
    }
}

// Segments of 100 bytes, one a minute, for each of two streams; the second is gone after its third.
void keep(Keeper& keeper, SimDisk& disk, uint64_t quota) {
    const auto give = [&](Note note) { EXPECT_EQ(keeper.take(note), 0); };
    keeper.reopen(kDay);
    for (int stream : {0, 1}) give(AccountNote{stream, {AccountEntry::Kind::kWatchBegins, kDay}});
    for (int minute = 0; minute < 10; ++minute) {
        const Ms from = kDay + minute * 60'000;
        for (int stream = 0; stream < (minute < 3 ? 2 : 1); ++stream) {
            give(SegmentBegins{stream, from, 0});
            give(SegmentGrows{stream, 0, std::vector<uint8_t>(100), from});
            give(SegmentEnds{stream, from + 60'000, 0, 1});
        }
        for (Keeper::Job& job : keeper.take_jobs()) {
            Keeper::work(job, disk);
            keeper.done(std::move(job));
        }
        keeper.settle(from + 60'000);
        ASSERT_LE(disk.recorded(), quota > 0 ? quota : 1300);
    }
}

TEST(Retention, RemovesTheOldestRowsAndFilesTogetherAndTheLastOfAStreamLast) {
    const std::tuple<KeepLimits, size_t, size_t> cases[] = {{{.free_share = 0}, 10, 3},
                                                            {{.quota = 500, .free_share = 0}, 4, 1},
                                                            {{.age = 210'000, .free_share = 0}, 4, 0},
                                                            {{.free_bytes = 999'600}, 3, 1},
                                                            {{.free_share = 0.9995}, 4, 1}};
    for (const auto& [limits, a, b] : cases) {
        SimDisk disk(1'000'000, testing::TempDir() + "lenswire-retention");
        Ledger ledger("");
        Keeper keeper(disk, ledger, limits, {"a", "b"});
        keep(keeper, disk, limits.quota);
        EXPECT_EQ(ledger.segments("a").size(), a);
        EXPECT_EQ(ledger.segments("b").size(), b);
        EXPECT_EQ(disk.list().size(), a + b);
        Verdict verdict;
        verify_account(ledger, verdict, kDay + 600'000);
        EXPECT_EQ(verdict.footage, static_cast<Ms>(a + b) * 60'000);
    }
}

}  // namespace
}  // namespace lenswire::recorder
