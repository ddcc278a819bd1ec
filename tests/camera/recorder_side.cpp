#include "recorder_side.h"

#include <arpa/inet.h>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "camera/wire/des.h"

namespace lenswire::test {
namespace {

Bytes encrypt(const Bytes& clear, const Bytes& key) {
    Bytes result;
    camera::DesBlock key_block, block;
    std::copy_n(key.begin(), 8, key_block.begin());
    for (size_t at = 0; at < clear.size(); at += 8) {
        std::copy_n(clear.begin() + static_cast<ptrdiff_t>(at), 8, block.begin());
        std::ranges::copy(camera::des_encrypt(block, key_block), std::back_inserter(result));
    }
    return result;
}

// The lengths of the writes of all threads but the test's own, until a tape takes them.
const auto g_test_thread = std::this_thread::get_id();
std::mutex g_lock;
std::vector<size_t> g_writes;

template <typename Call, typename... Arguments>
ssize_t call_and_note(const char* name, Arguments... arguments) {
    const ssize_t sent = reinterpret_cast<Call>(dlsym(RTLD_NEXT, name))(arguments...);
    if (sent <= 0 || std::this_thread::get_id() == g_test_thread) return sent;
    const std::lock_guard guard(g_lock);
    g_writes.push_back(static_cast<size_t>(sent));
    return sent;
}

std::vector<size_t> take_writes() {
    const std::lock_guard guard(g_lock);
    return std::exchange(g_writes, {});
}

}  // namespace

}  // namespace lenswire::test

// Outside the namespaces, where they get the names that the simulator calls.
extern "C" ssize_t send(int fd, const void* bytes, size_t length, int flags) {
    return lenswire::test::call_and_note<decltype(&send)>("send", fd, bytes, length, flags);
}

extern "C" ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    return lenswire::test::call_and_note<decltype(&sendmsg)>("sendmsg", fd, message, flags);
}

namespace lenswire::test {

Wire connect_to(const camera::Camera& camera) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(camera.port());
    inet_pton(AF_INET, camera.address().c_str(), &name.sin_addr);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // what a test sends is there at once
    if (connect(fd, reinterpret_cast<sockaddr*>(&name), sizeof name) == 0) return Wire(fd);
    close(fd);
    return {};
}

void Session::send(uint16_t code, Bytes payload) {
    wire.sends(command(code, std::move(payload), 0, login_id));
}

Message Session::ask(uint16_t code, Bytes payload) {
    send(code, std::move(payload));
    return wire.reads_command();
}

Session log_in(const camera::Camera& camera, const std::string& user, const std::string& password) {
    Session session{.wire = connect_to(camera)};
    session.wire.sends(command(0x0101));
    const Bytes serial = slice(session.wire.reads_command().payload, 0, 8);
    session.wire.sends(command(0x0000, padded(bytes_of(user), 32) +
                                           encrypt(padded(bytes_of(password), 32), serial) + repeated(0, 4) +
                                           encrypt(serial, serial)));
    const Message answer = session.wire.reads_command();
    EXPECT_EQ(answer.command, 0x0000);
    session.login_id = answer.login_id;
    session.state = answer.state;
    return session;
}

Wire ask_for_stream(const camera::Camera& camera, const Session& session, uint8_t stream, uint8_t channel) {
    Wire wire = connect_to(camera);
    wire.sends(command(0x0102, {channel, stream, 0, 0}, 0, session.login_id));
    return wire;
}

Wire open_stream(const camera::Camera& camera, const Session& session, uint8_t stream, uint8_t channel) {
    Wire wire = ask_for_stream(camera, session, stream, channel);
    const Message answer = wire.reads_command();
    EXPECT_EQ(answer.command, 0x0102);
    EXPECT_EQ(answer.state, 0);
    EXPECT_EQ(answer.payload.size(), 32U);
    return wire;
}

Message upload_header(size_t length) {
    Message header = command(0x2002);
    header.buffer_size = static_cast<uint32_t>(length);
    header.buffer_num = 1;
    return header;
}

ReadPacket read_packet(Wire& wire) {
    ReadPacket packet{.head = wire.reads(32), .payload = {}};
    packet.payload = wire.reads(u32_at(packet.head, 4) >> 6 & 0x3FFFFF);
    return packet;
}

OneCamera::OneCamera(camera::CameraConfig config) {
    std::string error;
    camera = farm.add(std::move(config), &error);
    if (camera == nullptr) {
        ADD_FAILURE() << error;
        std::abort();
    }
}

void OneCamera::pass_ms(int64_t ms) {
    farm.settle();  // what was asked for before is done before
    now_us += ms * 1000;
    farm.settle();
}

Tape::Tape(OneCamera& one) : one_(one) {
    one.farm.settle();
    take_writes();
}

std::string Tape::record(Wire& wire, int64_t for_ms) {
    std::vector<std::string> writes;
    const auto note = [&](int64_t ms, const std::string& what) {
        writes.push_back(std::to_string(ms) + ":" + what);
    };
    bool ended = false;
    for (int64_t ms = 0; ms <= for_ms; ++ms) {
        one_.pass_ms(ms == 0 ? 0 : 1);
        for (const size_t length : take_writes()) {
            bytes = std::move(bytes) + wire.reads(length);
            note(ms, std::to_string(length));
        }
        const camera::CameraStats stats = one_->stats();
        if (ended || stats.connections_open == stats.connections) continue;
        ended = true;
        uint8_t none;
        note(ms, recv(wire.descriptor(), &none, 1, 0) == 0 ? "closed"
                 : errno == ECONNRESET                     ? "reset"
                                                           : "more");
    }
    std::string text;
    for (size_t at = 0, same = 0; at < writes.size(); at += same) {
        for (same = 1; at + same < writes.size() && writes[at + same] == writes[at];) ++same;
        text += (at == 0 ? "" : " ") + writes[at] + (same == 1 ? "" : "*" + std::to_string(same));
    }
    return text;
}

std::string every(int step_ms, int from_ms, int count, const std::string& write) {
    std::string text;
    for (int i = 0; i < count; ++i) text += " " + std::to_string(from_ms + i * step_ms) + ":" + write;
    return text.substr(1);
}

camera::CameraConfig small_streams(uint64_t frames) {
    camera::CameraConfig config;
    for (auto& stream : config.streams) {
        stream.synthetic = camera::Synthetic{.mbit = 0.05, .gop = 5, .key_ratio = 3};
        stream.max_frames = frames;
    }
    return config;
}

}  // namespace lenswire::test
