#include <sys/select.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <span>

#include "common/log.h"
#include "common/shared_word.h"
#include "common/timer_slack.h"
#include "common/wire.h"
#include "lenswire/command.h"
#include "lenswire/connection.h"
#include "lenswire/motion.h"
#include "pteClient/client_table.h"
#include "pteClient/message_cutter.h"

using namespace lenswire;
using namespace lenswire::clients;

namespace {

constexpr suseconds_t kWaitUs = 1'000;
constexpr unsigned kErrorPause_s = 1;
constexpr useconds_t kPassPauseUs = 1'000;

// The clients of one pass. Watching a client pins it until the wait is over, so its descriptor stays the
// one that was watched.
struct WatchList {
    struct Entry {
        Ref ref;
        int fd;
    };
    std::array<Entry, kClients> entries;
    int count = 0;
    int largest = -1;
    fd_set readable;
    fd_set broken;
};

bool is_readable(const ClientSlot& slot) {
    const int fd = load_word(slot.client.sockFd);
    return load_word(slot.client.ucClientState) == PC_STATE_READY && fd > 0 && fd < FD_SETSIZE &&
           !slot.hung_up;
}

void watch_ready_clients(WatchList& list) {
    FD_ZERO(&list.readable);
    FD_ZERO(&list.broken);
    Lock lock(g_cmdclient_mutex);
    for (ClientSlot& slot : g_cmdclientlist) {
        if (!is_taken(slot) || !is_readable(slot)) continue;
        const int fd = load_word(slot.client.sockFd);
        pin(slot);
        FD_SET(fd, &list.readable);
        FD_SET(fd, &list.broken);
        list.largest = std::max(list.largest, fd);
        list.entries[static_cast<size_t>(list.count++)] = {{&slot.client, &slot, slot.generation}, fd};
    }
}

// The end of this wait may come late, an answer wakes it; the pause between two passes is kept exactly.
int wait_for_data(WatchList& list) {
    const TimerSlack slack(kIdleSlackUs);
    fd_set writable;
    FD_ZERO(&writable);
    timeval wait{.tv_sec = 0, .tv_usec = kWaitUs};
    return select(list.largest + 1, &list.readable, &writable, &list.broken, &wait);
}

void stop_watching(const WatchList& list) {
    for (int i = 0; i < list.count; ++i) unpin(*list.entries[static_cast<size_t>(i)].ref.slot);
}

// What one read of a client brought: the whole messages, or the length of an over-long one.
struct Received {
    bool ok = false;
    uint32_t address = 0;
    std::span<const uint8_t> messages;
    FrontMessage over_long{};
    uint16_t over_long_command = 0;
};

// Reads what the socket holds behind the kept bytes and keeps the incomplete rest.
Received receive(const Ref& ref, std::span<uint8_t, 2 * MAX_CMD_SIZE> work) {
    Received received;
    const Pin pin(ref);
    if (!pin || !is_readable(*ref.slot)) return received;
    CmdClient& client = *ref.client;
    const size_t kept = std::min<size_t>(client.ulRecvRemainLen, MAX_CMD_SIZE - 1);
    int length = MAX_CMD_SIZE;
    const int result = PC_RecvCmd1(load_word(client.sockFd), work.data() + kept, &length);
    if (result < 0) ref.slot->hung_up = true;
    if (result != 0) return received;

    std::memcpy(work.data(), client.aucRecvRemain, kept);
    client.ulRecvRemainLen = 0;
    received.ok = true;
    received.address = client.ulIpAddr;
    const std::span<const uint8_t> bytes = work.first(kept + static_cast<size_t>(length));
    const Cut cut = cut_messages(bytes);
    const std::span<const uint8_t> rest = bytes.subspan(cut.whole_bytes);
    if (cut.rest.kind == Front::kOverLong) {
        received.over_long = cut.rest;
        received.over_long_command = wire::load_header(rest.data()).usCmd;
        return received;
    }
    std::memcpy(client.aucRecvRemain, rest.data(), rest.size());
    client.ulRecvRemainLen = static_cast<uint32_t>(rest.size());
    received.messages = bytes.first(cut.whole_bytes);
    return received;
}

// Login bookkeeping in the client itself; a client that is gone keeps nothing.
void update_client(const Ref& ref, const uint8_t* message) {
    Lock lock(g_cmdclient_mutex);
    if (!is_alive(ref)) return;
    const PrivateCmd header = wire::load_header(message);
    if (header.usCmd == LENSWIRE_CMD_LOGIN) {
        store_word(ref.client->ulLoginId, uint32_t{header.ulLoginId});
    } else {
        using SerialNum = std::array<uint8_t, LENSWIRE_SERIAL_SIZE>;
        wire::store(ref.client->serialNum, wire::load_padded<SerialNum>(wire::payload(message)));
    }
}

int dispatch(const Ref& ref, uint32_t address, const uint8_t* message, int last) {
    const PrivateCmd header = wire::load_header(message);
    switch (header.usCmd) {
        case LENSWIRE_CMD_HEARTBEAT:
        case LENSWIRE_CMD_STREAM:
            return last;
        case LENSWIRE_CMD_MOTION_PUSH:
            Prv_IPCTriggingMtionDetetion(message, address);
            return last;
        case LENSWIRE_CMD_LOGIN:
        case LENSWIRE_CMD_SERIAL:
            update_client(ref, message);
            return last;
        default:
            break;
    }
    const int result = Private_Protocol_RecvProcess(message, address);
    if (result < 0) {
        PRIVATE_LOG_AS("PC_ReciveCmd", "pCmd->usCmd=%x,pCmd->ucState=%d\n", header.usCmd, header.ucState);
    }
    return result;
}

// Reads and hands on what one client's socket holds. The receivers run without any lock, so the host may
// free the client or bind it anew meanwhile: what is left of the old camera is then dropped.
int PC_ReciveCmd(const Ref& ref) {
    uint8_t work[2 * MAX_CMD_SIZE] = {};
    const Received received = receive(ref, work);
    if (!received.ok) return -1;
    if (received.over_long.kind == Front::kOverLong) {
        std::fprintf(stderr, "#############channel ip:0x%08x,recv cmd:0x%x size:%u(max cmd size is %u)\n",
                     received.address, received.over_long_command,
                     static_cast<unsigned>(std::min<uint64_t>(received.over_long.length, UINT32_MAX)),
                     MAX_CMD_SIZE);
        return 0;
    }
    int last = 0;
    for (std::span<const uint8_t> rest = received.messages; !rest.empty() && still_alive(ref);) {
        last = dispatch(ref, received.address, rest.data(), last);
        rest = rest.subspan(static_cast<size_t>(front_message(rest).length));
    }
    return last;
}

}  // namespace

void PC_SingleStep(void) {
    WatchList list;
    watch_ready_clients(list);
    const int ready = wait_for_data(list);
    stop_watching(list);
    if (ready < 0) sleep(kErrorPause_s);
    if (ready <= 0) return;
    for (int i = 0; i < list.count; ++i) {
        const WatchList::Entry& entry = list.entries[static_cast<size_t>(i)];
        if (FD_ISSET(entry.fd, &list.readable)) PC_ReciveCmd(entry.ref);
    }
}

void PC_EventLoop(void) {
    while (load_word(PC_G_EventLoopSwitch) != 0) {
        PC_SingleStep();
        usleep(kPassPauseUs);
    }
}
