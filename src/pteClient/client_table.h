// The tables of control clients and stream units.
//
// A client slot's life:
//
//              PC_CreateCmdClient0, PC_CreateNew, PC_Login
//     free ------------------------------------------------> taken, generation n
//      ^                                                       |         |
//      |  nobody has it pinned any more                        |         | PC_Login again:
//      +---------------------- leaving <-----------------------+         | generation n + 1
//                                          PC_Delete, PC_UnInitCtx       v
//
//     pinned      somebody uses its descriptor outside the lock: it stays open so long
//     generation  one binding to a camera; a Ref to an earlier one is dead
//     hung up     the camera ended the connection on this descriptor: it is watched no more
//
// g_cmdclient_mutex guards which slots are taken, the side fields below, and a unit's words. The words of a
// client's binding (address, credentials, login, timers) change only under it while nobody has the client
// pinned, or by the one thread that has: the one that invites it. aucRecvRemain and its length belong to the
// one reader that has claimed the client and has it pinned. ucClientState, sockFd and ulLoginId are read at
// any time, as single words. The two semaphores are turns at taking a slot, before the lock.
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
    bool leaving;     // used still, but being freed: nobody new finds it
    bool logging_in;  // its socket is an invitation's, nobody else knows it
    // The descriptor that nothing more is to be read from, 0 when there is none. Ends with the socket.
    std::atomic<int> hung_up;
    std::atomic<bool> claimed;  // by the one who reads it
    // Both survive the slot's being cleared.
    std::atomic<uint32_t> generation;
    std::atomic<uint32_t> pins;  // how many, and a mark while somebody waits for their end
};

struct UnitSlot {
    StreamConn unit;
    uint8_t ucUsed;
    uint32_t generation;  // survives the slot's being cleared; changes when the unit is taken and given back
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

// Ends an invitation that succeeded. False when the ref is dead.
bool finish(const Ref& ref, uint32_t login_uptime);

// Enters PC_STATE_IDLE and closes the socket, unless the ref is dead.
void drop(const Ref& ref);

// What may have changed for the event loop: the client's state was entered anew or its socket is another.
// A camera that hung up before is read again. Any thread, also under the lock.
void look_again(CmdClient* client);

// Whether the unit has a client.
bool has_client(const StreamConn* unit);

// A stream invitation under way: the camera, and the unit as it was when its old socket was taken away.
struct StreamInvitation {
    StreamConn* unit = nullptr;
    uint32_t generation = 0;
    uint32_t address = 0;
    int port = 0;
    uint32_t login_id = 0;
    int old_fd = -1;  // the caller's to close
};

// Begins one. False, and nothing changed, when the unit is not taken or has no client.
bool begin_invitation(StreamConn* unit, StreamInvitation& invitation);

// Gives the unit its new stream socket, or the negative result of making one. False when the unit was given
// back meanwhile: the caller keeps the socket.
bool publish_stream_socket(const StreamInvitation& invitation, int fd);

// Whether the unit is still the one that was invited.
bool is_current(const StreamInvitation& invitation);

// Closing refuses newcomers, waits for those inside and empties the tables, leaving sockets open. Both may be
// called again.
void open_tables();
void close_tables();

}  // namespace lenswire::clients
