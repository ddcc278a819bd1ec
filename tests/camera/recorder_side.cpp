#include "recorder_side.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "camera/wire/des.h"

namespace lenswire::test {
namespace {

Bytes encrypted(const Bytes& clear, const Bytes& key) {
    Bytes result;
    camera::DesBlock key_block;
    std::copy_n(key.begin(), 8, key_block.begin());
    for (size_t at = 0; at < clear.size(); at += 8) {
        camera::DesBlock block;
        std::copy_n(clear.begin() + static_cast<ptrdiff_t>(at), 8, block.begin());
        const auto done = camera::des_encrypt(block, key_block);
        result.insert(result.end(), done.begin(), done.end());
    }
    return result;
}

Bytes padded(const std::string& text) {
    Bytes field = bytes_of(text);
    field.resize(32);
    return field;
}

}  // namespace

Wire connect_to(const camera::Camera& camera) {
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(camera.port());
    inet_pton(AF_INET, camera.address().c_str(), &name.sin_addr);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<sockaddr*>(&name), sizeof name) == 0) return Wire(fd);
    close(fd);
    return {};
}

void Session::sends(uint16_t code, Bytes payload) {
    wire.sends(command(code, std::move(payload), 0, login_id));
}

Message Session::asks(uint16_t code, Bytes payload) {
    sends(code, std::move(payload));
    return wire.reads_command();
}

Session log_in(const camera::Camera& camera, const std::string& user, const std::string& password) {
    Session session{.wire = connect_to(camera)};
    session.wire.sends(command(0x0101));
    const Bytes serial = slice(session.wire.reads_command().payload, 0, 8);
    session.wire.sends(command(0x0000, padded(user) + encrypted(padded(password), serial) + repeated(0, 4) +
                                           encrypted(serial, serial)));
    const Message answer = session.wire.reads_command();
    EXPECT_EQ(answer.command, 0x0000);
    session.login_id = answer.login_id;
    session.state = answer.state;
    return session;
}

Wire open_stream(const camera::Camera& camera, const Session& session, uint8_t stream, uint8_t channel) {
    Wire wire = connect_to(camera);
    wire.sends(command(0x0102, {channel, stream, 0, 0}, 0, session.login_id));
    const Message answer = wire.reads_command();
    EXPECT_EQ(answer.command, 0x0102);
    EXPECT_EQ(answer.state, 0);
    EXPECT_EQ(answer.payload.size(), 32U);
    return wire;
}

ReadPacket read_packet(Wire& wire) {
    ReadPacket packet{.head = wire.reads(32), .payload = {}};
    packet.head.resize(32);
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

camera::CameraConfig small_streams(uint64_t frames) {
    camera::CameraConfig config;
    for (auto& stream : config.streams) {
        stream.synthetic = camera::Synthetic{.mbit = 0.05, .gop = 5, .key_ratio = 3};
        stream.pace = camera::Pace::kUnpaced;
        stream.max_frames = frames;
    }
    return config;
}

}  // namespace lenswire::test
