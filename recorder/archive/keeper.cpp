#include "recorder/archive/keeper.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

constexpr int kRemovedAtOnce = 32;
constexpr uint64_t kReserve = 8 * 1024 * 1024;  // a full disk gets so much room at a time

}  // namespace

Keeper::Keeper(Disk& disk, Ledger& ledger, KeepLimits limits, std::vector<std::string> streams)
    : disk_(disk), ledger_(ledger), limits_(limits), resumed_(streams.size()) {
    for (std::string& name : streams) slots_.push_back({.name = std::move(name)});
}

void Keeper::say(Ms at, const std::string& kind, const std::string& text) {
    ledger_.event({.at = at, .stream = "", .kind = kind, .text = text});
    news_.push_back(text);
}

// What an earlier run left.

// A segment that was cut off: as much of it as the disk has. One that cannot be read now stays as it is: the
// next start tries again, and what was noted in its time meanwhile makes room.
void Keeper::recover(SegmentRow row) {
    const FileContents contents = disk_.contents(row.path);
    const int64_t size = disk_.size(row.path);
    if (contents.failed || (contents.readable && size < 0))
        return say(row.from, "trouble", row.path + ": cannot be read now, the next start tries again");
    const bool known = ledger_.names(row.path);
    // What was written by one that was killed may be with the system only: a power cut now would take it.
    int error = contents.readable ? disk_.sync(row.path) : 0;
    if (error == 0 && contents.readable && !known) error = disk_.sync_name(row.path);
    if (error != 0)
        return say(row.from, "trouble", row.path + ", left to the next start: " + std::strerror(error));
    recovered_.try_emplace(row.stream, row.from);
    recovered_[row.stream] = std::min(recovered_[row.stream], row.from);
    if (!contents.readable) {
        ledger_.lose(row);
        if (ledger_.write()) disk_.remove(row.path);
        return;
    }
    row.to = row.from + contents.to_ms;
    // The file's last picture lasts as long as it looks; what is noted next begins when it does.
    if (const auto next = ledger_.next_after(row.stream, row.from)) row.to = std::min(*row.to, *next);
    row.frames = contents.pictures;
    row.bytes = static_cast<uint64_t>(size);
    row.sha256 = disk_.digest(row.path, nullptr);
    row.state = "recovered";
    if (!known) return ledger_.take_in(row);
    ledger_.segment_ends(row);
    ledger_.cut_gaps(row.stream, row.from, *row.to);
}

void Keeper::take_in_unknown() {
    for (const std::string& path : disk_.list()) {
        if (ledger_.names(path)) continue;
        const size_t slash = path.find('/');
        const auto from = segment_time(path.substr(slash + 1));
        if (!from) continue;
        recover({.stream = path.substr(0, slash), .path = path, .from = *from});
    }
}

// What a segment lost to a cut before the next thing that was noted: a later sync may have been quicker.
void Keeper::fill_holes(const std::string& stream, Ms since) {
    std::map<Ms, Ms> spans;
    const auto add = [&](const auto& row) {
        Ms& to = spans[row.from];
        to = std::max(to, row.to.value_or(INT64_MAX));
    };
    for (const SegmentRow& row : ledger_.segments(stream, since)) add(row);
    for (const GapRow& row : ledger_.gaps(stream, since)) add(row);
    for (const WatchRow& watch : ledger_.watches(stream, since)) {
        Ms at = std::max(watch.from, since);
        for (auto span = spans.lower_bound(watch.from); span != spans.end(); ++span) {
            if (watch.to && span->first >= *watch.to) break;
            if (span->first > at) ledger_.gap(stream, at, span->first, Cause::kNotRunning, "cut off");
            at = std::max(at, span->second);
        }
        if (watch.to && at < *watch.to) ledger_.gap(stream, at, *watch.to, Cause::kNotRunning, "cut off");
    }
}

