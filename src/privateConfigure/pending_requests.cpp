#include "privateConfigure/pending_requests.h"

#include <arpa/inet.h>
#include <unistd.h>
#include <atomic>
#include <cstring>
#include <ctime>
#include <utility>

#include "common/lock.h"
#include "common/log.h"
#include "common/stop.h"
#include "common/wire.h"
#include "lenswire/host_services.h"

using namespace lenswire;

RecvSendSlot g_recvsendlist[128];
int32_t g_rs_num;

namespace {

constexpr int kSlots = 128;
constexpr int kFullTablePauseMs = 1'000;  // a get of another thread takes about as long

// g_recvsendlist_mutex guards g_recvsendlist, g_rs_num and the side table below, but for two things: each
// slot's own mutex guards its ucPosted and ulErrFlag, and a slot that is taken but not yet ready belongs to
// the thread that prepares it, since memory comes from the host outside the lock. Host threads take and
// release slots, the event loop matches answers to them.
//
// The two kinds of mutex are never held together: who posts notes how often the slot has been released, lets
// go of the table and posts if that is still so. A slot's mutex and condition are made once and stay, so
// whoever posts to a slot that is being released finds them in place.
pthread_mutex_t g_recvsendlist_mutex = PTHREAD_MUTEX_INITIALIZER;

struct SlotSide {
    bool made;      // mutex and condition
    bool ready;     // may be matched
    bool answered;  // an answer's bytes are in recvData
    // Tells one owner of the slot from the next. Written under the table's lock; read under the slot's, too.
    std::atomic<uint32_t> releases;
};
SlotSide g_side[kSlots];

struct DottedAddress {
    explicit DottedAddress(uint32_t ip) { inet_ntop(AF_INET, &ip, text, sizeof text); }
    char text[INET_ADDRSTRLEN];
};

bool is_slot(const RecvSendSlot* slot) {
    const auto* const table_full = reinterpret_cast<const RecvSendSlot*>(1);
    return slot != nullptr && slot != table_full;
}

SlotSide* side_of(const RecvSendSlot* slot) {
    const bool in_table = slot >= g_recvsendlist && slot < g_recvsendlist + kSlots;
    return in_table ? &g_side[slot - g_recvsendlist] : nullptr;
}

// The first slot in table order that awaits this command from this camera; kSlots when there is none.
// Under the table's lock.
int find_waiting(uint16_t command, uint32_t ip) {
    for (int i = 0; i < kSlots; ++i) {
        const RecvSendSlot& slot = g_recvsendlist[i];
        if (g_side[i].ready && slot.ulCmd == command && slot.ulIpAddr == ip) return i;
    }
    return kSlots;
}

// How many slots before `end` carry the keys and may not be matched. Under the table's lock.
int count_unready(uint16_t command, uint32_t ip, int end) {
    int count = 0;
    for (int i = 0; i < end; ++i) {
        if (g_recvsendlist[i].ulCmd == command && g_recvsendlist[i].ulIpAddr == ip) ++count;
    }
    return count;
}

// Posts to a slot unless it has been released again. Only the first answer counts; whoever waits finds the
// mutex free when it wakes. A slot outside the table is never released.
bool post(RecvSendSlot* slot, uint32_t releases, uint32_t error) {
    const SlotSide* side = side_of(slot);
    {
        Lock own(slot->mutex);
        if (side != nullptr && side->releases != releases) return false;
        if (slot->ucPosted != 0) return true;
        slot->ulErrFlag = error;
        slot->ucPosted = 1;
    }
    pthread_cond_signal(&slot->cond);
    return true;
}

int post_to_owner(RecvSendSlot* slot, uint32_t error) {
    uint32_t releases = 0;
    if (const SlotSide* side = side_of(slot); side != nullptr) {
        Lock table(g_recvsendlist_mutex);
        if (!side->ready) return -1;
        releases = side->releases;
    }
    return post(slot, releases, error) ? 0 : -1;
}

// On the monotonic clock, which nobody sets. False when it cannot be read.
bool deadline_after(int seconds, timespec& deadline) {
    constexpr int kLongestWait = 10'000'000;  // keeps the deadline within the 32-bit clock of an old kernel
    if (clock_gettime(CLOCK_MONOTONIC, &deadline) != 0) return false;
    deadline.tv_sec += std::min(seconds, kLongestWait);
    return true;
}

// Waits once. False at the deadline, and at once when it cannot be waited for until then.
bool wait_for_post(RecvSendSlot* slot, int seconds) {
    timespec deadline{};
    return deadline_after(seconds, deadline) &&
           pthread_cond_clockwait(&slot->cond, &slot->mutex, CLOCK_MONOTONIC, &deadline) == 0;
}

// Takes a free slot: its index, kSlots when none is free although the count allows one, or -1 when the
// table is full.
int take_free_slot(int& taken) {
    Lock table(g_recvsendlist_mutex);
    taken = g_rs_num;
    if (g_rs_num >= kSlots) return -1;
    for (int i = 0; i < kSlots; ++i) {
        if (g_recvsendlist[i].ulInUse != 0) continue;
        g_recvsendlist[i].ulInUse = 1;
        ++g_rs_num;
        return i;
    }
    return kSlots;
}

void give_back(RecvSendSlot* slot) {
    Lock table(g_recvsendlist_mutex);
    slot->ulInUse = 0;
    if (g_rs_num > 0) --g_rs_num;
}

// Takes a slot out of the matcher's sight, and posts that are under way lose their owner. Its buffer is the
// caller's.
uint8_t* withdraw(RecvSendSlot* slot, SlotSide& side) {
    Lock table(g_recvsendlist_mutex);
    side.ready = false;
    ++side.releases;
    slot->ulCmd = 0;
    return std::exchange(slot->recvData, nullptr);
}

// Gives a taken slot its buffer and keys and lets it be matched. Without memory it is free again: null.
RecvSendSlot* prepare(int index, uint32_t cmd, uint32_t ip) {
    RecvSendSlot* slot = &g_recvsendlist[index];
    if (slot->recvData != nullptr) {
        PRI_LOG_AS("Init_Cond_Msg", "data pointer is not null g_recvsendlist[%d].recvData =%p\n\n", index,
                   static_cast<void*>(slot->recvData));
        MeFree(slot->recvData, LENSWIRE_LAYER_CONFIGURE, __LINE__);
        slot->recvData = nullptr;
    }
    auto* buffer = static_cast<uint8_t*>(MeMalloc(MAX_CMD_SIZE, LENSWIRE_LAYER_CONFIGURE, __LINE__));
    if (buffer == nullptr) {
        PRI_LOG_AS("Init_Cond_Msg", "MeMalloc failed \n\n");
        give_back(slot);
        return nullptr;
    }
    std::memset(buffer, 0, MAX_CMD_SIZE);

    Lock table(g_recvsendlist_mutex);
    SlotSide& side = g_side[index];
    if (!side.made) {
        pthread_mutex_init(&slot->mutex, nullptr);
        pthread_cond_init(&slot->cond, nullptr);
        side.made = true;
    }
    slot->recvData = buffer;
    slot->ulCmd = cmd;
    slot->ulIpAddr = ip;
    side.answered = false;
    side.ready = true;
    return slot;
}

}  // namespace

