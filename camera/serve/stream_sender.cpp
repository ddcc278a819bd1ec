#include "camera/serve/stream_sender.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace lenswire::camera {
namespace {

// A stream leaves the others their turn after that much; only unpaced and one-byte streams come near it.
constexpr size_t kTurnBytes = size_t{1} << 20;
constexpr size_t kTurnOneByteWrites = 4096;
constexpr int64_t kSpreadTickUs = 1000;
constexpr size_t kSpreadPiece = 1500;

}  // namespace

StreamSender::StreamSender(Loop& loop, SenderSetup setup, std::function<void(bool)> close)
    : loop_(loop),
      setup_(std::move(setup)),
      close_(std::move(close)),
      timer_(loop, [this] { pump(); }),
      start_us_(loop.now_us()) {
    timer_.arm(start_us_);
}

void StreamSender::pump() {
    size_t budget = kTurnBytes;
    Step step = Step::kGoOn;
    while (step == Step::kGoOn && !ended_) {
        const int64_t now = loop_.now_us();
        step = sending_ ? send_more(now, &budget) : begin_packet(now);
    }
}

void StreamSender::finish(bool close) {
    finish_ = true;
    close_at_end_ = close;
    if (!sending_) end(close);
}

void StreamSender::halt() {
    ended_ = true;
    timer_.disarm();
}

StreamSender::Step StreamSender::wait_until(int64_t due_us) {
    timer_.arm(due_us);
    return Step::kWait;
}

StreamSender::Step StreamSender::end(bool close, bool reset) {
    halt();
    setup_.stats->ended = true;
    loop_.report_change();
    if (close) close_(reset);
    return Step::kWait;
}

StreamSender::Step StreamSender::begin_packet(int64_t now) {
    if (!have_frame_) frame_ = setup_.source->next();
    have_frame_ = true;
    const bool last = setup_.config.max_frames != 0 && video_begun_ >= setup_.config.max_frames;
    if (finish_ || last) return end(close_at_end_);
    const int64_t due = start_us_ + frame_.due_us;
    if (setup_.config.pace != Pace::kUnpaced) {
        if (due > now) {
            const int64_t span = std::max<int64_t>(setup_.gather_us, 1);
            return wait_until((due + span - 1) / span * span);
        }
        setup_.stats->most_late_us = std::max(setup_.stats->most_late_us, now - due);
    }
    sent_ = 0;
    break_off_at_.reset();
    packet_length_ = ARG_HEAD_LEN + size_t{frame_.head.length};
    packet_start_us_ = now;
    if (frame_.head.video && !apply_faults(now)) return Step::kWait;
    PacketHead head = frame_.head;
    head.timestamp_ms += setup_.timestamp_base_ms;
    head_ = to_bytes(head);
    sending_ = true;
    if (frame_.head.video) ++video_begun_;
    return Step::kGoOn;
}

// Carries out what is to go wrong at this frame; false when the packet is not to be sent now.
bool StreamSender::apply_faults(int64_t now) {
    for (auto fault = setup_.faults.begin(); fault != setup_.faults.end();) {
        if (fault->at_frame != video_begun_) {
            ++fault;
            continue;
        }
        const StreamFault what = *fault;
        fault = setup_.faults.erase(fault);
        if (setup_.struck) setup_.struck(what);
        switch (what.kind) {
            case StreamFaultKind::kStop:
            case StreamFaultKind::kCloseMid:
                break_off_at_ = ARG_HEAD_LEN + frame_.head.length / 2;
                break_off_closes_ = what.kind == StreamFaultKind::kCloseMid;
                break;
            case StreamFaultKind::kClose:
            case StreamFaultKind::kReset:
                end(true, what.kind == StreamFaultKind::kReset);
                return false;
            case StreamFaultKind::kStall:
                if (what.value == 0) {
                    end(false);
                } else {
                    start_us_ += what.value * 1000;  // and the stream goes on in real time after it
                    wait_until(now + what.value * 1000);
                }
                return false;
            case StreamFaultKind::kOneByte:
                one_byte_ = true;
                break;
            case StreamFaultKind::kBadFlag:
                frame_.head.flag = static_cast<uint16_t>(what.value);
                break;
            case StreamFaultKind::kWrongLength:
                frame_.head.length = static_cast<uint32_t>(frame_.head.length + what.value);
                break;
        }
    }
    return true;
}

// How far into the packet the link would have brought us by now.
size_t StreamSender::allowed_bytes(int64_t now) const {
    if (setup_.config.pace != Pace::kSpread) return packet_length_;
    const auto brought = static_cast<size_t>(now - packet_start_us_) * setup_.config.link_mbit / 8;
    return std::min(packet_length_, brought + kSpreadPiece);
}

// The next bytes of the packet, at most so many, as they lie in header, prefix and payload.
size_t StreamSender::gather_pieces(size_t most, std::array<iovec, 3>* pieces) const {
    const std::pair<const uint8_t*, size_t> parts[] = {{head_.data(), head_.size()},
                                                       {frame_.prefix.data(), frame_.prefix_length},
                                                       {frame_.payload.data(), frame_.payload.size()}};
    size_t skip = sent_;
    size_t count = 0;
    for (const auto& [data, length] : parts) {
        const size_t skipped = std::min(skip, length);
        const size_t taken = std::min(most, length - skipped);
        skip -= skipped;
        most -= taken;
        if (taken != 0) (*pieces)[count++] = {const_cast<uint8_t*>(data) + skipped, taken};
    }
    return count;
}

StreamSender::Step StreamSender::send_more(int64_t now, size_t* budget) {
    const size_t stop_at = break_off_at_.value_or(packet_length_);
    const size_t until = std::min(stop_at, allowed_bytes(now));
    if (sent_ >= stop_at) return finish_packet();
    if (sent_ >= until) return wait_until(now + kSpreadTickUs);
    if (*budget == 0) return wait_until(now);
    std::array<iovec, 3> pieces;
    msghdr message{};
    message.msg_iov = pieces.data();
    message.msg_iovlen = gather_pieces(one_byte_ ? 1 : until - sent_, &pieces);
    const ssize_t sent = sendmsg(setup_.fd, &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) {
        if (errno == EINTR) return Step::kGoOn;
        return errno == EAGAIN ? Step::kWait : end(true);
    }
    sent_ += static_cast<size_t>(sent);
    const size_t cost = one_byte_ ? kTurnBytes / kTurnOneByteWrites : static_cast<size_t>(sent);
    *budget -= std::min(*budget, cost);
    return Step::kGoOn;
}

StreamSender::Step StreamSender::finish_packet() {
    sending_ = false;
    have_frame_ = false;
    if (break_off_at_) return end(break_off_closes_);
    StreamStats& stats = *setup_.stats;
    if (frame_.head.video) {
        const uint32_t timestamp = frame_.head.timestamp_ms + setup_.timestamp_base_ms;
        if (stats.video_frames == 0) stats.first_timestamp_ms = timestamp;
        stats.last_timestamp_ms = timestamp;
    }
    ++(frame_.head.video ? stats.video_frames : stats.audio_frames);
    stats.bytes += packet_length_;
    loop_.report_change();
    return Step::kGoOn;
}

}  // namespace lenswire::camera
