/* Socket helpers: the small steps every connection to a camera is made of.
 *
 * All waiting is done with select, so descriptors must be below 1024: from there on the waits fail at once
 * with -1. No function closes a descriptor: it belongs to whoever opened it. Stateless; callable from any
 * thread. */
#ifndef LENSWIRE_SOCKET_H
#define LENSWIRE_SOCKET_H

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Opens a non-blocking TCP socket and starts connecting it. address is an IPv4 address in network
 * order, port in host order (its low 16 bits count). Returns the descriptor, owned by the caller, or
 * -1 when no socket could be made. Whether the connection succeeds shows in PC_SockReadable or
 * SK_SelectWaitWriteable. Never blocks. */
LENSWIRE_API int SK_ConnectTo(uint32_t address, int port);

/* Adds O_NONBLOCK to a descriptor's flags. 0, or -1 when they could not be set. Never blocks. */
LENSWIRE_API int SK_SetSocketUnblock(int fd);

/* Waits up to the given milliseconds until the descriptor is readable. 0 when it is, -1 on time-out or
 * error; an interrupted wait counts as an error. 0 milliseconds looks once. */
LENSWIRE_API int SK_SelectWaitReadable(int fd, int milliseconds);

/* Waits up to the given milliseconds until the descriptor is writable without a pending socket error.
 * 0 when it is; negative on time-out, error, pending socket error, and at once for descriptor 0. */
LENSWIRE_API int SK_SelectWaitWriteable(int fd, int milliseconds);

/* Waits up to 1 second until the descriptor is readable or writable and reports its error state:
 * 1 usable; 0 select failed, or another error than these; -1 a descriptor below 0 or above 1023, with the
 * line "illegal socket fd[...]"; -2 nothing happened, host unreachable or still connecting; -3 connection
 * refused. */
LENSWIRE_API int PC_SockReadable(int fd);

/* 0 when the socket has no pending error, -1 when it has one (errno is then set to it) or when it could
 * not be asked, which is printed. Reading the error clears it. Never blocks. */
LENSWIRE_API int Getsockerron(int fd);

#ifdef __cplusplus
}
#endif

#endif
