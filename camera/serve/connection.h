// One accepted connection. Its first commands decide what it is: a control connection, a stream, an upload.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "camera/serve/answer_queue.h"
#include "camera/serve/loop.h"
#include "camera/serve/stats.h"
#include "camera/serve/stream_sender.h"
#include "camera/serve/upload.h"
#include "camera/wire/des.h"
#include "camera/wire/message.h"

namespace lenswire::camera {

class Connection;

// The camera of a connection, which knows what the commands mean.
class ConnectionOwner {
  public:
    virtual void on_command(Connection& connection, const Command& command) = 0;
    virtual void on_close(Connection* connection) = 0;
    virtual bool is_upload(const Connection& connection, const Command& header) const = 0;
    virtual void on_upload(Connection& connection, const Command& header) = 0;
    virtual void on_upload_done(Connection& connection, const UploadFault& fault, UploadStats& upload,
                                uint16_t state) = 0;
    virtual void babble(Connection& connection) = 0;
    virtual void count_malformed() = 0;

  protected:
    ~ConnectionOwner() = default;
};

class Connection : public Watched {
  public:
    Connection(ConnectionOwner& owner, Loop& loop, int fd, uint32_t number);
    ~Connection() override;

    void on_ready(uint32_t events) override;
    // Closes the descriptor and hands the connection back to its camera, which buries it.
    void close(bool reset = false);

    uint32_t number() const { return number_; }
    int fd() const { return fd_; }
    bool logged_in() const { return login_id_ != 0; }
    uint32_t login_id() const { return login_id_; }
    bool is_stream() const { return stream_stats_ != nullptr; }

    // For the owner.
    const std::optional<DesBlock>& serial() const { return serial_; }
    void set_serial(const DesBlock& serial) { serial_ = serial; }
    void set_login_id(uint32_t id) { login_id_ = id; }
    void send(Outgoing outgoing, int64_t due_us = 0) { out_.add(std::move(outgoing), due_us); }
    void start_stream(SenderSetup setup);  // begins once the answer to the request is out
    void finish_stream(bool close);
    void start_upload(UploadSetup setup);

  private:
    void read_all();
    void take_commands();
    void begin_stream();

    ConnectionOwner& owner_;
    Loop& loop_;
    int fd_;
    uint32_t number_;
    CommandReader reader_;
    AnswerQueue out_;
    std::optional<DesBlock> serial_;
    uint32_t login_id_ = 0;
    std::optional<SenderSetup> waiting_stream_;
    std::unique_ptr<StreamSender> sender_;
    std::shared_ptr<StreamStats> stream_stats_;
    std::unique_ptr<Upload> upload_;
    std::shared_ptr<UploadStats> upload_stats_;
};

}  // namespace lenswire::camera
