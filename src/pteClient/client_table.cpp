#include "pteClient/client_table.h"

#include <semaphore.h>
#include <sys/socket.h>
#include <unistd.h>
#include <array>
#include <cstring>

#include "common/log.h"
#include "common/shared_word.h"
#include "lenswire/command.h"
#include "pteClient/client_state.h"
#include "pteClient/wake_up.h"

using namespace lenswire;
using namespace lenswire::clients;

namespace lenswire::clients {

ClientSlot g_cmdclientlist[kClients];
UnitSlot g_streamconnlist[kUnits];
pthread_mutex_t g_cmdclient_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

pthread_cond_t g_unpinned = PTHREAD_COND_INITIALIZER;
constexpr uint32_t kAwaited = 1U << 31;  // in ClientSlot::pins
sem_t g_cmdclient_sem;
sem_t g_streamconn_sem;
// Written under the lock. Before the semaphores exist nobody may wait for a turn.
bool g_tables_open;

// A turn at a semaphore of value 1.
class Turn {
  public:
    explicit Turn(sem_t& sem) : sem_(sem) {
        while (sem_wait(&sem_) != 0) {
        }
    }
    ~Turn() { sem_post(&sem_); }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

  private:
    sem_t& sem_;
};

bool are_tables_open() {
    Lock lock(g_cmdclient_mutex);
    return g_tables_open;
}

ClientSlot* slot_of(const CmdClient* client) {
    for (ClientSlot& slot : g_cmdclientlist) {
        if (&slot.client == client) return &slot;
    }
    return nullptr;
}

UnitSlot* slot_of(const StreamConn* unit) {
    for (UnitSlot& slot : g_streamconnlist) {
        if (&slot.unit == unit) return &slot;
    }
    return nullptr;
}

// A unit that is the host's own, outside the table, is always the host's to use.
bool is_usable(const StreamConn* unit) {
    const UnitSlot* slot = slot_of(unit);
    return slot == nullptr || slot->ucUsed != 0;
}

// Under the lock.
bool is_same_unit(const StreamInvitation& invitation) {
    const UnitSlot* slot = slot_of(invitation.unit);
    return slot == nullptr || (slot->ucUsed != 0 && slot->generation == invitation.generation);
}

Ref ref_to(CmdClient* client) {
    ClientSlot* slot = slot_of(client);
    return {client, slot, slot != nullptr ? slot->generation.load() : 0};
}

void set_camera(CmdClient& client, const Camera& camera) {
    client.ulIpAddr = camera.address;
    client.ulPort = static_cast<uint32_t>(camera.port);
    client.LoginInfo = *camera.info;
}

void close_socket(int fd) {
    if (fd >= 0) close(fd);
}

// Looks whether the slot is pinned, and if so has the last unpin say so. Both are steps of one word: a pin
// that comes later finds all that was written before.
bool is_pinned(ClientSlot& slot) {
    return (slot.pins.fetch_or(kAwaited) & ~kAwaited) != 0;
}

// Takes the socket away from the client: nobody finds it any more, and when this returns nobody uses it.
// Lets go of the lock while it waits. The descriptor is the caller's to close.
int take_socket(Lock& lock, CmdClient& client) {
    const int fd = client.sockFd;
    store_word(client.sockFd, -1);
    ClientSlot* slot = slot_of(&client);
    if (slot == nullptr) return fd;
    if (is_pinned(*slot)) {
        // Ends a step of an invitation that waits for the camera, and the event loop's wait.
        if (fd >= 0) shutdown(fd, SHUT_RDWR);
        g_event_loop_wake_up.raise();
    }
    while (is_pinned(*slot)) lock.wait(g_unpinned);
    slot->pins.fetch_and(~kAwaited);
    slot->hung_up = 0;
    return fd;
}

// Leaves nothing of the last owner behind, its password least of all. A descriptor of 0 would be the host's.
void clear(ClientSlot& slot) {
    std::memset(&slot.client, 0, sizeof slot.client);
    store_word(slot.client.sockFd, -1);
    slot.ucUsed = 0;
    slot.leaving = false;
    slot.logging_in = false;
}

void clear(UnitSlot& slot) {
    std::memset(&slot.unit, 0, sizeof slot.unit);
    store_word(slot.unit.sockFd, -1);
    slot.ucUsed = 0;
    ++slot.generation;
}

// Frees a client and returns its socket.
int free_client(Lock& lock, ClientSlot& slot) {
    ++slot.generation;
    slot.leaving = true;
    const int fd = take_socket(lock, slot.client);
    clear(slot);
    return fd;
}

// Under the lock, after a turn. A dead ref when all are taken.
Ref take_free_client() {
    if (!g_tables_open) return {};
    for (ClientSlot& slot : g_cmdclientlist) {
        if (slot.ucUsed != 0) continue;
        clear(slot);
        ++slot.generation;
        slot.ucUsed = 1;
        return ref_to(&slot.client);
    }
    return {};
}

StreamConn* take_free_unit() {
    Lock lock(g_cmdclient_mutex);
    if (!g_tables_open) return nullptr;
    for (UnitSlot& slot : g_streamconnlist) {
        if (slot.ucUsed != 0) continue;
        clear(slot);
        slot.ucUsed = 1;
        return &slot.unit;
    }
    return nullptr;
}

// The start of every invitation. Gives back the lock.
Invited prepare(Lock& lock, CmdClient* client, const Camera* camera) {
    Ref ref = ref_to(client);
    if (!is_alive(ref)) return {};
    if (ref.slot != nullptr) ref.generation = ++ref.slot->generation;
    const int fd = take_socket(lock, *client);
    Invited invited;
    if (is_alive(ref)) {
        store_word(client->ucClientState, uint8_t{PC_STATE_IDLE});
        client->ulRecvRemainLen = 0;
        client->ulLoginStep = 0;
        client_state::set_default_timers(*client);
        if (camera != nullptr) set_camera(*client, *camera);
        invited = {ref, client->ulIpAddr, static_cast<int>(client->ulPort)};
    }
    lock.unlock();
    close_socket(fd);
    return invited;
}

}  // namespace

