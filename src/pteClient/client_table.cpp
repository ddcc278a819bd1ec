#include "pteClient/client_table.h"

#include <semaphore.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cstring>

#include "common/log.h"
#include "lenswire/command.h"

using namespace lenswire;
using namespace lenswire::clients;

namespace lenswire::clients {

ClientSlot g_cmdclientlist[kClients];
UnitSlot g_streamconnlist[kUnits];
pthread_mutex_t g_cmdclient_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

pthread_cond_t g_unpinned = PTHREAD_COND_INITIALIZER;
sem_t g_cmdclient_sem;
sem_t g_streamconn_sem;
std::atomic<bool> g_tables_open;

class Queue {
  public:
    explicit Queue(sem_t& sem) : sem_(sem) {
        while (sem_wait(&sem_) != 0) {
        }
    }
    ~Queue() { sem_post(&sem_); }
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

  private:
    sem_t& sem_;
};

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

// Takes the socket away from the client: nobody finds it any more, and when this returns nobody uses it.
// Lets go of the lock while it waits. The descriptor is the caller's to close.
int take_socket(Lock& lock, ClientSlot& slot) {
    const int fd = slot.client.sockFd;
    publish(slot.client.sockFd, -1);
    // Ends a step of an invitation that waits for the camera.
    if (slot.pins > 0 && fd >= 0) shutdown(fd, SHUT_RDWR);
    while (slot.pins > 0) lock.wait(g_unpinned);
    return fd;
}

void set_binding(CmdClient& client, const Camera& camera) {
    client.ulIpAddr = camera.address;
    client.ulPort = static_cast<uint32_t>(camera.port);
    client.LoginInfo = *camera.info;
}

// Leaves nothing of the last owner behind, its password least of all.
void clear(ClientSlot& slot) {
    std::memset(&slot.client, 0, sizeof slot.client);
    slot.ucUsed = 0;
    slot.hung_up = false;
}

// Frees a taken client and returns its socket.
int free_client(Lock& lock, ClientSlot& slot) {
    ++slot.generation;
    slot.client.ulIpAddr = 0;
    const int fd = take_socket(lock, slot);
    clear(slot);
    return fd;
}

void close_socket(int fd) {
    if (fd >= 0) close(fd);
}

CmdClient* take_free_client(const Camera* camera) {
    if (!g_tables_open) return nullptr;
    Queue queue(g_cmdclient_sem);
    Lock lock(g_cmdclient_mutex);
    for (ClientSlot& slot : g_cmdclientlist) {
        if (slot.ucUsed != 0) continue;
        clear(slot);
        ++slot.generation;
        slot.ucUsed = 1;
        slot.client.sockFd = -1;
        if (camera != nullptr) set_binding(slot.client, *camera);
        return &slot.client;
    }
    return nullptr;
}

StreamConn* take_free_unit() {
    Lock lock(g_cmdclient_mutex);
    for (UnitSlot& slot : g_streamconnlist) {
        if (slot.ucUsed != 0) continue;
        slot = {};
        slot.ucUsed = 1;
        slot.unit.sockFd = -1;
        return &slot.unit;
    }
    return nullptr;
}

void empty_tables() {
    Lock lock(g_cmdclient_mutex);
    for (ClientSlot& slot : g_cmdclientlist) free_client(lock, slot);
    std::memset(g_streamconnlist, 0, sizeof g_streamconnlist);
}

}  // namespace

bool is_alive(const Ref& ref) {
    if (ref.slot == nullptr) return ref.client != nullptr;
    return ref.slot->ucUsed != 0 && ref.slot->generation == ref.generation;
}

Ref ref_to(CmdClient* client) {
    ClientSlot* slot = slot_of(client);
    return {client, slot, slot != nullptr ? slot->generation : 0};
}

void pin(ClientSlot& slot) {
    ++slot.pins;
}

void unpin(ClientSlot& slot) {
    if (--slot.pins == 0) pthread_cond_broadcast(&g_unpinned);
}

Pin::Pin(const Ref& ref) : slot_(nullptr), alive_(false) {
    Lock lock(g_cmdclient_mutex);
    alive_ = is_alive(ref);
    if (!alive_ || ref.slot == nullptr) return;
    slot_ = ref.slot;
    pin(*slot_);
}

