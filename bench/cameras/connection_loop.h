// One thread that serves the connections of many cameras: it listens, takes connections and what comes on
// them, and forgets those that end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace lenswire::bench {

class ConnectionLoop {
  public:
    ConnectionLoop(const ConnectionLoop&) = delete;
    ConnectionLoop& operator=(const ConnectionLoop&) = delete;

    // Listens at the camera's address, with that receive buffer unless it is 0. Returns the port.
    int listen_for(uint32_t camera, const std::string& address, int receive_buffer_bytes = 0);
    [[noreturn]] void run();

  protected:
    struct Connection {
        uint32_t camera = 0;
        bool listens = false;
        std::vector<uint8_t> bytes = {};
        uint64_t firmware_left = 0;
    };

    ConnectionLoop();
    ~ConnectionLoop() = default;  // nobody owns one by this class

    // Something has come. Returns false when the connection has ended and is still to be closed.
    virtual bool take(int fd, Connection& connection) = 0;
    // Adds what has come to the connection's bytes. False when it has ended.
    static bool receive(int fd, Connection& connection);

    std::map<int, Connection> connections_;

  private:
    void watch(int fd) const;
    void serve(int fd, Connection& connection);

    int epoll_;
};

}  // namespace lenswire::bench
