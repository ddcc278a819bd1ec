#include "recorder/archive/ledger.h"

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "recorder/archive/ledger_schema.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

#define STREAM "(SELECT id FROM stream WHERE name = ?1)"

// What the write-ahead log and the tables may grow by while a full disk is being noted.
constexpr off_t kReserve = 2 * 1024 * 1024;

int64_t signed_of(uint64_t value) {
    return static_cast<int64_t>(value);
}

std::optional<Ms> time_or_none(const Query& query, int column) {
    return query.null(column) ? std::nullopt : std::optional<Ms>(query.integer(column));
}

constexpr const char* kSegmentColumns =
    "SELECT s.name, g.path, g.from_ms, g.to_ms, g.camera_from_ms, g.camera_to_ms, g.frames, g.bytes, "
    "g.sha256, "
    "g.state FROM segment g JOIN stream s ON s.id = g.stream ";

SegmentRow segment_of(const Query& query) {
    return {.stream = query.text(0),
            .path = query.text(1),
            .from = query.integer(2),
            .to = time_or_none(query, 3),
            .camera_from = query.integer(4),
            .camera_to = query.integer(5),
            .frames = static_cast<uint64_t>(query.integer(6)),
            .bytes = static_cast<uint64_t>(query.integer(7)),
            .sha256 = query.text(8),
            .state = query.text(9)};
}

int64_t version_of(Database& database) {
    Query query = database.query("PRAGMA user_version");
    return query.row() ? query.integer(0) : 0;
}

}  // namespace

bool Ledger::is_there(const std::string& file) {
    std::error_code error;
    if (!std::filesystem::exists(file, error)) return false;
    Database database(file);
    return version_of(database) > 0;
}

Ledger::Ledger(const std::string& file)
    : reserve_file_(file.empty() ? "" : file + "-reserve"), database_(file) {
    // A commit is on the disk when it returns: files are removed on the strength of it.
    database_.execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL");
    migrate();
}

void Ledger::migrate() {
    int64_t version = version_of(database_);
    if (version > kVersion) throw bad_input("the ledger was written by a later version of this program");
    static_assert(std::size(kSchemaSteps) == kVersion);
    for (; version < kVersion; ++version) {
        const std::string step = std::string("BEGIN IMMEDIATE;") + kSchemaSteps[version] +
                                 "PRAGMA user_version = " + std::to_string(version + 1) + "; COMMIT";
        database_.execute(step.c_str());
    }
}

void Ledger::note(const char* sql, decltype(Entry::values) values) {
    waiting_.push_back({sql, std::move(values)});
}

void Ledger::segment_begins(const SegmentRow& row) {
    note("INSERT OR IGNORE INTO stream(name) VALUES(?1)", {row.stream});
    note("INSERT INTO segment(stream, path, from_ms, camera_from_ms, state) VALUES(" STREAM
         ", ?2, ?3, ?4, 'open')",
         {row.stream, row.path, row.from, row.camera_from});
}

void Ledger::segment_ends(const SegmentRow& row) {
    note(
        "UPDATE segment SET to_ms = ?2, camera_to_ms = ?3, frames = ?4, bytes = ?5, sha256 = ?6, state = ?7 "
        "WHERE path = ?1",
        {row.path, *row.to, row.camera_to, signed_of(row.frames), signed_of(row.bytes), row.sha256,
         row.state});
}

// What is accounted for before the end of the segment goes with it: the rest adds up by itself.
void Ledger::forget_segment(const SegmentRow& row) {
    note("DELETE FROM segment WHERE path = ?1", {row.path});
    // What ends by then began by then, too: the index knows where that is.
    note("DELETE FROM gap WHERE stream = " STREAM " AND from_ms <= ?2 AND to_ms <= ?2",
         {row.stream, *row.to});
    note("DELETE FROM watch WHERE stream = " STREAM " AND from_ms <= ?2 AND to_ms <= ?2",
         {row.stream, *row.to});
    note("UPDATE watch SET from_ms = ?2 WHERE stream = " STREAM " AND from_ms < ?2", {row.stream, *row.to});
}

void Ledger::forget_events() {
    note("DELETE FROM event WHERE at_ms < (SELECT min(from_ms) FROM watch)", {});
}

