// Keeps what the recordings of all streams hand it: writes segments, keeps the ledger true to the disk, and
// removes what is too old or too much. Runs in one thread, or in a simulation without any; the disk, the time
// and the slow work (syncs, digests) are handed in.
//
// The order that makes the ledger never name what the disk does not hold: a file, its first bytes and its
// name are on the disk before its row; all its bytes before the row says it is finished; and the row is gone
// before the file is removed.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "recorder/archive/disk.h"
#include "recorder/archive/ledger.h"
#include "recorder/archive/note.h"

namespace lenswire::recorder {

struct KeepLimits {
    uint64_t quota = 0;        // bytes of all segments together; 0: none
    Ms age = 0;                // 0: none
    uint64_t free_bytes = 0;   // of the disk, to stay free
    double free_share = 0.05;  // the same as a part of the whole; the greater of the two counts
};

class Keeper {
  public:
    // What has to be done beside the keeper, since it takes its time: a sync, or the digest of a finished
    // file. Digests never hold up a sync: they are jobs of their own.
    struct Job {
        std::string path;
        std::shared_ptr<DiskFile> file;      // to be synced; null: a digest
        std::optional<SegmentRow> finished;  // what is known of a file that is whole
        int error = 0;
    };

    Keeper(Disk& disk, Ledger& ledger, KeepLimits limits, std::vector<std::string> streams);

    // Closes what an earlier run left open: takes in what it wrote, and from there on opens a gap "not
    // running" for each of the streams that goes on, and closes the watch of the others.
    void reopen(Ms now);
    bool resumes(int stream) const { return resumed_[static_cast<size_t>(stream)]; }

    // Does what a note says. 0, or an errno when the disk refused it: then it is to be given again.
    int take(Note& note);
    // Once a second, and after each batch of notes: writes the ledger, removes what has to go.
    // False when the ledger could not be written.
    bool settle(Ms now);
    void alive(Ms now);
    // Nothing more can be written: what the disk has of each open segment is all there is. False when the
    // ledger cannot be told either.
    bool abandon(Ms now, Cause cause, const std::string& detail);

    std::vector<Job> take_jobs();     // syncs
    std::vector<Job> take_digests();  // what is left of them is for the next start
    void done(Job job);
    // In any thread. `stop` ends a digest without a result.
    static void work(Job& job, Disk& disk, const std::atomic<bool>* stop = nullptr);

    uint64_t bytes() const { return bytes_; }
    std::vector<std::string> take_news() { return std::exchange(news_, {}); }

  private:
    struct Slot {
        std::string name;
        std::optional<SegmentRow> segment = {};  // open or about to be
        std::shared_ptr<DiskFile> file = {};
        bool dirty = false;
        Ms written_to = 0;
    };

    int take(SegmentBegins& note);
    int take(SegmentGrows& note);
    int take(SegmentEnds& note);
    int take(AccountNote& note);
    int take(EventNote& note);
    int create(Slot& slot);
    uint64_t to_free(uint64_t incoming);
    bool make_room(uint64_t incoming, bool at_once);
    std::vector<SegmentRow> oldest(int count, bool latest_too);
    bool remove(const std::vector<SegmentRow>& rows);
    void abandon(Slot& slot, Ms now, Cause cause, const std::string& detail);
    void recover(SegmentRow row);
    void take_in_unknown();
    void remove_old(Ms now);
    void fill_holes(const std::string& stream, Ms since);
    void say(Ms at, const std::string& kind, const std::string& text);

    Disk& disk_;
    Ledger& ledger_;
    KeepLimits limits_;
    std::vector<Slot> slots_;
    std::vector<bool> resumed_;
    std::map<std::string, Ms> recovered_;  // streams of which something was, and since when
    std::vector<Job> finished_;
    std::vector<Job> digests_;
    std::set<std::string> forgotten_;  // files removed whose rows are not, since the ledger cannot be written
    std::vector<std::string> news_;
    bool removed_ = false;  // since events were looked at
    uint64_t bytes_ = 0;    // of all files
    Ms alive_ = 0;
    bool ledger_refuses_ = false;
};

}  // namespace lenswire::recorder