Pin::~Pin() {
    if (slot_ == nullptr) return;
    Lock lock(g_cmdclient_mutex);
    unpin(*slot_);
}

Ref take_client(const Camera& camera) {
    CmdClient* client = take_free_client(&camera);
    if (client == nullptr) return {};
    Lock lock(g_cmdclient_mutex);
    return ref_to(client);
}

Ref bind_anew(CmdClient* client, const Camera* camera) {
    Lock lock(g_cmdclient_mutex);
    Ref ref = ref_to(client);
    if (!is_alive(ref)) return {};
    int fd = client->sockFd;
    if (ref.slot != nullptr) {
        ref.generation = ++ref.slot->generation;
        fd = take_socket(lock, *ref.slot);
        if (!is_alive(ref)) {
            lock.unlock();
            close_socket(fd);
            return {};
        }
    }
    publish(client->sockFd, -1);
    publish(client->ucClientState, uint8_t{PC_STATE_IDLE});
    client->ulRecvRemainLen = 0;
    if (camera != nullptr) set_binding(*client, *camera);
    lock.unlock();
    close_socket(fd);
    return ref;
}

bool attach(const Ref& ref, int fd) {
    Lock lock(g_cmdclient_mutex);
    if (!is_alive(ref)) return false;
    if (ref.slot != nullptr) ref.slot->hung_up = false;
    publish(ref.client->sockFd, fd);
    return true;
}

void drop(const Ref& ref) {
    Lock lock(g_cmdclient_mutex);
    if (!is_alive(ref)) return;
    publish(ref.client->ucClientState, uint8_t{PC_STATE_IDLE});
    ref.client->ulTimer = ref.client->ulTimerLen[PC_STATE_IDLE];
    int fd = ref.client->sockFd;
    if (ref.slot != nullptr) fd = take_socket(lock, *ref.slot);
    if (ref.slot == nullptr) ref.client->sockFd = -1;
    lock.unlock();
    close_socket(fd);
}

CmdClient* client_of(const StreamConn* unit) {
    Lock lock(g_cmdclient_mutex);
    return unit->pCmdClient;
}

void set_client(StreamConn* unit, CmdClient* client) {
    Lock lock(g_cmdclient_mutex);
    unit->pCmdClient = client;
}

bool binding_of(const StreamConn* unit, Binding& binding) {
    Lock lock(g_cmdclient_mutex);
    const CmdClient* client = unit->pCmdClient;
    if (client == nullptr) return false;
    binding = {client->ulIpAddr, static_cast<int>(client->ulPort), load(client->ulLoginId)};
    return true;
}

int open_tables() {
    empty_tables();
    sem_init(&g_cmdclient_sem, 0, 1);
    sem_init(&g_streamconn_sem, 0, 1);
    Prv_cmd_Init();
    const int result = pthread_mutex_init(&g_cmdclient_mutex, nullptr);
    g_tables_open = true;
    return result;
}

int close_tables() {
    empty_tables();
    const int result = pthread_mutex_destroy(&g_cmdclient_mutex);
    // A call that comes after the end still finds a lock, and empty tables behind it.
    if (result == 0) pthread_mutex_init(&g_cmdclient_mutex, nullptr);
    return result;
}

}  // namespace lenswire::clients

StreamConn* PC_CreateNew(void) {
    if (!g_tables_open) return nullptr;
    Queue queue(g_streamconn_sem);
    StreamConn* unit = take_free_unit();
    if (unit == nullptr) {
        ENGINE_ERROR("no client units now \n");
        return nullptr;
    }
    set_client(unit, PC_CreateCmdClient0());
    return unit;
}

CmdClient* PC_CreateCmdClient0(void) {
    return take_free_client(nullptr);
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
    *slot = {};
    int fd = -1;
    if (client != nullptr && client->ucUsed != 0) fd = free_client(lock, *client);
    lock.unlock();
    close_socket(fd);
    return 0;
}

void PC_Exit(CmdClient* client) {
    if (client == nullptr) return;
    Lock lock(g_cmdclient_mutex);
    const int fd = client->sockFd;
    if (fd <= 0) return;
    if (ClientSlot* slot = slot_of(client); slot != nullptr) take_socket(lock, *slot);
    if (client->sockFd == fd) publish(client->sockFd, -1);
    lock.unlock();
    close(fd);
}