void Keeper::reopen(Ms now) {
    for (const SegmentRow& row : ledger_.open_segments()) recover(row);
    ledger_.write();
    take_in_unknown();
    const Ms alive = ledger_.last_alive();
    for (const GapRow& gap : ledger_.gaps("", alive, INT64_MAX)) {
        if (!gap.to)
            ledger_.account(gap.stream,
                            {AccountEntry::Kind::kGapEnds, std::max(gap.from, std::min(alive, now))});
    }
    ledger_.write();
    for (const auto& [stream, since] : recovered_) fill_holes(stream, since);
    ledger_.write();
    for (const std::string& stream : ledger_.streams()) {
        const auto end = ledger_.open_end(stream);
        if (!end) continue;
        ledger_.account(stream, {AccountEntry::Kind::kGapBegins, *end, Cause::kNotRunning, "cut off"});
        const auto slot = std::ranges::find(slots_, stream, &Slot::name);
        if (slot != slots_.end()) {
            resumed_[static_cast<size_t>(slot - slots_.begin())] = true;
            continue;
        }
        ledger_.account(stream, {AccountEntry::Kind::kGapEnds, std::max(*end, now)});
        ledger_.account(stream, {AccountEntry::Kind::kWatchEnds, std::max(*end, now)});
    }
    this->alive(now);
    ledger_.write();
    bytes_ = ledger_.bytes();
    // A run that had to end at once left these to the next.
    for (const SegmentRow& row : ledger_.without_digest())
        digests_.push_back({.path = row.path, .file = nullptr, .finished = row});
}

// What the recordings hand over.

int Keeper::take(Note& note) {
    if (auto* begins = std::get_if<SegmentBegins>(&note)) return take(*begins);
    if (auto* grows = std::get_if<SegmentGrows>(&note)) return take(*grows);
    if (auto* ends = std::get_if<SegmentEnds>(&note)) return take(*ends);
    if (auto* account = std::get_if<AccountNote>(&note)) return take(*account);
    return take(std::get<EventNote>(note));
}

// The file is made when there is something to write, so that none stays empty.
int Keeper::take(SegmentBegins& note) {
    Slot& slot = slots_[static_cast<size_t>(note.stream)];
    slot.segment = SegmentRow{.stream = slot.name,
                              .path = slot.name + "/" + segment_name(note.from),
                              .from = note.from,
                              .camera_from = note.camera_from,
                              .state = "open"};
    slot.written_to = note.from;
    return 0;
}

int Keeper::create(Slot& slot) {
    const std::string wanted = slot.segment->path;
    int error = disk_.create(wanted, slot.file);
    for (int i = 2; error == EEXIST && i < 100; ++i) {
        slot.segment->path = wanted.substr(0, wanted.size() - 4) + "-" + std::to_string(i) + ".mkv";
        error = disk_.create(slot.segment->path, slot.file);
    }
    if (error != 0) slot.segment->path = wanted;
    return error;
}

int Keeper::take(SegmentGrows& note) {
    Slot& slot = slots_[static_cast<size_t>(note.stream)];
    if (!slot.segment) return 0;
    SegmentRow& segment = *slot.segment;
    const uint64_t end = static_cast<uint64_t>(note.offset) + note.bytes.size();
    const uint64_t growth = end > segment.bytes ? end - segment.bytes : 0;
    if (!make_room(growth, false)) return EDQUOT;
    const bool is_new = slot.file == nullptr;
    int error = is_new ? create(slot) : 0;
    if (error == 0) error = slot.file->write(note.offset, note.bytes);
    // Once more when that made room. What a torn write left is written over.
    if (error == ENOSPC && make_room(std::max(growth, kReserve), true)) {
        if (slot.file == nullptr) error = create(slot);
        if (slot.file != nullptr) error = slot.file->write(note.offset, note.bytes);
    }
    if (error == 0 && is_new) error = disk_.sync_name(segment.path);
    if (error != 0) {
        if (is_new && slot.file) disk_.remove(segment.path);
        if (is_new) slot.file.reset();
        return error;
    }
    if (is_new) ledger_.segment_begins(segment);
    slot.dirty = true;
    slot.written_to = note.to;
    segment.bytes += growth;
    bytes_ += growth;
    return 0;
}

