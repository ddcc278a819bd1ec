#include "camera/serve/answer_queue.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace lenswire::camera {

AnswerQueue::AnswerQueue(Loop& loop, int fd, std::function<void()> close, std::function<void()> drained)
    : loop_(loop), fd_(fd), close_(std::move(close)), drained_(std::move(drained)), timer_(loop, [this] {
          flush();
      }) {}

void AnswerQueue::halt() {
    fd_ = -1;
    timer_.disarm();
    ready_.clear();
    later_.clear();
}

void AnswerQueue::add(Outgoing outgoing, int64_t due_us) {
    if (fd_ < 0) return;
    if (due_us == 0) {
        ready_.push_back(std::move(outgoing));
    } else {
        later_.emplace(due_us, std::move(outgoing));
    }
    flush();
}

void AnswerQueue::flush() {
    if (fd_ < 0 || empty()) return;
    const int64_t now = loop_.now_us();
    while (!later_.empty() && later_.begin()->first <= now) {
        ready_.push_back(std::move(later_.begin()->second));
        later_.erase(later_.begin());
    }
    blocked_ = false;
    while (!ready_.empty() && !blocked_ && next_piece_us_ <= now) {
        if (ready_.front().sent < ready_.front().bytes.size() && !send_front()) return close_();
        if (ready_.front().sent < ready_.front().bytes.size()) continue;
        const bool close_now = ready_.front().close_after;
        ready_.pop_front();
        if (close_now) return close_();
    }
    arm(now);
    if (empty()) drained_();
}

// One write; false when the connection is of no more use.
bool AnswerQueue::send_front() {
    Outgoing& front = ready_.front();
    const size_t left = front.bytes.size() - front.sent;
    const size_t length = front.piece == 0 ? left : std::min<size_t>(left, front.piece);
    const ssize_t sent = send(fd_, front.bytes.data() + front.sent, length, MSG_NOSIGNAL | MSG_DONTWAIT);
    if (sent < 0) {
        blocked_ = errno == EAGAIN;
        return blocked_ || errno == EINTR;
    }
    front.sent += static_cast<size_t>(sent);
    if (front.gap_us != 0 && front.sent < front.bytes.size()) next_piece_us_ = loop_.now_us() + front.gap_us;
    return true;
}

void AnswerQueue::arm(int64_t now) {
    int64_t due = INT64_MAX;
    if (!later_.empty()) due = later_.begin()->first;
    if (!ready_.empty() && !blocked_ && next_piece_us_ > now) due = std::min(due, next_piece_us_);
    due == INT64_MAX ? timer_.disarm() : timer_.arm(due);
}

}  // namespace lenswire::camera
