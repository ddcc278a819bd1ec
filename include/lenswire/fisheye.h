/* Fisheye cameras: what type a camera reports, and which type the host is to give its channel.
 *
 * For the host's own threads. */
#ifndef LENSWIRE_FISHEYE_H
#define LENSWIRE_FISHEYE_H

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads the 64-byte fisheye property, whose byte 1 is the type that the camera reports, over a connection of
 * its own and without a login. ip is dotted text, port in host order; channel, 0 or more, is sent (its
 * low 8 bits). Blocks 5 s at most to connect and 3 s for the answer; PC_UnInitCtx ends it
 * within 0.1 s, if the context ran when it began. 0, or -1 with out64 untouched. */
LENSWIRE_API int Private_Fish_Protocol_EYE_PROPERTY0(int channel, const char* ip, int port, void* out64);

/* The same over the camera's control connection; ip in network order. Blocks up to 10 s for the answer,
 * after up to 5 s while no request slot is free. 0, or -1 with out64 untouched. */
LENSWIRE_API int Private_Fish_Protocol_EYE_PROPERTY(int channel, uint32_t ip, void* out64);

/* The type, 1 to 4, that a channel is to get. camera is a struct HostCameraRecord; its fisheye property is
 * read without a login. With the type t that the camera reports, the tests in this order:
 *   t 0: flag 1 gives -1, else 1
 *   t 1: flag 1 gives -1; type 2 gives 2; number other than 0 gives -1, else 2
 *   t 2: number other than 0 with flag 1 gives -1; type 3 gives 0; number 0 to 3 gives 3, else -1
 *   t 3: type 4 gives 0; number 0 gives 4, else -1
 *   above: 0
 * -1 as well when the property cannot be read. */
LENSWIRE_API int GetFishType(const void* camera, int type, int number, int flag);

/* The two nibbles of the fisheye byte in the camera's record of host table 17; both stay as they are when
 * the byte is 0. camera is a struct HostCameraRecord. Returns what the database read returned. */
LENSWIRE_API int GetFiashEve(const void* camera, uint8_t* high, uint8_t* low);

#ifdef __cplusplus
}
#endif

#endif
