/* Image, network, OSD, WiFi, privacy cover and smart I-frame settings of a camera.
 *
 * Each operation carries one record of a fixed size between host and camera without looking inside it.
 * ip is the camera's IPv4 address in network order; its first control connection is used. Callable from
 * any host thread.
 *
 * A get blocks until the camera answers, 10 seconds at most, after up to 5 seconds while no request slot
 * is free. It returns 0 with the record in the out buffer, or -1 with the buffer untouched: a bad
 * argument, no free slot, not sent, an error answer, or none. The part of a record that the camera's
 * answer does not bring reads as zero, in its first bytes as the request.
 *
 * A set blocks for the send only and awaits no answer: a refusal of the camera shows in a later get alone. 0
 * sent, -1 not. Buffers and records are the caller's and not kept. Failures are logged. */
#ifndef LENSWIRE_SETTINGS_H
#define LENSWIRE_SETTINGS_H

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Image settings, 36 bytes. channel, 0 or more, is sent (its low 8 bits). */
LENSWIRE_API int Prv_GetIPCImageProperty(int channel, uint32_t ip, void* out36);
LENSWIRE_API int Prv_SetIPCImageProperty(uint32_t ip, const void* record36);

/* Network settings, 118 bytes. channel, 0 or more, is sent. */
LENSWIRE_API int Prv_GetIPCNetworkProperty(int channel, uint32_t ip, void* out118);

/* On-screen display settings, 228 bytes. channel, 0 or more, is sent. */
LENSWIRE_API int Prv_GetIPCOSD(int channel, uint32_t ip, void* out228);
LENSWIRE_API int Prv_SetIPCOSD(uint32_t ip, const void* record228);

/* WiFi signal state, 626 bytes. channel must be 0 or more and is not sent. */
LENSWIRE_API int Prv_GetWifiSignal(int channel, uint32_t ip, void* out626);

/* Privacy cover settings, 204 bytes. The get takes channels 0 to 64 and sends the channel; the set does
 * not use it. */
LENSWIRE_API int Prv_GetVideoCover(uint32_t channel, uint32_t ip, void* out204);
LENSWIRE_API int Prv_SetVideoCover(int channel, uint32_t ip, const void* record204);

/* Smart I-frame settings, 512 bytes. channel is not used. */
LENSWIRE_API int Prv_SetSmartIFrame(int channel, uint32_t ip, const void* record512);

#ifdef __cplusplus
}
#endif

#endif
