// What the configuration operations need of the pending-request table beyond its exported functions.
#pragma once

#include <cstdint>
#include <span>

#include "lenswire/command.h"

namespace lenswire::pending {

// Puts the request at the start of the slot's buffer, where an answer without payload leaves it, unless an
// answer has been posted already.
void store_request(RecvSendSlot* slot, std::span<const uint8_t> request);

// Copies the slot's whole buffer out; no answer is written into it meanwhile.
void copy_answer(RecvSendSlot* slot, std::span<uint8_t, MAX_CMD_SIZE> out);

// A taken slot, given back at the end of its scope. Taking may fail; giving nothing back is reported by
// the table like any other null slot.
class Slot {
  public:
    Slot(int command, int attempts, uint32_t ip) : slot_(Prv_PacketMsg(command, 0, attempts, ip)) {}
    ~Slot() { prv_destroy_msg(slot_); }
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;

    explicit operator bool() const { return slot_ != nullptr; }
    RecvSendSlot* get() const { return slot_; }

  private:
    RecvSendSlot* slot_;
};

}  // namespace lenswire::pending
