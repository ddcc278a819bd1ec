#include "recorder/archive/archive.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iterator>
#include <system_error>

namespace lenswire::recorder {
namespace {

using std::chrono::milliseconds;

constexpr Ms kTick = 1000;
constexpr Ms kDigestsAtTheEnd = 400;  // an end must not take long
constexpr auto kRetry = milliseconds(250);
constexpr int kTriesAtTheEnd = 3;

// Capacity is what it costs.
size_t size_of(const Note& note) {
    const auto* grows = std::get_if<SegmentGrows>(&note);
    return grows != nullptr ? grows->bytes.capacity() : 0;
}

Ms present(Ledger& ledger, const ArchiveClock& clock) {
    return UtcAnchor(clock.monotonic(), clock.wall(), ledger.last_instant()).utc(clock.monotonic());
}

}  // namespace

Archive::Archive(const Options& options, SteeredClock& clock, Disk& disk)
    : clock_(clock),
      disk_(disk),
      ledger_(options.ledger),
      keeper_(disk, ledger_, options.limits, options.streams),
      buffer_(options.buffer) {
    keeper_.reopen(present(ledger_, clock));
    anchor_.emplace(clock.monotonic(), clock.wall(), ledger_.last_instant());
    const Ms ahead = anchor_->utc(clock.monotonic()) - clock.wall();
    if (ahead > 1000) {
        ledger_.event(
            {.at = anchor_->utc(clock.monotonic()),
             .stream = "",
             .kind = "clock",
             .text = "the clock was set back: this run is dated " + length_text(ahead) + " ahead of it"});
    }
    try {
        keeper_thread_ = std::thread([this] { keep(); });
        syncer_thread_ = std::thread([this] { sync(); });
        digester_thread_ = std::thread([this] { digest(); });
    } catch (const std::system_error&) {
        end_threads();
        throw;
    }
}

Archive::~Archive() {
    close();
}

void Archive::take(std::vector<Note> notes) {
    const size_t left_out = choked_ ? leave_out_events(notes) : 0;
    size_t bytes = 0;
    for (const Note& note : notes) bytes += size_of(note);
    buffered_ += bytes;
    {
        const std::lock_guard lock(mutex_);
        std::ranges::move(notes, std::back_inserter(waiting_));
        unnoted_ += left_out;
    }
    wake_keeper_.notify_one();
}

// While nothing finds room, events would pile up behind what waits for the disk. Of gaps there is one for
// each stream by then.
size_t Archive::leave_out_events(std::vector<Note>& notes) {
    return std::erase_if(notes, [](const Note& note) { return std::holds_alternative<EventNote>(note); });
}

std::optional<NoteTaker::Trouble> Archive::trouble() const {
    const size_t buffered = buffered_;
    if (buffered <= buffer_ / 2) choked_ = false;
    const bool anew = buffered >= buffer_ && !choked_.exchange(true);
    if (!choked_) return std::nullopt;
    const std::lock_guard lock(mutex_);
    if (anew) refusal_ = 0;
    if (error_ != 0) refusal_ = error_;
    if (refusal_ == 0) return Trouble{Cause::kDiskSlow, "more than the buffer holds is waiting"};
    if (refusal_ == EDQUOT) return Trouble{Cause::kDiskFull, "the quota holds nothing that may be removed"};
    return Trouble{refusal_ == ENOSPC ? Cause::kDiskFull : Cause::kDiskSlow, std::strerror(refusal_)};
}

void Archive::keep() {
    std::unique_lock lock(mutex_);
    while (!closing_) {
        const auto ready = [this] { return closing_ || !waiting_.empty() || !done_.empty(); };
        const auto patience = failing_ ? kRetry : milliseconds(std::clamp<Ms>(next_tick_ - now(), 0, kTick));
        // While the disk refuses, what comes meanwhile can wait.
        if (failing_)
            wake_keeper_.wait_for(lock, patience, [this] { return closing_; });
        else
            wake_keeper_.wait_for(lock, patience, ready);
        lock.unlock();
        work_off();
        lock.lock();
    }
}

void Archive::work_off() {
    std::vector<Keeper::Job> done;
    {
        const std::lock_guard lock(mutex_);
        std::ranges::move(waiting_, std::back_inserter(refused_));
        waiting_.clear();
        done.swap(done_);
    }
    for (Keeper::Job& job : done) keeper_.done(std::move(job));
    failing_ = !write_some();
    if (now() >= next_tick_) tick();
    keeper_.settle(anchor_->utc(now()));
    std::vector<std::string> news = keeper_.take_news();
    const std::lock_guard lock(mutex_);
    std::ranges::move(news, std::back_inserter(news_));
}

// False when the disk refused something.
bool Archive::write_some() {
    while (!refused_.empty()) {
        const size_t bytes = size_of(refused_.front());
        const int error = keeper_.take(refused_.front());
        note_trouble(error);
        if (error != 0) return false;
        refused_.pop_front();
        buffered_ -= bytes;
        if (now() >= next_tick_) tick();
    }
    return true;
}

void Archive::note_trouble(int error) {
    const std::lock_guard lock(mutex_);
    if (error != 0 && error_ != error)
        news_.push_back(std::string("the disk refuses to write: ") + std::strerror(error));
    if (error == 0 && error_ != 0) news_.emplace_back("the disk takes recordings again");
    error_ = error;
}

void Archive::tick() {
    next_tick_ = now() + kTick;
    keeper_.alive(anchor_->utc(now()));
    if (!failing_) ledger_.keep_reserve();
    if (const auto step = clock_.look()) {
        Note note = EventNote{
            std::nullopt, anchor_->utc(now()), "clock",
            "the wall clock was set by " + std::to_string(*step) + " ms; this run goes on as it began"};
        keeper_.take(note);
    }
    std::vector<Keeper::Job> digests = keeper_.take_digests();
    uint64_t unnoted = 0;
    bool ready = false;
    {
        const std::lock_guard lock(mutex_);
        std::ranges::move(digests, std::back_inserter(to_digest_));
        if (!choked_) unnoted = std::exchange(unnoted_, 0);
        ready = !closing_ && !syncing_ && to_sync_.empty();  // when it closes, close() does what is left
    }
    wake_digester_.notify_one();
    if (unnoted > 0) {
        Note note = EventNote{std::nullopt, anchor_->utc(now()), "trouble",
                              std::to_string(unnoted) + " events found no room while the disk took nothing"};
        keeper_.take(note);
    }
    if (!ready) return;
    std::vector<Keeper::Job> jobs = keeper_.take_jobs();
    {
        const std::lock_guard lock(mutex_);
        to_sync_ = std::move(jobs);
    }
    wake_syncer_.notify_one();
}

void Archive::sync() {
    std::unique_lock lock(mutex_);
    while (true) {
        wake_syncer_.wait(lock, [this] { return helpers_end_ || !to_sync_.empty(); });
        if (to_sync_.empty()) return;
        std::vector<Keeper::Job> jobs = std::exchange(to_sync_, {});
        syncing_ = true;
        lock.unlock();
        for (Keeper::Job& job : jobs) Keeper::work(job, disk_);
        lock.lock();
        syncing_ = false;
        std::ranges::move(jobs, std::back_inserter(done_));
    }
}

// What is not done at the end is left to the next start.
void Archive::digest() {
    std::unique_lock lock(mutex_);
    while (true) {
        wake_digester_.wait(lock, [this] { return helpers_end_ || !to_digest_.empty(); });
        if (helpers_end_) return;
        Keeper::Job job = std::move(to_digest_.front());
        to_digest_.pop_front();
        lock.unlock();
        Keeper::work(job, disk_, &closing_digests_);
        lock.lock();
        done_.push_back(std::move(job));
    }
}

void Archive::end_threads() {
    {
        const std::lock_guard lock(mutex_);
        closing_ = true;
        helpers_end_ = true;
    }
    closing_digests_ = true;
    wake_keeper_.notify_one();
    if (keeper_thread_.joinable()) keeper_thread_.join();
    wake_syncer_.notify_one();
    if (syncer_thread_.joinable()) syncer_thread_.join();
    wake_digester_.notify_one();
    if (digester_thread_.joinable()) digester_thread_.join();
}

void Archive::close() {
    if (!keeper_thread_.joinable()) return;
    end_threads();
    // From here on in this thread. What the keeper handed over last may have found the others gone.
    for (Keeper::Job& job : to_sync_) {
        Keeper::work(job, disk_);
        done_.push_back(std::move(job));
    }
    for (int i = 0; i < kTriesAtTheEnd && (i == 0 || !refused_.empty()); ++i) work_off();
    sync_rest();
    bool told = true;
    if (!refused_.empty()) {
        int error = 0;
        {
            const std::lock_guard lock(mutex_);
            error = error_;
        }
        told = keeper_.abandon(anchor_->utc(now()), Cause::kDiskFull, std::strerror(error));
        sync_rest();
    }
    const Ms haste = now() + kDigestsAtTheEnd;
    std::ranges::move(keeper_.take_digests(), std::back_inserter(to_digest_));
    for (Keeper::Job& job : to_digest_) {
        if (now() > haste) break;
        Keeper::work(job, disk_);
        keeper_.done(std::move(job));
    }
    for (int i = 0; i < kTriesAtTheEnd && !complete_; ++i)
        complete_ = keeper_.settle(anchor_->utc(now())) && told;
    std::ranges::move(keeper_.take_news(), std::back_inserter(news_));
}

void Archive::sync_rest() {
    for (Keeper::Job& job : keeper_.take_jobs()) {
        Keeper::work(job, disk_);
        keeper_.done(std::move(job));
    }
    keeper_.settle(anchor_->utc(now()));
}

std::vector<std::string> Archive::news() {
    const std::lock_guard lock(mutex_);
    return std::exchange(news_, {});
}

}  // namespace lenswire::recorder