void Ledger::account(const std::string& stream, const AccountEntry& entry) {
    using Kind = AccountEntry::Kind;
    switch (entry.kind) {
        case Kind::kWatchBegins:
            note("INSERT OR IGNORE INTO stream(name) VALUES(?1)", {stream});
            return note("INSERT INTO watch VALUES(" STREAM ", ?2, NULL)", {stream, entry.at});
        case Kind::kWatchEnds:
            return note("UPDATE watch SET to_ms = ?2 WHERE stream = " STREAM " AND to_ms IS NULL",
                        {stream, entry.at});
        case Kind::kGapBegins: {
            const CauseWords words = words_of(entry.cause);
            return note("INSERT INTO gap VALUES(" STREAM ", ?2, NULL, ?3, ?4, ?5)",
                        {stream, entry.at, words.side, words.words, entry.detail});
        }
        case Kind::kGapEnds:
            note("DELETE FROM gap WHERE stream = " STREAM " AND to_ms IS NULL AND from_ms >= ?2",
                 {stream, entry.at});
            return note("UPDATE gap SET to_ms = ?2 WHERE stream = " STREAM " AND to_ms IS NULL",
                        {stream, entry.at});
        case Kind::kGapWasRestart: {
            const CauseWords words = words_of(Cause::kRestarted);
            return note("UPDATE gap SET side = ?2, cause = ?3 WHERE stream = " STREAM " AND to_ms IS NULL",
                        {stream, words.side, words.words});
        }
    }
}

void Ledger::event(const EventRow& row) {
    if (row.stream.empty())
        return note("INSERT INTO event VALUES(?1, NULL, ?2, ?3)", {row.at, row.kind, row.text});
    note("INSERT OR IGNORE INTO stream(name) VALUES(?1)", {row.stream});
    note("INSERT INTO event VALUES(?2, " STREAM ", ?3, ?4)", {row.stream, row.at, row.kind, row.text});
}

void Ledger::alive(Ms at) {
    alive_ = at;
}

void Ledger::cut_gaps(const std::string& stream, Ms from, Ms to) {
    note("INSERT INTO gap SELECT stream, ?3, to_ms, side, cause, detail FROM gap WHERE stream = " STREAM
         " AND from_ms < ?2 AND ifnull(to_ms, ?3 + 1) > ?3",
         {stream, from, to});
    note("DELETE FROM gap WHERE stream = " STREAM " AND from_ms >= ?2 AND to_ms <= ?3", {stream, from, to});
    note("UPDATE gap SET to_ms = ?2 WHERE stream = " STREAM
         " AND from_ms < ?2 AND ifnull(to_ms, ?2 + 1) > ?2",
         {stream, from});
    note("UPDATE gap SET from_ms = ?3 WHERE stream = " STREAM
         " AND from_ms >= ?2 AND from_ms < ?3 AND ifnull(to_ms, ?3 + 1) > ?3",
         {stream, from, to});
}

void Ledger::take_in(const SegmentRow& row) {
    segment_begins(row);
    segment_ends(row);
    cut_gaps(row.stream, row.from, *row.to);
    note("INSERT INTO watch SELECT " STREAM
         ", ?2, ?3 WHERE NOT EXISTS(SELECT 1 FROM watch WHERE stream = " STREAM
         " AND from_ms <= ?2 AND ifnull(to_ms, ?3) > ?2)",
         {row.stream, row.from, *row.to});
    // One that reaches beyond the watch that it began in.
    note("UPDATE watch SET to_ms = ?3 WHERE stream = " STREAM
         " AND from_ms <= ?2 AND to_ms > ?2 AND to_ms < ?3",
         {row.stream, row.from, *row.to});
}

void Ledger::gap(const std::string& stream, Ms from, Ms to, Cause cause, const std::string& detail) {
    const CauseWords words = words_of(cause);
    note("INSERT INTO gap VALUES(" STREAM ", ?2, ?3, ?4, ?5, ?6)",
         {stream, from, to, words.side, words.words, detail});
}

