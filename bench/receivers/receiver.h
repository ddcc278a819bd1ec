// The receiving side of a stream benchmark, one of several that are compared.
#pragma once

#include <sys/types.h>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace lenswire::bench {

class Sender;

// Whose processor time is counted under which name.
struct Role {
    std::string name;
    pid_t thread;
};

class Receiver {
  public:
    virtual ~Receiver() = default;
    // Connects to all of the sender's streams and begins to receive.
    virtual void start(const Sender& sender) = 0;
    // The threads that receive, and those that take over what was received.
    virtual std::vector<Role> receiving() const = 0;
    virtual std::vector<Role> consuming() const { return {}; }
    // Bytes received so far.
    virtual uint64_t bytes() const = 0;

    // For receivers that deliver frames: those of a stream delivered so far, and when each was, 0 for never.
    virtual bool delivers_frames() const { return false; }
    virtual uint32_t delivered(uint32_t) const { return 0; }
    virtual int64_t delivered_at(uint32_t, uint32_t) const { return 0; }
    // Frames whose content was not what was sent, or out of order.
    virtual uint32_t wrong_frames() const { return 0; }
};

struct ReceiverOptions {
    uint32_t streams;
    size_t timed_frames;  // of each stream
};

std::unique_ptr<Receiver> make_plugin_receiver(const ReceiverOptions& options);
std::unique_ptr<Receiver> make_bare_loop(const ReceiverOptions& options);
std::unique_ptr<Receiver> make_gathering_loop(const ReceiverOptions& options);
std::unique_ptr<Receiver> make_copying_loop(const ReceiverOptions& options);
std::unique_ptr<Receiver> make_avformat_receiver(const ReceiverOptions& options);

}  // namespace lenswire::bench
