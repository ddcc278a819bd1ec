// The tables of control clients and stream units.
//
// g_cmdclient_mutex guards which slots are taken and the side fields below. The words of a client's binding
// (address, credentials, login, timers) change only under it while nobody has the client pinned, or by the
// one thread that has: the one that invites it. aucRecvRemain, its length and hung_up are the event loop's
// while it has the client pinned. ucClientState, sockFd and ulLoginId are read at any time, as single words.
// The two semaphores are turns at taking a slot, before the lock.
//
// A descriptor that is in use outside the lock (the event loop's select and recv, a step of an invitation, a
// heartbeat) is pinned. Whoever takes a socket away from a client first clears sockFd, so that nobody new
// finds it, then waits until nobody has it pinned, and only then closes it. Pins are never held across a
// host call, so the wait is short, and a host may take a client away from inside any of its services.
//
// A binding's generation changes when its client is freed or bound anew; a Ref to an older one is dead. It
// changes under the lock and before the pins are waited for, so whoever pins first and then finds it
// unchanged has the client: pinning through a Ref takes no lock, and the event loop never waits for a
// delivery.
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
    bool leaving;  // being freed: neither taken nor to be taken
    bool hung_up;  // the camera closed the connection: nothing more to read until it is bound anew
    // Both survive the slot's being cleared.
    std::atomic<uint32_t> generation;
    std::atomic<uint32_t> pins;  // how many, and a mark while somebody waits for their end
};

struct UnitSlot {
    StreamConn unit;
    uint8_t ucUsed;
};

extern ClientSlot g_cmdclientlist[kClients];
extern UnitSlot g_streamconnlist[kUnits];
extern pthread_mutex_t g_cmdclient_mutex;

// A client as it was bound at one moment. A client outside the table has no slot and never dies.
struct Ref {
    CmdClient* client = nullptr;
    ClientSlot* slot = nullptr;
    uint32_t generation = 0;
};

// Under the lock.
bool is_taken(const ClientSlot& slot);
bool is_alive(const Ref& ref);

// The same without the lock, of a ref that was alive when it was made.
bool still_alive(const Ref& ref);

// Keeps the client's socket open and its record in place for a scope. False when there is no such client,
// or the ref, alive when it was made, no longer is.
class Pin {
  public:
    explicit Pin(const Ref& ref);
    explicit Pin(CmdClient* client);
    ~Pin();
    Pin(const Pin&) = delete;
    Pin& operator=(const Pin&) = delete;
    explicit operator bool() const { return alive_; }

  private:
    ClientSlot* slot_ = nullptr;
    bool alive_ = false;
};

// Pins counted by hand, for many clients at once. Pinning under the lock.
void pin(ClientSlot& slot);
void unpin(ClientSlot& slot);

// Where a camera is reached and as whom.
struct Camera {
    uint32_t address;
    int port;
    const LoginInfo* info;
};

// A client that is ready to be invited: out of the event loop's and delivery's sight, without kept bytes
// or socket, PC_STATE_IDLE, at the start of the login. The ref is dead when there is no client to invite.
struct Invited {
    Ref ref;
    uint32_t address = 0;
    int port = 0;
};

// Binds the unit's client to the camera, taking a client for it if it has none. A dead ref when the unit
// is not taken or all clients are; `table_full` tells the second.
Invited bind_unit(StreamConn* unit, const Camera& camera, bool& table_full);

// The same for a client that stays bound to its camera.
Invited bind_again(CmdClient* client);

// Gives the invited client its socket and enters PC_STATE_CONNECTED. False when the ref is dead: the caller
// keeps the socket.
bool attach(const Ref& ref, int fd);

// Enters PC_STATE_IDLE and closes the socket, unless the ref is dead.
void drop(const Ref& ref);

// Whether the unit has a client.
bool has_client(const StreamConn* unit);

// Where the unit's camera is reached and its login identifier. False when the unit has no client.
bool find_camera(const StreamConn* unit, uint32_t& address, int& port, uint32_t& login_id);

// Opening makes the locks and returns what making g_cmdclient_mutex gave. Closing refuses newcomers, waits
// for those inside, empties the tables, leaving sockets open, and returns what destroying it gave.
int open_tables();
int close_tables();

}  // namespace lenswire::clients