int Keeper::take(SegmentEnds& note) {
    Slot& slot = slots_[static_cast<size_t>(note.stream)];
    if (slot.segment && slot.file) {
        slot.segment->to = note.to;
        slot.segment->camera_to = note.camera_to;
        slot.segment->frames = note.frames;
        slot.segment->state = "finished";
        finished_.push_back(
            {.path = slot.segment->path, .file = std::move(slot.file), .finished = std::move(slot.segment)});
    }
    slot.segment.reset();
    slot.file.reset();
    slot.dirty = false;
    return 0;
}

int Keeper::take(AccountNote& note) {
    using Kind = AccountEntry::Kind;
    const std::string& name = slots_[static_cast<size_t>(note.stream)].name;
    ledger_.account(name, note.entry);
    const CauseWords words = words_of(note.entry.cause);
    const std::string detail = note.entry.detail.empty() ? "" : ": " + note.entry.detail;
    if (note.entry.kind == Kind::kGapBegins)
        news_.push_back(name + ": nothing recorded (" + words.side + ", " + words.words + detail + ")");
    return 0;
}

int Keeper::take(EventNote& note) {
    const std::string name = note.stream ? slots_[static_cast<size_t>(*note.stream)].name : "";
    ledger_.event({.at = note.at, .stream = name, .kind = note.kind, .text = note.text});
    news_.push_back(name.empty() ? note.text : name + ": " + note.text);
    return 0;
}

bool Keeper::abandon(Ms now, Cause cause, const std::string& detail) {
    if (!ledger_.write()) return false;  // the next start takes in what there is
    try {
        for (Slot& slot : slots_) abandon(slot, now, cause, detail);
    } catch (const Failure&) {
        return false;
    }
    return true;
}

void Keeper::abandon(Slot& slot, Ms now, Cause cause, const std::string& detail) {
    const auto open_end = ledger_.open_end(slot.name);
    if (!open_end) return;
    const auto stream = static_cast<int>(&slot - slots_.data());
    const Ms end = slot.segment && slot.file ? slot.written_to : *open_end;
    if (slot.segment) {
        SegmentEnds ends{.stream = stream, .to = end, .camera_to = slot.segment->camera_from, .frames = 0};
        if (slot.file) ends.frames = disk_.contents(slot.segment->path).pictures;
        take(ends);
    }
    ledger_.account(slot.name, {AccountEntry::Kind::kGapEnds, end});
    ledger_.account(slot.name, {AccountEntry::Kind::kGapBegins, end, cause, detail});
    ledger_.account(slot.name, {AccountEntry::Kind::kGapEnds, std::max(end, now)});
    ledger_.account(slot.name, {AccountEntry::Kind::kWatchEnds, std::max(end, now)});
}

// Syncs and digests.

std::vector<Keeper::Job> Keeper::take_jobs() {
    std::vector<Job> jobs = std::exchange(finished_, {});
    for (Slot& slot : slots_) {
        if (std::exchange(slot.dirty, false))
            jobs.push_back({.path = slot.segment->path, .file = slot.file, .finished = std::nullopt});
    }
    return jobs;
}

std::vector<Keeper::Job> Keeper::take_digests() {
    return std::exchange(digests_, {});
}

void Keeper::work(Job& job, Disk& disk, const std::atomic<bool>* stop) {
    if (job.file) {
        job.error = job.file->sync();
    } else {
        job.finished->sha256 = disk.digest(job.path, stop);
    }
}

void Keeper::done(Job job) {
    if (job.error != 0) {
        const Ms at = job.finished ? *job.finished->to : alive_;
        say(at, "trouble", job.path + ": " + std::strerror(job.error));
    }
    if (!job.finished) return;
    ledger_.segment_ends(*job.finished);
    if (job.file)
        digests_.push_back({.path = job.path, .file = nullptr, .finished = std::move(job.finished)});
}

