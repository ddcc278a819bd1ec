// The ledger: which segments there are, which gaps and why, and what happened. In SQLite, in the file that
// the recorder's other tables may share.
//
// What a recorder wants noted is collected and written in transactions; one that fails is tried again with
// the next, so nothing is lost while the disk is full. The order against the files is the caller's: a row
// about a file is written after the file is on the disk, and taken out before the file is removed.
//
// Not for use by several threads.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "recorder/archive/account.h"
#include "recorder/support/database.h"

namespace lenswire::recorder {

struct SegmentRow {
    std::string stream;
    std::string path;
    Ms from = 0;
    std::optional<Ms> to = {};  // none while it is open
    int64_t camera_from = 0;
    int64_t camera_to = 0;
    uint64_t frames = 0;
    uint64_t bytes = 0;
    std::string sha256 = {};
    std::string state = {};  // open, finished, recovered
};

struct GapRow {
    std::string stream;
    Ms from = 0;
    std::optional<Ms> to;
    std::string side, cause, detail;
};

struct WatchRow {
    std::string stream;
    Ms from = 0;
    std::optional<Ms> to;
};

struct EventRow {
    Ms at = 0;
    std::string stream;  // may be empty
    std::string kind, text;
};

class Ledger {
  public:
    static constexpr int kVersion = 1;

    // The file of a folder of recordings; `named` when that is not empty.
    static std::string file_of(const std::string& folder, const std::string& named) {
        return named.empty() ? folder + "/lenswire.db" : named;
    }
    // Whether the file has been a ledger before. Throws a Failure when it cannot be read as a database.
    static bool is_there(const std::string& file);

    // Opens the file and brings it to the present version. Throws a bad-input Failure when it cannot be used,
    // or is of a later version.
    explicit Ledger(const std::string& file);
    ~Ledger() { give_up_reserve(); }
    Ledger(const Ledger&) = delete;
    Ledger& operator=(const Ledger&) = delete;

    // -- Collected until the next write().
    void segment_begins(const SegmentRow& row);
    void segment_ends(const SegmentRow& row);  // by its path: everything but stream, from and camera_from
    void forget_segment(
        const SegmentRow& row);  // the oldest of its stream; what is accounted for before goes, too
    void forget_events();        // of before the first watch
    void account(const std::string& stream, const AccountEntry& entry);
    void event(const EventRow& row);
    void alive(Ms at);
    // A file that no row names: in the place of gaps, and watched.
    void take_in(const SegmentRow& row);
    // Footage takes the place of the gaps there.
    void cut_gaps(const std::string& stream, Ms from, Ms to);
    void gap(const std::string& stream, Ms from, Ms to, Cause cause, const std::string& detail);
    // A segment whose file is gone: a gap in its place.
    void lose(const SegmentRow& row);
    // Writes what was collected, all or nothing; false and kept for the next time when that failed.
    bool write();
    // From now on keeps a little room on the disk for itself, so that a full one can be noted, and what has
    // to go can be taken out. Does nothing while it has it.
    void keep_reserve();
    const std::string& error() const { return database_.error(); }

    // -- What is written. From and to: what touches this time; an empty stream stands for all.
    std::vector<SegmentRow> segments(const std::string& stream = "", Ms from = INT64_MIN, Ms to = INT64_MAX);
    std::vector<GapRow> gaps(const std::string& stream = "", Ms from = INT64_MIN, Ms to = INT64_MAX);
    std::vector<WatchRow> watches(const std::string& stream = "", Ms from = INT64_MIN, Ms to = INT64_MAX);
    std::vector<EventRow> events(Ms from = INT64_MIN, Ms to = INT64_MAX);
    std::vector<std::string> streams();
    std::vector<SegmentRow> open_segments();
    std::vector<SegmentRow> without_digest();
    // Candidates for removal, oldest first; never the latest of a stream unless `latest_too`.
    std::vector<SegmentRow> oldest(int count, bool latest_too);
    bool names(const std::string& path);
    uint64_t bytes();   // of all segments that are not open
    Ms last_alive();    // 0 when never
    Ms last_instant();  // that anything is accounted for; 0 in an empty ledger
    // Where the next segment or gap after that instant begins.
    std::optional<Ms> next_after(const std::string& stream, Ms at);
    // Where what is accounted for of a stream with an open watch ends; none without.
    std::optional<Ms> open_end(const std::string& stream);
    std::string check();  // SQLite's own integrity check: "ok"

  private:
    struct Entry {
        const char* sql;
        std::vector<std::variant<int64_t, std::string>> values;
    };
    void migrate();
    bool write_once();
    void give_up_reserve();
    void note(const char* sql, decltype(Entry::values) values);

    const std::string reserve_file_;
    bool reserved_ = false;
    Database database_;
    std::vector<Entry> waiting_;
    std::optional<Ms> alive_;  // to be written with them: the latest says it all
};

}  // namespace lenswire::recorder
