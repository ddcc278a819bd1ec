// The tables of control clients and stream units.
//
// g_cmdclient_mutex guards which slots are taken, every binding of a client (address, credentials, socket,
// kept bytes) and the side fields below. Host threads take, bind and free; the event loop reads sockets and
// keeps bytes; delivery looks clients up and sends. The two semaphores only queue those who take a slot, so
// that g_cmdclient_mutex is held for moments. ucClientState, sockFd and ulLoginId are also read and written
// outside the lock, by the one thread that invites the client, as single atomic words.
//
// A descriptor that is in use outside the lock (the event loop's select, a step of an invitation, a
// heartbeat) is pinned. Whoever takes a socket away from a client first clears sockFd, so that nobody new
// finds it, then waits until nobody has it pinned, and only then closes it. Pins are never held across a
// host call, so the wait is short and a host may take a client away from inside any of its services.
//
// A binding's generation changes when its client is freed or bound anew; a Ref to an older one is dead.
#pragma once

#include <pthread.h>
#include <atomic>
#include <cstdint>

#include "common/lock.h"
#include "lenswire/connection.h"

namespace lenswire::clients {

constexpr int kClients = 192;
constexpr int kUnits = 256;

struct ClientSlot {
    CmdClient client;
    uint8_t ucUsed;
    // Side fields.
    bool hung_up;         // the camera closed the connection: nothing more to read until it is bound anew
    uint32_t generation;  // survives the slot's being cleared
    int pins;
};

struct UnitSlot {
    StreamConn unit;
    uint8_t ucUsed;
};

extern ClientSlot g_cmdclientlist[kClients];
extern UnitSlot g_streamconnlist[kUnits];
extern pthread_mutex_t g_cmdclient_mutex;

template <typename T>
T load(const T& word) {
    return std::atomic_ref<T>(const_cast<T&>(word)).load(std::memory_order_acquire);
}

template <typename T>
void publish(T& word, T value) {
    std::atomic_ref<T>(word).store(value, std::memory_order_release);
}

// A client as it was bound at one moment. A client outside the table has no slot and never dies.
struct Ref {
    CmdClient* client = nullptr;
    ClientSlot* slot = nullptr;
    uint32_t generation = 0;
};

// Under the lock.
bool is_alive(const Ref& ref);
Ref ref_to(CmdClient* client);

// Keeps the client's socket open and its record in place for a scope. False when the ref is dead.
class Pin {
  public:
    explicit Pin(const Ref& ref);
    ~Pin();
    Pin(const Pin&) = delete;
    Pin& operator=(const Pin&) = delete;
    explicit operator bool() const { return alive_; }

  private:
    ClientSlot* slot_;
    bool alive_;
};

// Pins counted by hand, for many clients at once. Under the lock.
void pin(ClientSlot& slot);
void unpin(ClientSlot& slot);

// The camera that a client is to be bound to.
struct Camera {
    uint32_t address;
    int port;
    const LoginInfo* info;
};

// Takes a free client slot and binds it; a dead ref when all are taken.
Ref take_client(const Camera& camera);

// Takes the client away from the event loop and from delivery, drops its kept bytes, closes its socket and
// leaves it PC_STATE_IDLE, bound to the camera if one is given. A dead ref when the client is not taken, or
// was freed or bound by somebody else meanwhile.
Ref bind_anew(CmdClient* client, const Camera* camera);

// Gives a freshly connected socket to the client. False when the ref is dead: the caller keeps the socket.
bool attach(const Ref& ref, int fd);

// Enters PC_STATE_IDLE and closes the socket, unless the ref is dead.
void drop(const Ref& ref);

// The client of a unit, or null.
CmdClient* client_of(const StreamConn* unit);
void set_client(StreamConn* unit, CmdClient* client);

// Where a unit's camera is reached and as whom. False when the unit has no client.
struct Binding {
    uint32_t address;
    int port;
    uint32_t login_id;
};
bool binding_of(const StreamConn* unit, Binding& binding);

// Empties both tables, leaving sockets open. The first makes the locks and returns what making
// g_cmdclient_mutex gave; the second returns what destroying it gave.
int open_tables();
int close_tables();

}  // namespace lenswire::clients
