#include "privateConfigure/pending_requests.h"

#include <arpa/inet.h>
#include <sys/time.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "common/lock.h"
#include "common/log.h"
#include "common/wire.h"
#include "lenswire/host_services.h"

using namespace lenswire;

RecvSendSlot g_recvsendlist[128];
int32_t g_rs_num;

namespace {

constexpr int kSlots = 128;

// g_recvsendlist_mutex guards g_recvsendlist, g_rs_num and the side table below, but for two things: each
// slot's own mutex guards its ucPosted and ulErrFlag, and a slot that is taken but not yet ready belongs to
// the thread that prepares it, since memory comes from the host outside the lock. Host threads take and
// release slots, the event loop matches answers to them.
//
// The two kinds of mutex are never held together: who posts pins the slot, lets go of the table and then
// posts; a release first makes the slot unready and then waits until nobody has it pinned.
pthread_mutex_t g_recvsendlist_mutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t g_unpinned = PTHREAD_COND_INITIALIZER;

struct SlotSide {
    bool ready;      // may be matched
    bool answered;   // an answer's bytes are in recvData
    uint32_t takes;  // tells one owner of the slot from the next
    int pins;
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

// Pins the slot unless it has been released since it was taken for the `takes`th time.
bool pin_same(int index, uint32_t takes) {
    Lock table(g_recvsendlist_mutex);
    SlotSide& side = g_side[index];
    if (!side.ready || side.takes != takes) return false;
    ++side.pins;
    return true;
}

void unpin(int index) {
    Lock table(g_recvsendlist_mutex);
    if (--g_side[index].pins == 0) pthread_cond_broadcast(&g_unpinned);
}

// Only the first answer counts. The slot is pinned, or not in the table.
void post(RecvSendSlot* slot, uint32_t error) {
    Lock own(slot->mutex);
    if (slot->ucPosted != 0) return;
    slot->ulErrFlag = error;
    slot->ucPosted = 1;
    pthread_cond_signal(&slot->cond);
}

int pin_and_post(RecvSendSlot* slot, uint32_t error) {
    const SlotSide* side = side_of(slot);
    if (side == nullptr) {
        post(slot, error);
        return 0;
    }
    Lock table(g_recvsendlist_mutex);
    const uint32_t takes = side->takes;
    table.unlock();
    const auto index = static_cast<int>(slot - g_recvsendlist);
    if (!pin_same(index, takes)) return -1;
    post(slot, error);
    unpin(index);
    return 0;
}

timespec deadline_after(int seconds) {
    constexpr int kLongestWait = 10'000'000;  // keeps the deadline within a 32-bit clock
    seconds = std::min(seconds, kLongestWait);
    timeval now;
    gettimeofday(&now, nullptr);
    return {.tv_sec = now.tv_sec + seconds, .tv_nsec = static_cast<long>(now.tv_usec) * 1000};
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
        ++g_side[i].takes;
        ++g_rs_num;
        return i;
    }
    return kSlots;
}

void give_back_unprepared(int index) {
    Lock table(g_recvsendlist_mutex);
    g_recvsendlist[index].ulInUse = 0;
    if (g_rs_num > 0) --g_rs_num;
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
        give_back_unprepared(index);
        return nullptr;
    }
    std::memset(buffer, 0, MAX_CMD_SIZE);

    Lock table(g_recvsendlist_mutex);
    pthread_mutex_init(&slot->mutex, nullptr);
    pthread_cond_init(&slot->cond, nullptr);
    slot->recvData = buffer;
    slot->ulCmd = cmd;
    slot->ulIpAddr = ip;
    slot->ucPosted = 0;
    slot->ulErrFlag = 0;
    g_side[index].answered = false;
    g_side[index].ready = true;
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

int Prv_cmd_Init(void) {
    return pthread_mutex_init(&g_recvsendlist_mutex, nullptr);
}

int Prv_cmd_Delectl(void) {
    return pthread_mutex_destroy(&g_recvsendlist_mutex);
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
    for (int attempt = 0; attempt < attempts; ++attempt) {
        RecvSendSlot* slot = Init_Cond_Msg(cmd, reserved, ip);
        if (slot == nullptr || is_slot(slot)) return slot;
        DUMP("###############please wait*********************");
        sleep(1);
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
        const timespec deadline = deadline_after(seconds);
        const int result = pthread_cond_timedwait(&slot->cond, &slot->mutex, &deadline);
        if (result == ETIMEDOUT) {
            own.unlock();
            DUMP("pthread_cond_timedwait time out");
            return -1;
        }
    }
    return slot->ulErrFlag == 1 ? -1 : 0;
}

int cond_post(RecvSendSlot* slot) {
    if (is_slot(slot)) return pin_and_post(slot, 0);
    PRI_LOG("input para error\n\n");
    return -1;
}

int cond_post_error(RecvSendSlot* slot) {
    if (is_slot(slot)) return pin_and_post(slot, 1);
    PRI_LOG("input para error\n\n");
    return -1;
}

int prv_destroy_msg(RecvSendSlot* slot) {
    SlotSide* side = side_of(slot);
    if (side == nullptr) {
        PRI_LOG("input param error \n");
        return -1;
    }
    Lock table(g_recvsendlist_mutex);
    side->ready = false;
    while (side->pins > 0) table.wait(g_unpinned);
    uint8_t* buffer = slot->recvData;
    if (buffer != nullptr) {
        slot->recvData = nullptr;
        pthread_mutex_destroy(&slot->mutex);
        pthread_cond_destroy(&slot->cond);
    }
    slot->ulInUse = 0;
    slot->ulCmd = 0;
    slot->ucPosted = 0;
    slot->ulErrFlag = 0;
    if (g_rs_num > 0) --g_rs_num;
    table.unlock();
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
    const int index = wire::is_over_long(header) ? kSlots : find_waiting(header.usCmd, ip);
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
    ++g_side[index].pins;
    table.unlock();
    post(slot, 0);
    unpin(index);
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
    const uint32_t takes = index < kSlots ? g_side[index].takes : 0;
    const int stale = count_unready(header.usCmd, ip, index);
    table.unlock();

    for (int i = 0; i < stale; ++i) PRI_LOG("pCmd->usCmd %x match cmd error  \n", header.usCmd);
    if (index == kSlots) {
        DUMP("*****************recv data is error j=%d,pCmd->usCmd=%x,pCmd->ucState =%x,ip=%s", kSlots,
             header.usCmd, header.ucState, address.text);
        return -1;
    }
    DUMP("************cmd %x state %x is error ip is %s", header.usCmd, header.ucState, address.text);
    if (!pin_same(index, takes)) return -1;
    post(&g_recvsendlist[index], 1);
    unpin(index);
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