namespace lenswire::pending {

void store_request(RecvSendSlot* slot, std::span<const uint8_t> request) {
    Lock table(g_recvsendlist_mutex);
    const SlotSide* side = side_of(slot);
    if (side == nullptr || side->answered || request.size() > MAX_CMD_SIZE) return;
    std::memcpy(slot->recvData, request.data(), request.size());
}

void copy_answer(RecvSendSlot* slot, std::span<uint8_t, MAX_CMD_SIZE> out) {
    Lock table(g_recvsendlist_mutex);
    std::memcpy(out.data(), slot->recvData, out.size());
}

}  // namespace lenswire::pending

// The lock is made with the library and stays, since a late caller may be waiting for it.
int Prv_cmd_Init(void) {
    return 0;
}

int Prv_cmd_Delectl(void) {
    return 0;
}

RecvSendSlot* Init_Cond_Msg(int cmd, int reserved, uint32_t ip) {
    if (cmd < 0 || reserved < 0) {
        PRI_LOG("Init_Cond_Msg input paramters error\n");
        return nullptr;
    }
    int taken = 0;
    const int index = take_free_slot(taken);
    if (index < 0) {
        DUMP("g_recvsenddata is full,add again \n");
        return reinterpret_cast<RecvSendSlot*>(1);
    }
    if (index == kSlots) {
        DUMP("Init_Cond_Msg invild  j=%d,g_rs_num =%d\n", kSlots, taken);
        return nullptr;
    }
    return prepare(index, static_cast<uint32_t>(cmd), ip);
}

