// A camera that does exactly what a test tells it: a listening socket on a loopback address and the
// connections that it accepted. Waits end with a failure of the test when nothing comes for very long.
#pragma once

#include <cstdint>
#include <future>
#include <string>
#include <utility>

#include "support/camera_bytes.h"

namespace lenswire::test {

// One accepted connection, closed with its object.
class Wire {
  public:
    Wire() = default;
    explicit Wire(int descriptor) : descriptor_(descriptor) {}
    Wire(Wire&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Wire& operator=(Wire&& other) noexcept {
        closes();
        descriptor_ = std::exchange(other.descriptor_, -1);
        return *this;
    }
    ~Wire() { closes(); }

    bool connected() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }

    // Exactly so many bytes; fewer, with a failure, when they do not come.
    Bytes reads(size_t count);
    // One whole command message, its payload included.
    Message reads_command();
    // Whether the other side has closed; everything that it sent before is dropped.
    bool sees_close();
    // Whether bytes wait here to be read; does not wait itself.
    bool has_bytes() const;

    // All of the bytes, in one send.
    void sends(const Bytes& bytes);
    void sends(const Message& message) { sends(message.bytes()); }
    void sends(const Packet& packet) { sends(packet.bytes()); }

    void closes();
    // Sends the end of the stream and keeps the descriptor.
    void finishes();
    // Closes with a reset instead of an orderly end.
    void resets();

  private:
    int descriptor_ = -1;
};

// What a camera hands out at a login unless a test says otherwise.
inline constexpr uint32_t kLoginId = 0x11223344;
Bytes default_serial();

class ScriptedCamera {
  public:
    // Listens on a free port of a loopback address.
    explicit ScriptedCamera(const std::string& address = "127.0.0.1", int backlog = 64);
    ~ScriptedCamera();
    ScriptedCamera(const ScriptedCamera&) = delete;
    ScriptedCamera& operator=(const ScriptedCamera&) = delete;

    uint32_t address() const { return address_; }  // network order
    std::string address_text() const;
    int port() const { return port_; }

    Wire accepts();
    // Accepts the next connection and serves a whole login on a thread of its own.
    std::future<Wire> logs_in_next(uint32_t login_id = kLoginId, Bytes serial = default_serial());
    // Stops listening: further connects are refused.
    void stops_listening();

  private:
    int listener_ = -1;
    uint32_t address_ = 0;
    int port_ = 0;
};

// The two halves of a login on an accepted connection; each returns the request as it came.
Bytes answers_serial_request(Wire& wire, const Bytes& serial = default_serial());
Bytes answers_login(Wire& wire, uint32_t login_id = kLoginId, uint16_t state = 0);

// A port of a loopback address that refuses connections.
int refused_port(const std::string& address = "127.0.0.1");

}  // namespace lenswire::test
