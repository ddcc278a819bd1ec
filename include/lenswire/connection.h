/* The connection engine: its context and threads, the clients (control connections) and units (stream
 * handles), the login, and the state machine behind it.
 *
 * A host calls PC_InitCtx once, then per stream PC_CreateNew, PC_Login, PC_GetStream (stream.h), and an
 * open request in its queue; at the end PC_Delete for each unit and PC_UnInitCtx. Before PC_InitCtx there
 * are no units to be had.
 *
 * Threads: everything here may be called from any host thread, also from inside a host service that the
 * library calls, but for PC_UnInitCtx, which joins the library's threads. One unit is invited by one
 * thread at a time. A unit may be deleted while it is being invited: the invitation then ends.
 *
 * Signals: the library's threads block every signal but those that a thread brings on itself, so a host's
 * handlers run on the host's threads alone.
 *
 * Output: the library prints its lines with the C library's stdout and stderr. A standard output that takes
 * nothing, a pipe that nobody reads, holds up the thread that prints, and with the event loop all cameras'
 * answers: a host keeps it flowing.
 *
 * Ownership: units and clients are the library's, in tables that stay where they are; their pointers are good
 * until PC_Delete or PC_UnInitCtx. A host reads their fields and writes two of a unit's:
 * pCmdClient as said at PC_CreateCmdClient0, and sockFd, -1 once it has closed the stream socket by itself.
 */
#ifndef LENSWIRE_CONNECTION_H
#define LENSWIRE_CONNECTION_H

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ucClientState of a client. */
enum ClientState {
    PC_STATE_IDLE = 0,       /* no connection in progress */
    PC_STATE_CONNECTING = 1, /* connect started */
    PC_STATE_CONNECTED = 2,  /* login exchange in progress */
    PC_STATE_LOGINING = 3,   /* login being confirmed */
    PC_STATE_LOGINED = 4,    /* login accepted */
    PC_STATE_READY = 5,      /* the event loop reads the socket */
    PC_STATE_SPARE = 6,      /* not used */
    PC_STATE_TIMEOUT = 7     /* a state's timer ran out */
};

/* Run switches of the three worker threads; each runs while its switch is not 0. PC_InitCtx and PC_UnInitCtx
 * write them; a host reads. */
extern LENSWIRE_API uint8_t PC_G_EventLoopSwitch, PC_G_RecvStreamLoopSwitch, PC_G_RecvQueue;

/* Clears the tables and starts the event loop, the receive loop and the queue thread (1 MiB of stack
 * each). Works once per load of the library: later calls, also after PC_UnInitCtx, return 0 and do
 * nothing. -1 when the stack size could not be set; a thread that cannot be started leaves those started
 * before it running and is not an error. */
LENSWIRE_API int PC_InitCtx(void);

/* Stops and joins the three threads and clears the tables; sockets held in them are not closed. Who waits in
 * the library is sent home: pending requests fail at once, invitations and the fisheye probe within a step,
 * so that a host has its threads back within half a second. Then, once no thread of the host is inside the
 * library, it may be unloaded. Units and clients are no longer to be had; later calls find empty tables.
 * Returns 0; a second call, also one
 * beside the first, returns at once and changes nothing. Must not be called from a host service. */
LENSWIRE_API int PC_UnInitCtx(void);

/* Takes a unit, with a client if one is free. Null when all 256 are taken, which is logged, or before
 * PC_InitCtx. Never waits for a camera; owed a PC_Delete. */
LENSWIRE_API struct StreamConn* PC_CreateNew(void);

/* Takes a client alone. Null when all 192 are taken or before PC_InitCtx.
 *
 * No function gives such a client back by itself: it stays taken until PC_UnInitCtx. PC_Login of a unit whose
 * pCmdClient the host has set to it binds it to a camera, and again to another; a struct StreamConn of the
 * host's own, all zero but for sockFd -1 and pCmdClient, will do. PC_Delete frees the client that the unit's
 * pCmdClient names then: a unit that came without a client gives this one back, any other leaves its own
 * behind in exchange. */
LENSWIRE_API struct CmdClient* PC_CreateCmdClient0(void);

