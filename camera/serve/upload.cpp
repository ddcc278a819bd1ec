#include "camera/serve/upload.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "camera/device/settings.h"

namespace lenswire::camera {
namespace {

constexpr size_t kTurnBytes = size_t{1} << 20;  // then the other connections have their turn
constexpr int64_t kSlowTickUs = 10'000;
constexpr int64_t kBabbleTickUs = 20'000;  // apart, so that each one is received alone
constexpr int kSlowReceiveBuffer = 4096;

}  // namespace

void Checksum::add_word(uint64_t word) {
    state_ = (state_ ^ word) * 0x9E3779B97F4A7C15U;
    state_ ^= state_ >> 29;
}

void Checksum::add(std::span<const uint8_t> bytes) {
    size_t at = 0;
    while (at < bytes.size()) {
        if (pending_bytes_ == 0 && bytes.size() - at >= 8) {
            add_word(get_u32(&bytes[at]) | static_cast<uint64_t>(get_u32(&bytes[at + 4])) << 32);
            at += 8;
            continue;
        }
        pending_ |= static_cast<uint64_t>(bytes[at++]) << 8 * pending_bytes_;
        if (++pending_bytes_ < 8) continue;
        add_word(pending_);
        pending_ = 0;
        pending_bytes_ = 0;
    }
}

uint64_t Checksum::value() const {
    Checksum ended = *this;
    ended.add_word(pending_);
    ended.add_word(pending_bytes_);
    return ended.state_;
}

uint64_t checksum_of(std::span<const uint8_t> bytes) {
    Checksum checksum;
    checksum.add(bytes);
    return checksum.value();
}

KeptFile::KeptFile(const std::string& path) : path_(path) {
    if (path_.empty()) return;
    fd_ = open((path_ + ".part").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
}

KeptFile::~KeptFile() {
    if (fd_ < 0) return;
    close(fd_);
    unlink((path_ + ".part").c_str());
}

bool KeptFile::write(std::span<const uint8_t> bytes) {
    if (path_.empty()) return true;
    while (!bytes.empty()) {
        const ssize_t written = fd_ < 0 ? -1 : ::write(fd_, bytes.data(), bytes.size());
        if (written < 0 && (fd_ < 0 || errno != EINTR)) return false;
        if (written > 0) bytes = bytes.subspan(static_cast<size_t>(written));
    }
    return true;
}

bool KeptFile::finish() {
    if (path_.empty()) return true;
    if (fd_ < 0) return false;
    close(std::exchange(fd_, -1));
    return rename((path_ + ".part").c_str(), path_.c_str()) == 0;
}

Upload::Upload(Loop& loop, UploadSetup setup, Calls calls)
    : loop_(loop),
      setup_(std::move(setup)),
      calls_(std::move(calls)),
      read_timer_(loop, [this] { read(); }),
      babble_timer_(loop, [this] { on_time(); }),
      file_(setup_.keep_as),
      start_us_(loop.now_us()),
      babble_left_(setup_.fault.babble) {
    setup_.stats->announced = setup_.announced;
    if (setup_.fault.bytes_per_second != 0) {
        setsockopt(setup_.fd, SOL_SOCKET, SO_RCVBUF, &kSlowReceiveBuffer, sizeof kSlowReceiveBuffer);
    }
    if (babble_left_ != 0) babble_timer_.arm(start_us_);
}

void Upload::halt() {
    halted_ = true;
    read_timer_.disarm();
    babble_timer_.disarm();
}

void Upload::on_time() {
    if (babble_left_ == 0 || halted_) return;
    --babble_left_;
    babble_timer_.arm(loop_.now_us() + kBabbleTickUs);
    calls_.babble();
}

// How much may be read now; a slow camera reads no faster than its rate on average.
size_t Upload::allowance(int64_t now) {
    const uint64_t rate = setup_.fault.bytes_per_second;
    if (rate == 0) return kTurnBytes;
    const uint64_t by_now = static_cast<uint64_t>(now - start_us_) * rate / 1'000'000;
    return static_cast<size_t>(by_now - std::min(by_now, setup_.stats->received));
}

void Upload::read() {
    const int64_t now = loop_.now_us();
    size_t left = allowance(now);
    while (!halted_ && left > 0) {
        const uint64_t before = setup_.stats->received;
        if (!read_once(left)) return;
        left -= static_cast<size_t>(setup_.stats->received - before);
    }
    const bool slow = setup_.fault.bytes_per_second != 0;
    if (!halted_) read_timer_.arm(slow ? now + kSlowTickUs : now);
}

// False when there is nothing more to read now.
bool Upload::read_once(size_t most) {
    uint8_t piece[65536];
    const ssize_t got = recv(setup_.fd, piece, std::min(most, sizeof piece), MSG_DONTWAIT);
    if (got < 0 && errno == EINTR) return true;
    if (got < 0 && errno == EAGAIN) return false;
    if (got <= 0) {
        calls_.close();
        return false;
    }
    take({piece, static_cast<size_t>(got)});
    return true;
}

void Upload::take(std::span<const uint8_t> bytes) {
    UploadStats& stats = *setup_.stats;
    const uint64_t before = stats.received;
    stats.received += bytes.size();
    loop_.report_change();
    if (setup_.fault.close_at && stats.received >= *setup_.fault.close_at) return calls_.close();
    if (setup_.announced == 0 && !finished_) return finish(kStateBadRequest);
    if (finished_) return;  // answered already: the rest is only taken off the wire
    if (setup_.fault.full_at && stats.received > *setup_.fault.full_at) return finish(kStateNoRoom);
    if (stats.received > setup_.announced)
        bytes = bytes.first(static_cast<size_t>(setup_.announced - before));
    store(bytes);
}

void Upload::store(std::span<const uint8_t> bytes) {
    checksum_.add(bytes);
    if (!file_.write(bytes)) return finish(kStateNoRoom);
    if (setup_.stats->received < setup_.announced) return;
    setup_.stats->checksum = checksum_.value();
    if (!file_.finish()) return finish(kStateNoRoom);
    // More bytes than were announced are no firmware.
    setup_.stats->complete = setup_.stats->received == setup_.announced;
    finish(setup_.stats->complete ? setup_.fault.state.value_or(0) : kStateBadRequest);
}

void Upload::finish(uint16_t state) {
    finished_ = true;
    loop_.report_change();
    calls_.done(state);
}

}  // namespace lenswire::camera
