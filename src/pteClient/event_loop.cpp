// What logged-in cameras send: whatever is there is read, cut into messages, and handed on. Never sends,
// never waits for a lock that is held across a call, and never changes a client's state.
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <cerrno>
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
#include "pteClient/waits.h"
#include "pteClient/wake_up.h"

using namespace lenswire;
using namespace lenswire::clients;

namespace {

// The clients of one pass. Watching a client pins it until the wait is over, so its descriptor stays the
// one that was watched.
struct WatchList {
    struct Entry {
        Ref ref;
        int fd;
    };
    std::array<Entry, kClients> all;
    int count = 0;
    int largest = -1;
    fd_set readable;
    fd_set broken;

    std::span<const Entry> entries() const { return {all.data(), static_cast<size_t>(count)}; }
};

// The descriptor to read the client from; 0 when it is not to be read.
int readable_descriptor(const ClientSlot& slot) {
    const int fd = load_word(slot.client.sockFd);
    const bool ready = load_word(slot.client.ucClientState) == PC_STATE_READY;
    return ready && fd > 0 && fd < FD_SETSIZE && slot.hung_up != fd ? fd : 0;
}

void watch_ready_clients(WatchList& list) {
    FD_ZERO(&list.readable);
    FD_ZERO(&list.broken);
    Lock lock(g_cmdclient_mutex);
    for (ClientSlot& slot : g_cmdclientlist) {
        const int fd = is_taken(slot) ? readable_descriptor(slot) : 0;
        if (fd == 0) continue;
        pin(slot);
        FD_SET(fd, &list.readable);
        FD_SET(fd, &list.broken);
        list.largest = std::max(list.largest, fd);
        list.all[static_cast<size_t>(list.count++)] = {{&slot.client, &slot, slot.generation}, fd};
    }
}

// A host's own pass has no wake-up, and ends its wait in time: a wake-up that it took would be missed by the
// event loop.
int wait_for_data(WatchList& list, WakeUp* wake_up) {
    const bool wakes = wake_up != nullptr && wake_up->is_open();
    if (wakes) list.largest = std::max(list.largest, wake_up->watch(list.readable));
    fd_set writable;
    FD_ZERO(&writable);
    timeval wait{.tv_sec = 0, .tv_usec = waits::kSelectUs};
    const TimerSlack slack(wakes ? waits::kSelectLateUs : 0);
    const int ready = select(list.largest + 1, &list.readable, &writable, &list.broken, &wait);
    if (ready > 0 && wakes) wake_up->take(list.readable);
    return ready;
}

// A descriptor that the host closed makes every select fail. Its client is not watched any more.
void leave_closed_descriptors(const WatchList& list) {
    for (const WatchList::Entry& entry : list.entries()) {
        if (fcntl(entry.fd, F_GETFD) < 0) entry.ref.slot->hung_up = entry.fd;
    }
    g_event_loop_wake_up.forget_if_closed();
}

void stop_watching(const WatchList& list) {
    for (const WatchList::Entry& entry : list.entries()) unpin(*entry.ref.slot);
}

// The end of the library does not wait for the pause; other wake-ups end it, too.
void pause_after_error(WakeUp* wake_up) {
    if (wake_up != nullptr) {
        wake_up->wait(waits::kErrorPause_s);
    } else {
        sleep(waits::kErrorPause_s);
    }
}

// Takes a byte of urgent data out of the way: it is no part of the protocol, and as long as it is there the
// socket counts as broken and no select waits.
void drop_urgent_data(const WatchList::Entry& entry) {
    const Pin pin(entry.ref);
    if (!pin || load_word(entry.ref.client->sockFd) != entry.fd) return;
    uint8_t byte;
    (void)!recv(entry.fd, &byte, sizeof byte, MSG_OOB | MSG_DONTWAIT);
}

// Claims a client for one read: its kept bytes belong to one reader at a time, should a host make passes
// of its own beside the event loop.
class Claim {
  public:
    explicit Claim(ClientSlot& slot) : slot_(slot), mine_(!slot.claimed.exchange(true)) {}
    ~Claim() {
        if (mine_) slot_.claimed = false;
    }
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;
    explicit operator bool() const { return mine_; }

  private:
    ClientSlot& slot_;
    bool mine_;
};

// The system was short of memory for a moment; the connection is as good as before.
bool is_passing(int error) {
    return error == ENOMEM || error == ENOBUFS;
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
    if (!pin) return received;
    const Claim claim(*ref.slot);
    const int fd = readable_descriptor(*ref.slot);
    if (!claim || fd == 0) return received;
    CmdClient& client = *ref.client;
    const size_t kept = std::min<size_t>(client.ulRecvRemainLen, MAX_CMD_SIZE - 1);
    int length = MAX_CMD_SIZE;
    const int result = PC_RecvCmd1(fd, work.data() + kept, &length);
    if (result < 0 && !is_passing(errno)) ref.slot->hung_up = fd;
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

void serve(const WatchList& list) {
    for (const WatchList::Entry& entry : list.entries()) {
        if (FD_ISSET(entry.fd, &list.broken)) drop_urgent_data(entry);
        if (FD_ISSET(entry.fd, &list.readable)) PC_ReciveCmd(entry.ref);
    }
}

void run_pass(WakeUp* wake_up) {
    WatchList list;
    watch_ready_clients(list);
    const int ready = wait_for_data(list, wake_up);
    if (ready < 0 && errno == EBADF) leave_closed_descriptors(list);
    stop_watching(list);
    if (ready < 0) pause_after_error(wake_up);
    if (ready > 0) serve(list);
}

}  // namespace

void PC_SingleStep(void) {
    run_pass(nullptr);
}

void PC_EventLoop(void) {
    while (load_word(PC_G_EventLoopSwitch) != 0) {
        run_pass(&g_event_loop_wake_up);
        usleep(waits::kEventPauseUs);
    }
}
