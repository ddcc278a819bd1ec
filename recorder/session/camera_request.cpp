#include "recorder/session/camera_request.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace lenswire::recorder {
namespace {

constexpr int kSlotAttempts = 5;
constexpr int kSendAttempts = 20;
constexpr int kAnswerSeconds = 10;

}  // namespace

std::optional<Bytes> request(const Plugin& library, uint32_t ip, uint16_t command, size_t size) {
    RecvSendSlot* slot = library.Prv_PacketMsg(command, 0, kSlotAttempts, ip);
    if (slot == nullptr) return std::nullopt;
    const auto release = [&library](RecvSendSlot* taken) { library.prv_destroy_msg(taken); };
    const std::unique_ptr<RecvSendSlot, decltype(release)> owner(slot, release);
    // Built here and not in the slot: an answer to an earlier request may come into it at any moment.
    uint8_t message[MAX_CMD_SIZE] = {};
    PrivateCmd header{};
    library.cmd_packet(&header, command, 1, static_cast<int>(size));
    std::memcpy(message, &header, sizeof header);
    if (library.Prv_Send_Cmd(ip, message, message, kSendAttempts) != 0) return std::nullopt;
    if (library.Prv_GetCond_Property(slot, kAnswerSeconds) != 0) return std::nullopt;
    std::memcpy(&header, slot->recvData, sizeof header);
    if (header.ulFlag != LENSWIRE_FLAG_COMMAND) return std::nullopt;
    Bytes payload(size);
    const size_t room = MAX_CMD_SIZE - ARG_HEAD_LEN;
    std::memcpy(payload.data(), slot->recvData + ARG_HEAD_LEN, std::min(size, room));
    return payload;
}

}  // namespace lenswire::recorder
