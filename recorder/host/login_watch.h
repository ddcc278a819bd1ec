// Looks at a login of the library from inside its steps, and ends it when nothing more can come of it: the
// library itself waits some ten seconds out, so that nobody floods a camera that refuses.
//
// The library asks before every step whether to go on, on the thread that logs in. What there is to know by
// then stands in the client's record and in what the kernel says of its socket.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

#include "lenswire/records.h"

namespace lenswire::recorder {

class LoginWatch {
  public:
    using Clock = std::chrono::steady_clock;
    enum class End { kNone, kPortRefused, kNoConnection, kRefused, kClosed, kTimedOut };

    // `client` is the one that logs in.
    LoginWatch(const CmdClient* client, Clock::duration patience)
        : client_(client), deadline_(Clock::now() + patience) {}

    // Whether the login need not go on. On the thread that logs in.
    bool over();
    End end() const { return end_; }

  private:
    End look();

    const CmdClient* client_;
    Clock::time_point deadline_;
    std::optional<uint64_t> read_before_;  // bytes that had been read when the login was sent
    End end_ = End::kNone;
};

}  // namespace lenswire::recorder