void Keeper::alive(Ms now) {
    ledger_.alive(alive_ = now);
    if (std::exchange(removed_, false)) ledger_.forget_events();  // it costs a look at every watch
}

// Retention.

bool Keeper::settle(Ms now) {
    const bool written = ledger_.write();
    if (written) forgotten_.clear();
    if (std::exchange(ledger_refuses_, !written) == written)
        news_.push_back(written ? "the ledger takes notes again"
                                : "the ledger takes no notes: " + ledger_.error());
    remove_old(now);
    return written;
}

void Keeper::remove_old(Ms now) {
    make_room(0, false);
    if (limits_.age == 0) return;
    std::vector<SegmentRow> old = oldest(kRemovedAtOnce, true);
    std::erase_if(old, [&](const SegmentRow& row) { return *row.to >= now - limits_.age; });
    remove(old);
}

// How much has to go before so much more can come.
uint64_t Keeper::to_free(uint64_t incoming) {
    uint64_t wanted = 0;
    if (limits_.quota > 0 && bytes_ + incoming > limits_.quota) wanted = bytes_ + incoming - limits_.quota;
    if (limits_.free_bytes == 0 && limits_.free_share <= 0) return wanted;
    const Disk::Space space = disk_.space();
    const auto share = static_cast<uint64_t>(static_cast<double>(space.total) * limits_.free_share);
    const uint64_t keep = std::max(limits_.free_bytes, share);
    return std::max(wanted, space.free < keep ? keep - space.free : 0);
}

// Removes the oldest segments until so much more may come. Only a quota forbids it to come when it stays too
// much; `at_once`: so much is removed in any case, since the disk said that it is full.
bool Keeper::make_room(uint64_t incoming, bool at_once) {
    uint64_t wanted = at_once ? incoming : 0;
    const auto over_quota = [&] { return limits_.quota > 0 && bytes_ + incoming > limits_.quota; };
    if (!at_once && incoming == 0) wanted = to_free(0);  // asking the disk costs
    if (over_quota()) wanted = std::max(wanted, bytes_ + incoming - limits_.quota);
    uint64_t freed = 0;
    for (int most = 2; freed < wanted; most = std::min(2 * most, kRemovedAtOnce)) {
        if (ledger_.write()) forgotten_.clear();
        std::vector<SegmentRow> rows = oldest(most, false);
        if (rows.empty()) rows = oldest(1, true);
        size_t count = 0;
        for (uint64_t sum = 0; count < rows.size() && freed + sum < wanted; ++count) sum += rows[count].bytes;
        rows.resize(count);
        const uint64_t before = bytes_;
        if (rows.empty() || !remove(rows)) break;
        freed += before - bytes_;
    }
    return at_once ? freed > 0 : !over_quota();
}

// What may go, without what has gone already. While the ledger cannot be read nothing may.
std::vector<SegmentRow> Keeper::oldest(int count, bool latest_too) {
    std::vector<SegmentRow> rows;
    try {
        rows = ledger_.oldest(count + static_cast<int>(forgotten_.size()), latest_too);
    } catch (const Failure&) {
        return {};
    }
    std::erase_if(rows, [this](const SegmentRow& row) { return forgotten_.contains(row.path); });
    return rows;
}

bool Keeper::remove(const std::vector<SegmentRow>& rows) {
    if (rows.empty()) return false;
    for (const SegmentRow& row : rows) ledger_.forget_segment(row);
    removed_ = true;
    const bool noted = ledger_.write();
    if (noted) forgotten_.clear();
    bool removed = false;
    for (const SegmentRow& row : rows) {
        // A disk so full that not even the ledger can be written: the file goes first, then.
        if (!noted) forgotten_.insert(row.path);
        if (disk_.remove(row.path) != 0) continue;
        bytes_ -= std::min(bytes_, row.bytes);
        removed = true;
    }
    if (!noted && ledger_.write()) forgotten_.clear();
    return removed;
}

}  // namespace lenswire::recorder