void Ledger::lose(const SegmentRow& row) {
    note("DELETE FROM segment WHERE path = ?1", {row.path});
    if (row.to && *row.to > row.from) gap(row.stream, row.from, *row.to, Cause::kFileLost, row.path);
}

bool Ledger::write() {
    if (write_once()) return true;
    if (database_.was_busy()) return false;  // it has waited already
    give_up_reserve();
    return write_once();
}

void Ledger::keep_reserve() {
    if (reserved_ || reserve_file_.empty()) return;
    const int descriptor = open(reserve_file_.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
    if (descriptor < 0) return;
    reserved_ = posix_fallocate(descriptor, 0, kReserve) == 0;
    close(descriptor);
    if (!reserved_) unlink(reserve_file_.c_str());
}

void Ledger::give_up_reserve() {
    if (std::exchange(reserved_, false)) unlink(reserve_file_.c_str());
}

bool Ledger::write_once() {
    if (waiting_.empty() && !alive_) return true;
    const bool written = database_.transact([this] {
        for (const Entry& entry : waiting_) {
            Query query = database_.query(entry.sql);
            for (const auto& value : entry.values) {
                if (const auto* number = std::get_if<int64_t>(&value)) query.bind(*number);
                if (const auto* text = std::get_if<std::string>(&value)) query.bind(*text);
            }
            if (!query.run()) return false;
        }
        if (!alive_) return true;
        return database_.query("INSERT OR REPLACE INTO alive VALUES(1, ?1)").bind(*alive_).run();
    });
    if (!written) return false;
    waiting_.clear();
    alive_.reset();
    return true;
}

namespace {

// The rows of a table that touch a time, for one stream or all. An open end reaches on. Each has a statement
// of its own, so that those of one stream are found by its index.
struct Touching {
    explicit Touching(const std::string& columns)
        : of_all(columns + "WHERE " + kTouches + ", s.name"),
          of_one(columns + "WHERE g.stream = " STREAM " AND " + kTouches) {}

    const char* sql(const std::string& stream) const { return (stream.empty() ? of_all : of_one).c_str(); }

    static constexpr const char* kTouches =
        "g.from_ms < ?3 AND ifnull(g.to_ms, ?2 + 1) > ?2 ORDER BY g.from_ms";
    const std::string of_all, of_one;
};

}  // namespace

std::vector<SegmentRow> Ledger::segments(const std::string& stream, Ms from, Ms to) {
    static const Touching touching(kSegmentColumns);
    Query query = database_.query(touching.sql(stream));
    query.bind(stream).bind(from).bind(to);
    std::vector<SegmentRow> rows;
    while (query.row()) rows.push_back(segment_of(query));
    return rows;
}

std::vector<GapRow> Ledger::gaps(const std::string& stream, Ms from, Ms to) {
    static const Touching touching(
        "SELECT s.name, g.from_ms, g.to_ms, g.side, g.cause, g.detail FROM gap g JOIN stream s ON s.id = "
        "g.stream ");
    Query query = database_.query(touching.sql(stream));
    query.bind(stream).bind(from).bind(to);
    std::vector<GapRow> rows;
    while (query.row()) {
        rows.push_back({query.text(0), query.integer(1), time_or_none(query, 2), query.text(3), query.text(4),
                        query.text(5)});
    }
    return rows;
}

std::vector<WatchRow> Ledger::watches(const std::string& stream, Ms from, Ms to) {
    static const Touching touching(
        "SELECT s.name, g.from_ms, g.to_ms FROM watch g JOIN stream s ON s.id = g.stream ");
    Query query = database_.query(touching.sql(stream));
    query.bind(stream).bind(from).bind(to);
    std::vector<WatchRow> rows;
    while (query.row()) rows.push_back({query.text(0), query.integer(1), time_or_none(query, 2)});
    return rows;
}

std::vector<EventRow> Ledger::events(Ms from, Ms to) {
    Query query = database_.query(
        "SELECT e.at_ms, s.name, e.kind, e.text FROM event e LEFT JOIN stream s ON s.id = e.stream "
        "WHERE e.at_ms >= ?1 AND e.at_ms < ?2 ORDER BY e.at_ms");
    query.bind(from).bind(to);
    std::vector<EventRow> rows;
    while (query.row()) rows.push_back({query.integer(0), query.text(1), query.text(2), query.text(3)});
    return rows;
}

std::vector<std::string> Ledger::streams() {
    Query query = database_.query("SELECT name FROM stream ORDER BY name");
    std::vector<std::string> names;
    while (query.row()) names.push_back(query.text(0));
    return names;
}

std::vector<SegmentRow> Ledger::open_segments() {
    static const std::string sql = std::string(kSegmentColumns) + "WHERE g.state = 'open' ORDER BY g.from_ms";
    Query query = database_.query(sql.c_str());
    std::vector<SegmentRow> rows;
    while (query.row()) rows.push_back(segment_of(query));
    return rows;
}

std::vector<SegmentRow> Ledger::without_digest() {
    static const std::string sql = std::string(kSegmentColumns) + "WHERE g.sha256 = ''";
    Query query = database_.query(sql.c_str());
    std::vector<SegmentRow> rows;
    while (query.row()) rows.push_back(segment_of(query));
    return rows;
}

std::vector<SegmentRow> Ledger::oldest(int count, bool latest_too) {
    static const std::string sql =
        std::string(kSegmentColumns) +
        "WHERE g.state != 'open' AND (?2 OR EXISTS(SELECT 1 FROM segment n WHERE n.stream = g.stream AND "
        "n.from_ms > g.from_ms)) ORDER BY g.from_ms LIMIT ?1";
    Query query = database_.query(sql.c_str());
    query.bind(int64_t{count}).bind(int64_t{latest_too});
    std::vector<SegmentRow> rows;
    while (query.row()) rows.push_back(segment_of(query));
    return rows;
}

bool Ledger::names(const std::string& path) {
    Query query = database_.query("SELECT 1 FROM segment WHERE path = ?1");
    return query.bind(path).row();
}

uint64_t Ledger::bytes() {
    Query query = database_.query("SELECT ifnull(sum(bytes), 0) FROM segment");
    return query.row() ? static_cast<uint64_t>(query.integer(0)) : 0;
}

Ms Ledger::last_alive() {
    Query query = database_.query("SELECT at_ms FROM alive");
    return query.row() ? query.integer(0) : 0;
}

Ms Ledger::last_instant() {
    Query query = database_.query(
        "SELECT max(ifnull((SELECT max(ifnull(to_ms, from_ms)) FROM (SELECT from_ms, to_ms FROM segment "
        "ORDER BY from_ms DESC LIMIT 1000)), 0), "
        "ifnull((SELECT max(max(from_ms, ifnull(to_ms, 0))) FROM gap), 0), "
        "ifnull((SELECT max(max(from_ms, ifnull(to_ms, 0))) FROM watch), 0), "
        "ifnull((SELECT at_ms FROM alive), 0))");
    return query.row() ? query.integer(0) : 0;
}

std::optional<Ms> Ledger::open_end(const std::string& stream) {
    Query query = database_.query(
        "SELECT max(w.from_ms, ifnull((SELECT ifnull(to_ms, from_ms) FROM segment WHERE stream = w.stream "
        "ORDER BY from_ms DESC LIMIT 1), 0), ifnull((SELECT ifnull(to_ms, from_ms) FROM gap WHERE stream = "
        "w.stream "
        "ORDER BY from_ms DESC LIMIT 1), 0)) "
        "FROM watch w WHERE w.stream = " STREAM " AND w.to_ms IS NULL");
    return query.bind(stream).row() ? std::optional(query.integer(0)) : std::nullopt;
}

std::optional<Ms> Ledger::next_after(const std::string& stream, Ms at) {
    Query query = database_.query(
        "SELECT min(from_ms) FROM (SELECT min(from_ms) AS from_ms FROM segment WHERE stream = " STREAM
        " AND from_ms > ?2 UNION ALL SELECT min(from_ms) FROM gap WHERE stream = " STREAM
        " AND from_ms > ?2)");
    query.bind(stream).bind(at);
    return query.row() ? time_or_none(query, 0) : std::nullopt;
}

std::string Ledger::check() {
    Query query = database_.query("PRAGMA integrity_check");
    return query.row() ? query.text(0) : "no answer";
}

}  // namespace lenswire::recorder
