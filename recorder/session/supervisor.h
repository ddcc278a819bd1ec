// Keeps every stream recorded: logs in, invites, looks after the connections, and starts again what failed.
// Several cameras at a time, on threads of its own; the library's threads only leave a note here.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "recorder/host/host.h"
#include "recorder/session/stream_plan.h"

namespace lenswire::recorder {

// What the supervisor does with one stream. Called by one thread at a time.
class StreamLink {
  public:
    virtual ~StreamLink() = default;
    virtual int channel() const = 0;  // the recorder's
    virtual int stream() const = 0;
    // Blocks; the result of PC_Login. The first login may take longer than those of a restart.
    virtual int login(bool first) = 0;
    virtual bool invite() = 0;         // blocks
    virtual void open() = 0;           // hands the invited stream to the receive loop
    virtual bool control_alive() = 0;  // sends a heartbeat when one is due
};

class Supervisor final : public RestartListener {
  public:
    // What a viewer shows of a stream.
    struct View {
        StreamPlan::State state = StreamPlan::State::kConnecting;
        int login_result = 0;
        bool login_tried = false;
        bool ever_streamed = false;
        unsigned restarts = 0;
    };

    explicit Supervisor(std::vector<std::unique_ptr<StreamLink>> links);
    ~Supervisor();  // stops

    void start(int threads);
    // Waits for what is under way and ends the threads.
    void stop();

    void restart_wanted(int channel, int stream) override;

    View view(size_t index) const;

  private:
    struct Session {
        std::unique_ptr<StreamLink> link;
        StreamPlan plan;
        bool busy = false;
        int login_result = 0;
    };

    void work();
    Session* due_session(StreamPlan::Time now);
    StreamPlan::Time next_due() const;
    void step(Session& session, StreamPlan::Action action);
    void log_in(Session& session);
    void invite(Session& session);
    void check(Session& session);

    // Guards the plans and busy marks. A session's link belongs to the thread that marked it busy.
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    std::vector<Session> sessions_;
    bool stop_ = false;
    std::vector<std::thread> threads_;
};

const char* state_name(StreamPlan::State state);

}  // namespace lenswire::recorder
