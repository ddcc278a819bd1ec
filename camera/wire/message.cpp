#include "camera/wire/message.h"

#include <algorithm>
#include <utility>

#include "lenswire/protocol.h"

namespace lenswire::camera {

uint32_t announced_length(const Command& command) {
    return command.buffer_size * command.buffer_num;
}

Command parse_header(std::span<const uint8_t> bytes) {
    const uint8_t* at = bytes.data();
    Command command;
    command.flag = get_u16(at);
    command.tag1 = at[2];
    command.tag2 = at[3];
    command.code = get_u16(at + 4);
    command.state = get_u16(at + 6);
    command.login_id = get_u32(at + 8);
    command.buffer_size = get_u32(at + 12);
    command.buffer_num = get_u32(at + 16);
    command.reserved_clear = std::all_of(at + 20, at + ARG_HEAD_LEN, [](uint8_t byte) { return byte == 0; });
    return command;
}

void CommandReader::add(std::span<const uint8_t> bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
}

std::optional<Command> CommandReader::header() const {
    if (bytes_.size() < ARG_HEAD_LEN) return std::nullopt;
    return parse_header(bytes_);
}

std::optional<Command> CommandReader::take() {
    auto command = header();
    if (!command) return std::nullopt;
    const size_t whole = size_t{ARG_HEAD_LEN} + announced_length(*command);
    if (bytes_.size() < whole) return std::nullopt;
    command->payload.assign(bytes_.begin() + ARG_HEAD_LEN, bytes_.begin() + static_cast<ptrdiff_t>(whole));
    bytes_.erase(bytes_.begin(), bytes_.begin() + static_cast<ptrdiff_t>(whole));
    return command;
}

Bytes CommandReader::take_rest() {
    Bytes rest(bytes_.begin() + ARG_HEAD_LEN, bytes_.end());
    bytes_.clear();
    return rest;
}

Command answer_to(const Command& request, Bytes payload, uint16_t state) {
    Command answer;
    answer.code = request.code;
    answer.state = state;
    answer.login_id = request.login_id;
    answer.buffer_size = static_cast<uint32_t>(payload.size());
    answer.buffer_num = payload.empty() ? 0 : 1;
    answer.payload = std::move(payload);
    return answer;
}

Bytes to_bytes(const Command& command) {
    Bytes bytes(ARG_HEAD_LEN + command.payload.size());
    put_u16(&bytes[0], command.flag);
    bytes[2] = command.tag1;
    bytes[3] = command.tag2;
    put_u16(&bytes[4], command.code);
    put_u16(&bytes[6], command.state);
    put_u32(&bytes[8], command.login_id);
    put_u32(&bytes[12], command.buffer_size);
    put_u32(&bytes[16], command.buffer_num);
    std::copy(command.payload.begin(), command.payload.end(), bytes.begin() + ARG_HEAD_LEN);
    return bytes;
}

}  // namespace lenswire::camera
