/* What platform a camera is of.
 *
 * Both operations look the channel's camera up in the host's channel database, block until the camera
 * answers, and are for the host's own threads. Failures are logged. */
#ifndef LENSWIRE_PLATFORM_H
#define LENSWIRE_PLATFORM_H

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reads the property block of a channel's camera, 1024 bytes; byte 27 is 1 for cameras of the special
 * platform family. 0, or -1 with out1024 untouched: no camera, no free request slot (after up to 5 s), not
 * sent, an error answer, none within 3 s, or an answer with ulFlag other than 0. */
LENSWIRE_API int Prv_Get_IPC_PropertyParam(int channel, void* out1024);

/* 1 when the channel's camera belongs to the special platform family, by the device type that it reports
 * (within 10 s) or else by its property block; 0 when it does not or cannot be asked. Blocks up to 13 s
 * for the two answers, and 10 s more while no request slot is free. */
LENSWIRE_API int Private_Protocol_GetPlatFormType(int channel);

#ifdef __cplusplus
}
#endif

#endif
