#include "recorder/archive/verify.h"

#include <algorithm>
#include <cstdlib>

#include "recorder/archive/keeper.h"

namespace lenswire::recorder {
namespace {

constexpr Ms kTolerance = 200;
constexpr Ms kAtWork = 10'000;  // a recorder that was alive within this is at work

struct Span {
    Ms from, to;
    bool open;
};

template <typename Row>
Span span_of(const Row& row, Ms now) {
    return {row.from, row.to.value_or(std::max(now, row.from)), !row.to};
}

// Footage and gaps of a stream in order of time. What is open lasts until now, or to what is noted next: a
// segment is finished in the ledger some time after its end.
std::vector<Span> spans_of(Ledger& ledger, const std::string& stream, Verdict& verdict, Ms now,
                           bool settled) {
    std::vector<Span> spans;
    for (const SegmentRow& row : ledger.segments(stream)) spans.push_back(span_of(row, now));
    for (size_t i = 0; i < spans.size(); ++i) {
        if (spans[i].open && i + 1 < spans.size()) spans[i].to = spans[i + 1].from;
        verdict.footage += spans[i].to - spans[i].from;
    }
    for (const GapRow& row : ledger.gaps(stream)) {
        spans.push_back(span_of(row, now));
        verdict.gaps += spans.back().to - spans.back().from;
    }
    std::ranges::stable_sort(spans, {}, &Span::from);
    for (size_t i = 0; i + 1 < spans.size(); ++i) {
        if (!spans[i].open) continue;
        spans[i].to = spans[i + 1].from;
        if (settled) verdict.faults.push_back(stream + ": left open, from " + utc_text(spans[i].from));
    }
    return spans;
}

void check_file(const SegmentRow& row, Disk& disk, Verdict& verdict) {
    const auto fault = [&](const std::string& text) { verdict.faults.push_back(row.path + ": " + text); };
    const int64_t size = disk.size(row.path);
    if (size < 0) return fault("missing");
    ++verdict.segments;
    verdict.bytes += static_cast<uint64_t>(size);
    if (size != static_cast<int64_t>(row.bytes)) {
        fault("has " + std::to_string(size) + " bytes, the ledger says " + std::to_string(row.bytes));
    } else if (!row.sha256.empty() && disk.digest(row.path, nullptr) != row.sha256) {
        fault("its SHA-256 is not the ledger's");
    }
    const FileContents contents = disk.decoded(row.path);
    if (contents.failed) return fault("cannot be read to its end");
    verdict.pictures += contents.pictures;
    if (contents.pictures != row.frames) {
        fault(std::to_string(contents.pictures) + " pictures decode, the ledger says " +
              std::to_string(row.frames));
    }
    const Ms length = *row.to - row.from;
    const Ms interval = row.frames > 0 ? length / static_cast<Ms>(row.frames) : 0;
    if (std::abs(contents.to_ms - length) > std::max(kTolerance, 2 * interval)) {
        fault("lasts " + length_text(contents.to_ms) + ", the ledger says " + length_text(length));
    }
}

}  // namespace

void verify_account(Ledger& ledger, Verdict& verdict, Ms now, bool settled) {
    for (const std::string& stream : ledger.streams()) {
        const std::vector<Span> spans = spans_of(ledger, stream, verdict, now, settled);
        size_t next = 0;
        for (const WatchRow& watch : ledger.watches(stream)) {
            Ms at = watch.from;
            const Ms end = watch.to.value_or(now);
            verdict.watched += std::max<Ms>(0, end - watch.from);
            const bool open = !watch.to.has_value();
            for (; next < spans.size() && (open || spans[next].from < std::max(end, at)); ++next) {
                const Ms off = spans[next].from - at;
                if (off > kTolerance) {
                    verdict.faults.push_back(stream + ": nothing is known of " + length_text(off) + " from " +
                                             utc_text(at));
                } else if (off < -kTolerance) {
                    verdict.faults.push_back(stream + ": accounted for twice, " + length_text(-off) +
                                             " before " + utc_text(at));
                }
                at = std::max(at, spans[next].to);
            }
            // A recorder at work is a moment ahead of its ledger.
            if (!open && end - at > kTolerance)
                verdict.faults.push_back(stream + ": nothing is known of " + length_text(end - at) +
                                         " from " + utc_text(at));
        }
        if (next < spans.size())
            verdict.faults.push_back(stream + ": accounted for while not watched, from " +
                                     utc_text(spans[next].from));
    }
}

Verdict verify(Ledger& ledger, Disk& disk, Ms now) {
    Verdict verdict;
    if (const std::string check = ledger.check(); check != "ok") verdict.faults.push_back("ledger: " + check);
    const bool at_work = now - ledger.last_alive() < kAtWork && !ledger.open_segments().empty();
    for (const SegmentRow& row : ledger.segments()) {
        if (row.to) {
            check_file(row, disk, verdict);
        } else if (!at_work) {
            verdict.faults.push_back(row.path + ": was left open by a crash; --repair takes it in");
        }
    }
    for (const std::string& path : disk.list()) {
        if (!ledger.names(path))
            verdict.faults.push_back(path + ": unknown to the ledger; --repair takes it in");
    }
    verify_account(ledger, verdict, now);
    return verdict;
}

void repair(Ledger& ledger, Disk& disk, Ms now) {
    for (const SegmentRow& row : ledger.segments()) {
        if (disk.size(row.path) < 0) ledger.lose(row);
    }
    ledger.write();
    Keeper keeper(disk, ledger, {}, {});
    keeper.reopen(now);
    for (Keeper::Job& job : keeper.take_digests()) {
        Keeper::work(job, disk);
        keeper.done(std::move(job));
    }
    ledger.write();
}

}  // namespace lenswire::recorder
