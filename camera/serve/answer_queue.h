// What waits to go out on a control connection: whole, in small pieces, now or later.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>

#include "camera/serve/loop.h"
#include "camera/wire/bytes.h"

namespace lenswire::camera {

struct Outgoing {
    Bytes bytes;
    uint32_t piece = 0;  // bytes of one write; 0: all in one
    int64_t gap_us = 0;  // pause between two pieces
    bool close_after = false;
    size_t sent = 0;
};

class AnswerQueue {
  public:
    // `close` is called when the connection is to go, `drained` when nothing is left to send, now or later.
    // Neither may destroy the queue at once.
    AnswerQueue(Loop& loop, int fd, std::function<void()> close, std::function<void()> drained);

    // Goes out at `due_us`, behind what is on its way by then; 0: now.
    void add(Outgoing outgoing, int64_t due_us = 0);
    // Sends what is due and fits; called when the socket may have room.
    void flush();
    bool empty() const { return ready_.empty() && later_.empty(); }
    // The descriptor is gone: nothing is sent any more.
    void halt();

  private:
    bool send_front();
    void arm(int64_t now);

    Loop& loop_;
    int fd_;
    std::function<void()> close_;
    std::function<void()> drained_;
    Timer timer_;
    std::deque<Outgoing> ready_;
    std::multimap<int64_t, Outgoing> later_;
    int64_t next_piece_us_ = 0;
    bool blocked_ = false;
};

}  // namespace lenswire::camera