RecvSendSlot* Prv_PacketMsg(int cmd, int reserved, int attempts, uint32_t ip) {
    if (cmd < 0 || reserved < 0 || attempts < 0) {
        PRI_LOG("input para error\n");
        return nullptr;
    }
    const RunningContext context;
    for (int attempt = 0; attempt < attempts; ++attempt) {
        RecvSendSlot* slot = Init_Cond_Msg(cmd, reserved, ip);
        if (slot == nullptr || is_slot(slot)) return slot;
        DUMP("###############please wait*********************");
        pause(context, kFullTablePauseMs);
    }
    PRI_LOG("###############cond init error time =%d\n", attempts);
    return nullptr;
}

int Prv_GetCond_Property(RecvSendSlot* slot, int seconds) {
    if (!is_slot(slot) || seconds < 0) {
        PRI_LOG("input para error\n\n");
        return -1;
    }
    Lock own(slot->mutex);
    while (slot->ucPosted == 0) {
        if (wait_for_post(slot, seconds)) continue;
        own.unlock();
        DUMP("pthread_cond_timedwait time out");
        return -1;
    }
    return slot->ulErrFlag == 1 ? -1 : 0;
}

int cond_post(RecvSendSlot* slot) {
    if (is_slot(slot)) return post_to_owner(slot, 0);
    PRI_LOG("input para error\n\n");
    return -1;
}

int cond_post_error(RecvSendSlot* slot) {
    if (is_slot(slot)) return post_to_owner(slot, 1);
    PRI_LOG("input para error\n\n");
    return -1;
}

int prv_destroy_msg(RecvSendSlot* slot) {
    SlotSide* side = side_of(slot);
    if (side == nullptr) {
        PRI_LOG("input param error \n");
        return -1;
    }
    uint8_t* buffer = withdraw(slot, *side);
    if (buffer != nullptr) {
        Lock own(slot->mutex);
        slot->ucPosted = 0;
        slot->ulErrFlag = 0;
    }
    give_back(slot);
    if (buffer != nullptr) MeFree(buffer, LENSWIRE_LAYER_CONFIGURE, __LINE__);
    return 0;
}

int Prv_CmdStaRgt(const void* message, uint32_t ip) {
    if (message == nullptr) {
        PRI_LOG("input param error\n");
        return -1;
    }
    const PrivateCmd header = wire::load_header(message);
    Lock table(g_recvsendlist_mutex);
    const int index = find_waiting(header.usCmd, ip);
    if (index == kSlots) {
        table.unlock();
        PRI_LOG("recv data  j=%d,pCmd->usCmd=%x,pCmd->ucState =%x,ip=%s\n", kSlots, header.usCmd,
                header.ucState, DottedAddress(ip).text);
        return -1;
    }
    RecvSendSlot* slot = &g_recvsendlist[index];
    if (wire::payload_length(header) != 0 && slot->recvData != nullptr) {
        std::memcpy(slot->recvData, message, ARG_HEAD_LEN + wire::payload(message).size());
        g_side[index].answered = true;
    }
    const uint32_t releases = g_side[index].releases;
    table.unlock();
    post(slot, releases, 0);
    return 0;
}

int Prv_CmdStaErr(const void* message, uint32_t ip) {
    if (message == nullptr) {
        PRI_LOG("input param error\n");
        return -1;
    }
    const PrivateCmd header = wire::load_header(message);
    const DottedAddress address(ip);
    Lock table(g_recvsendlist_mutex);
    const int index = find_waiting(header.usCmd, ip);
    const uint32_t releases = index < kSlots ? g_side[index].releases.load() : 0;
    const int stale = count_unready(header.usCmd, ip, index);
    table.unlock();

    for (int i = 0; i < stale; ++i) PRI_LOG("pCmd->usCmd %x match cmd error  \n", header.usCmd);
    if (index == kSlots) {
        DUMP("*****************recv data is error j=%d,pCmd->usCmd=%x,pCmd->ucState =%x,ip=%s", kSlots,
             header.usCmd, header.ucState, address.text);
        return -1;
    }
    DUMP("************cmd %x state %x is error ip is %s", header.usCmd, header.ucState, address.text);
    post(&g_recvsendlist[index], releases, 1);
    return -1;
}

int Private_Protocol_RecvProcess(const void* message, uint32_t ip) {
    if (message == nullptr || ip == 0) {
        PRI_LOG("input param error\n");
        return -1;
    }
    const PrivateCmd header = wire::load_header(message);
    const bool good_second_state = header.ucState == 2 && header.usCmd == LENSWIRE_CMD_STATE2_IS_GOOD;
    if (good_second_state) PRI_LOG("************state is %d\n", header.ucState);
    if (header.ucState == 0 || good_second_state) {
        Prv_CmdStaRgt(message, ip);
    } else {
        Prv_CmdStaErr(message, ip);
    }
    return 0;
}