/* Gives a unit back, and its client with its control socket; the stream socket is the host's to close.
 * Ends an invitation that is under way on the client and waits, for a step of it at most, until nobody
 * uses the control socket any more. Always 0; a unit that is unknown or deleted already is logged. */
LENSWIRE_API int PC_Delete(struct StreamConn* unit);

/* Closes a client's control socket, if it is above 0, waiting as PC_Delete does. The state stays. */
LENSWIRE_API void PC_Exit(struct CmdClient* client);

/* Connects the unit's client to a camera (address in network order, port in host order) and logs in.
 * info is copied. channel and stream name the recorder stream it is for and are passed to
 * networkGetStreamUsedNum and networkGetRunFlag, which can end the attempt. Blocks up to 10 seconds and
 * one step. 0 when the client is PC_STATE_READY; -4 no login reply or login refused, -3 connection
 * refused, -2 the socket never became ready, -1 other failures, no free client, or deleted or
 * invited by another thread meanwhile. A
 * unit that is logged in already is logged in anew. After a failure the control socket is closed; the unit
 * keeps its client. */
LENSWIRE_API int PC_Login(struct StreamConn* unit, uint32_t address, int port, const struct LoginInfo* info,
                          int channel, int stream);

/* The same for a client whose address and credentials are already set, by an earlier PC_Login. */
LENSWIRE_API int PcInviteStream(struct CmdClient* client, int channel, int stream);

/* Sends a heartbeat on a client's control connection. 0 sent, -1 not. The library sends none by itself:
 * how often, and what follows from a failure, is the host's to decide. Blocks for one send, as PC_SendCmd. */
LENSWIRE_API int PC_SendHeartbeat(struct CmdClient* client);

/* -- The state machine, one step at a time. PC_Login makes these steps; a host rarely does. Timers count
 * steps. The thread that invites a client is the only one to step it. A null client gives -1, or nothing. */

/* Loads the default timer lengths: 10000 steps in PC_STATE_IDLE, none in PC_STATE_TIMEOUT, 100000 else. */
LENSWIRE_API void PC_SetDefaultTimerLength(struct CmdClient* client);

/* Enters a state and starts its timer. 0, or -1 for a state outside 0 to 7. From PC_STATE_READY on the event
 * loop reads the client's socket. */
LENSWIRE_API int PC_SetCBState(struct CmdClient* client, int state);

/* Timer expiry: enters PC_STATE_TIMEOUT and returns -1; 0 when the state was above PC_STATE_READY. */
LENSWIRE_API int PC_TimerProc(struct CmdClient* client);

/* One step: 0 done or nothing to do; -1 refused, failed or timed out; -2 socket not ready; -3 connection
 * refused; -4 login request sent and not yet answered. Blocks up to about 1 second. */
LENSWIRE_API int PC_TaskProc(struct CmdClient* client);

/* The socket part of a step: readiness, then the state's handler. Results as PC_TaskProc. */
LENSWIRE_API int PC_TcpSocketRecv(struct CmdClient* client);

/* The handlers of PC_STATE_CONNECTING, _CONNECTED, _LOGINING and _LOGINED. Results as PC_TaskProc. */
LENSWIRE_API int PC_CONNECTINGRespMsg(struct CmdClient* client);
LENSWIRE_API int PC_CONNECTEDRespMsg(struct CmdClient* client);
LENSWIRE_API int PC_LOGININGRespMsg(struct CmdClient* client);
LENSWIRE_API int PC_LOGINEDRespMsg(struct CmdClient* client);

/* -- The event loop: reads every PC_STATE_READY control connection and hands on what arrives: answers to
 * Private_Protocol_RecvProcess, motion pushes to Prv_IPCTriggingMtionDetetion. PC_InitCtx runs it. */

/* The thread's body: passes until PC_G_EventLoopSwitch is 0. */
LENSWIRE_API void PC_EventLoop(void);

/* One pass: waits up to 1 ms for something readable, 1 second when select fails, and serves what is. A host
 * may make passes of its own beside the event loop: each client is read by one of them at a time. */
LENSWIRE_API void PC_SingleStep(void);

#ifdef __cplusplus
}
#endif

#endif