bool is_taken(const ClientSlot& slot) {
    return slot.ucUsed != 0 && !slot.leaving;
}

bool is_alive(const Ref& ref) {
    if (ref.slot == nullptr) return ref.client != nullptr;
    return is_taken(*ref.slot) && ref.slot->generation == ref.generation;
}

bool still_alive(const Ref& ref) {
    if (ref.slot == nullptr) return ref.client != nullptr;
    return ref.slot->generation == ref.generation;
}

void pin(ClientSlot& slot) {
    ++slot.pins;
}

void unpin(ClientSlot& slot) {
    if (slot.pins.fetch_sub(1) != (kAwaited | 1)) return;
    Lock lock(g_cmdclient_mutex);
    pthread_cond_broadcast(&g_unpinned);
}

Pin::Pin(const Ref& ref) : slot_(ref.slot) {
    if (slot_ != nullptr) pin(*slot_);
    alive_ = still_alive(ref);
}

Pin::Pin(CmdClient* client) {
    Lock lock(g_cmdclient_mutex);
    const Ref ref = ref_to(client);
    alive_ = is_alive(ref);
    if (!alive_ || ref.slot == nullptr) return;
    slot_ = ref.slot;
    pin(*slot_);
}

Pin::~Pin() {
    if (slot_ != nullptr) unpin(*slot_);
}

Invited bind_unit(StreamConn* unit, const Camera& camera, bool& table_full) {
    table_full = false;
    Lock lock(g_cmdclient_mutex);
    if (!is_usable(unit)) return {};
    if (unit->pCmdClient != nullptr) return prepare(lock, unit->pCmdClient, &camera);
    const bool open = g_tables_open;
    lock.unlock();
    if (!open) return {};

    Turn turn(g_cmdclient_sem);
    Lock again(g_cmdclient_mutex);
    if (!is_usable(unit) || unit->pCmdClient != nullptr) return {};
    const Ref ref = take_free_client();
    table_full = ref.client == nullptr;
    unit->pCmdClient = ref.client;
    return table_full ? Invited{} : prepare(again, ref.client, &camera);
}

Invited bind_again(CmdClient* client) {
    Lock lock(g_cmdclient_mutex);
    return prepare(lock, client, nullptr);
}

bool attach(const Ref& ref, int fd) {
    Lock lock(g_cmdclient_mutex);
    if (!is_alive(ref)) return false;
    if (ref.slot != nullptr) ref.slot->logging_in = true;
    client_state::enter(*ref.client, PC_STATE_CONNECTED);
    store_word(ref.client->sockFd, fd);
    return true;
}

bool finish(const Ref& ref, uint32_t login_uptime) {
    Lock lock(g_cmdclient_mutex);
    if (!is_alive(ref)) return false;
    if (ref.slot != nullptr) ref.slot->logging_in = false;
    ref.client->ulLoginUptime = login_uptime;
    return true;
}

