#include "recorder/archive/side_notes.h"

#include <algorithm>

#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

constexpr int kStreamsOfCamera = 3;

}  // namespace

SideNotes::SideNotes(const std::string& file) : file_(file) {
    try {
        if (Ledger::is_there(file)) ledger_.emplace(file);
    } catch (const Failure& failure) {
        trouble_ = failure.what();
    }
}

void SideNotes::event(const StreamIdentity& camera, const std::string& kind, const std::string& text) {
    if (!ledger_) return;
    try {
        // Behind what the recorder noted, though the clock was set back since it began.
        const SystemClock clock;
        const Ms now = UtcAnchor(0, clock.wall(), ledger_->last_instant()).utc(0);
        const std::string stream = stream_of(camera);
        const std::string where = stream.empty() ? stream_name(camera) + ": " : "";
        ledger_->event({.at = now, .stream = stream, .kind = kind, .text = where + text});
    } catch (const Failure& failure) {
        lost_ = failure.what();
    }
}

// Of a camera of which only a smaller picture is recorded, that stream.
std::string SideNotes::stream_of(StreamIdentity camera) {
    const std::vector<std::string> known = ledger_->streams();
    for (camera.stream = 0; camera.stream < kStreamsOfCamera; ++camera.stream) {
        std::string name = stream_name(camera);
        if (std::ranges::find(known, name) != known.end()) return name;
    }
    return "";
}

void SideNotes::write() {
    if (!ledger_) return;
    try {
        trouble_ = ledger_->write() ? "" : file_ + ": " + ledger_->error();
    } catch (const Failure& failure) {
        trouble_ = failure.what();
    }
}

}  // namespace lenswire::recorder
