#include "camera/serve/connection.h"

#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "lenswire/protocol.h"

namespace lenswire::camera {

Connection::Connection(ConnectionOwner& owner, Loop& loop, int fd, uint32_t number)
    : owner_(owner),
      loop_(loop),
      fd_(fd),
      number_(number),
      out_(
          loop, fd, [this] { close(); }, [this] { begin_stream(); }) {}

Connection::~Connection() {
    if (fd_ >= 0) ::close(fd_);
}

void Connection::on_ready(uint32_t events) {
    if (fd_ >= 0 && (events & EPOLLOUT) != 0) {
        out_.flush();
        if (fd_ >= 0 && sender_) sender_->pump();
    }
    if (fd_ >= 0 && (events & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) read_all();
}

void Connection::close(bool reset) {
    if (fd_ < 0) return;
    if (reset) {
        const linger none{.l_onoff = 1, .l_linger = 0};
        setsockopt(fd_, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    }
    ::close(fd_);
    fd_ = -1;
    out_.halt();
    if (sender_) sender_->halt();
    if (upload_) upload_->halt();
    if (upload_stats_) upload_stats_->open = false;
    if (stream_stats_) {
        stream_stats_->open = false;
        stream_stats_->ended = true;
    }
    owner_.on_close(this);
}

void Connection::start_stream(SenderSetup setup) {
    stream_stats_ = setup.stats;
    setup.fd = fd_;
    waiting_stream_ = std::move(setup);
    if (out_.empty()) begin_stream();
}

void Connection::begin_stream() {
    if (!waiting_stream_ || sender_ || fd_ < 0) return;
    sender_ = std::make_unique<StreamSender>(loop_, std::move(*waiting_stream_),
                                             [this](bool reset) { close(reset); });
    waiting_stream_.reset();
}

void Connection::finish_stream(bool close) {
    if (sender_) {
        sender_->finish(close);
    } else if (stream_stats_ && close) {
        this->close();
    }
}

void Connection::start_upload(UploadSetup setup) {
    upload_stats_ = setup.stats;
    setup.fd = fd_;
    auto done = [this](uint16_t state) {
        owner_.on_upload_done(*this, upload_->fault(), *upload_stats_, state);
    };
    upload_ = std::make_unique<Upload>(loop_, std::move(setup),
                                       Upload::Calls{.done = std::move(done),
                                                     .babble = [this] { owner_.babble(*this); },
                                                     .close = [this] { close(); }});
}

void Connection::read_all() {
    if (upload_) return upload_->read();
    uint8_t piece[8192];
    while (fd_ >= 0) {
        const ssize_t got = recv(fd_, piece, sizeof piece, MSG_DONTWAIT);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 && errno == EAGAIN) return;
        if (got <= 0) return close();
        reader_.add({piece, static_cast<size_t>(got)});
        take_commands();
        if (upload_ && fd_ >= 0) return upload_->read();
    }
}

void Connection::take_commands() {
    while (fd_ >= 0) {
        const auto header = reader_.header();
        if (!header) return;
        if (owner_.is_upload(*this, *header)) {
            const Bytes first = reader_.take_rest();
            owner_.on_upload(*this, *header);
            if (upload_ && fd_ >= 0) upload_->take(first);
            return;
        }
        if (uint64_t{ARG_HEAD_LEN} + announced_length(*header) > MAX_CMD_SIZE) {
            owner_.count_malformed();
            return close();
        }
        const auto command = reader_.take();
        if (!command) return;
        owner_.on_command(*this, *command);
    }
}

}  // namespace lenswire::camera
