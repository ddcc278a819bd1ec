// The archive at work: the keeper, syncs and digests each on a thread of their own, and between them and the
// recordings a bounded buffer, so that a disk that stalls holds nobody up.
#pragma once

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "recorder/archive/keeper.h"

namespace lenswire::recorder {

class Archive final : public NoteTaker {
  public:
    struct Options {
        std::string ledger;  // SQLite's file
        std::vector<std::string> streams;
        KeepLimits limits;
        size_t buffer = 128 * 1024 * 1024;
    };

    // Takes in what an earlier run left. `clock` and `disk` must outlive it. Throws a Failure.
    Archive(const Options& options, SteeredClock& clock, Disk& disk);
    ~Archive();
    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;

    const UtcAnchor& anchor() const { return *anchor_; }
    Ms now() const { return clock_.monotonic(); }
    bool resumes(int stream) const { return keeper_.resumes(stream); }

    void take(std::vector<Note> notes) override;
    std::optional<Trouble> trouble() const override;

    // Writes what was taken and ends the threads. What the disk refuses now is noted as a gap.
    void close();
    // Whether everything is in the ledger by then. What is not, the next start takes in.
    bool complete() const { return complete_; }

    // What happened since the last call, a line each.
    std::vector<std::string> news();

  private:
    void keep();
    void work_off();
    bool write_some();
    void tick();
    void sync();
    void digest();
    size_t leave_out_events(std::vector<Note>& notes);
    void note_trouble(int error);
    void end_threads();
    void sync_rest();

    SteeredClock& clock_;
    Disk& disk_;
    Ledger ledger_;
    Keeper keeper_;
    std::optional<UtcAnchor> anchor_;
    const size_t buffer_;

    std::atomic<size_t> buffered_{0};
    mutable std::atomic<bool> choked_{false};
    std::atomic<bool> closing_digests_{false};
    std::deque<Note> refused_;  // the keeper thread's: to be given again
    Ms next_tick_ = 0;
    bool failing_ = false;
    bool complete_ = false;

    mutable std::mutex mutex_;  // everything below
    std::condition_variable wake_keeper_, wake_syncer_, wake_digester_;
    std::deque<Note> waiting_;
    std::vector<Keeper::Job> to_sync_, done_;
    std::deque<Keeper::Job> to_digest_;
    uint64_t unnoted_ = 0;  // events that found no room
    bool syncing_ = false;
    bool closing_ = false, helpers_end_ = false;
    int error_ = 0;            // of the disk, lately
    mutable int refusal_ = 0;  // the latest since the buffer was full: the reason until there is room in it
    std::vector<std::string> news_;

    std::thread keeper_thread_, syncer_thread_, digester_thread_;
};

}  // namespace lenswire::recorder