void drop(const Ref& ref) {
    Lock lock(g_cmdclient_mutex);
    if (!is_alive(ref)) return;
    if (ref.slot != nullptr) ref.slot->logging_in = false;
    client_state::enter(*ref.client, PC_STATE_IDLE);
    const int fd = take_socket(lock, *ref.client);
    lock.unlock();
    close_socket(fd);
}

bool has_client(const StreamConn* unit) {
    Lock lock(g_cmdclient_mutex);
    return unit->pCmdClient != nullptr;
}

void look_again(CmdClient* client) {
    if (ClientSlot* slot = slot_of(client); slot != nullptr) slot->hung_up = 0;
    g_event_loop_wake_up.raise();
}

bool begin_invitation(StreamConn* unit, StreamInvitation& invitation) {
    Lock lock(g_cmdclient_mutex);
    const CmdClient* client = is_usable(unit) ? unit->pCmdClient : nullptr;
    if (client == nullptr) return false;
    const UnitSlot* slot = slot_of(unit);
    invitation = {.unit = unit,
                  .generation = slot != nullptr ? slot->generation : 0,
                  .address = client->ulIpAddr,
                  .port = static_cast<int>(client->ulPort),
                  .login_id = load_word(client->ulLoginId),
                  .old_fd = load_word(unit->sockFd)};
    store_word(unit->sockFd, -1);
    return true;
}

bool publish_stream_socket(const StreamInvitation& invitation, int fd) {
    Lock lock(g_cmdclient_mutex);
    if (!is_same_unit(invitation)) return false;
    store_word(invitation.unit->sockFd, fd);
    return true;
}

bool is_current(const StreamInvitation& invitation) {
    Lock lock(g_cmdclient_mutex);
    return is_same_unit(invitation);
}

void open_tables() {
    sem_init(&g_cmdclient_sem, 0, 1);
    sem_init(&g_streamconn_sem, 0, 1);
    Prv_cmd_Init();
    Lock lock(g_cmdclient_mutex);
    g_tables_open = true;
}

// Emptied tables are all zero, descriptors included: unlike a unit or a client that was given back, nobody
// is handed one of these again.
//
// The sockets are left to whoever knows them. Nobody knows that of a login that ends here.
void close_tables() {
    std::array<int, kClients> unknown;
    size_t count = 0;
    Lock lock(g_cmdclient_mutex);
    g_tables_open = false;
    for (UnitSlot& slot : g_streamconnlist) {
        clear(slot);
        store_word(slot.unit.sockFd, 0);
    }
    for (ClientSlot& slot : g_cmdclientlist) {
        const bool logging_in = slot.logging_in;
        const int fd = free_client(lock, slot);
        store_word(slot.client.sockFd, 0);
        if (logging_in) unknown[count++] = fd;
    }
    lock.unlock();
    for (size_t i = 0; i < count; ++i) close_socket(unknown[i]);
}

}  // namespace lenswire::clients

StreamConn* PC_CreateNew(void) {
    if (!are_tables_open()) return nullptr;
    StreamConn* unit = nullptr;
    {
        Turn turn(g_streamconn_sem);
        unit = take_free_unit();
        CmdClient* client = unit != nullptr ? PC_CreateCmdClient0() : nullptr;
        Lock lock(g_cmdclient_mutex);
        if (unit != nullptr) unit->pCmdClient = client;
    }
    if (unit == nullptr) ENGINE_ERROR("no client units now \n");
    return unit;
}

CmdClient* PC_CreateCmdClient0(void) {
    if (!are_tables_open()) return nullptr;
    Turn turn(g_cmdclient_sem);
    Lock lock(g_cmdclient_mutex);
    return take_free_client().client;
}

int PC_Delete(StreamConn* unit) {
    Lock lock(g_cmdclient_mutex);
    UnitSlot* slot = slot_of(unit);
    if (slot == nullptr || slot->ucUsed == 0) {
        lock.unlock();
        ENGINE_ERROR("pClient =%p not found,holy shit \n", static_cast<void*>(unit));
        return 0;
    }
    ClientSlot* client = slot_of(slot->unit.pCmdClient);
    clear(*slot);
    int fd = -1;
    if (client != nullptr && is_taken(*client)) fd = free_client(lock, *client);
    lock.unlock();
    close_socket(fd);
    return 0;
}

void PC_Exit(CmdClient* client) {
    if (client == nullptr) return;
    Lock lock(g_cmdclient_mutex);
    if (client->sockFd <= 0) return;
    const int fd = take_socket(lock, *client);
    lock.unlock();
    close_socket(fd);
}
