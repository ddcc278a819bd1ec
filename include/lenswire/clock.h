/* A camera's clock, and the recorder's time zone as cameras and hosts number it.
 *
 * ip is a camera's IPv4 address in network order. For the host's own threads. The read blocks as those of
 * settings.h do, what sets a clock for a send and the host's zone services, the rest not at all. Records are
 * the caller's and not kept. Failures are logged. */
#ifndef LENSWIRE_CLOCK_H
#define LENSWIRE_CLOCK_H

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma pack(push, 1)

struct IpcTimeInfo {
    uint16_t usYear;
    uint8_t ucMonth;  /* 1 to 12 */
    uint8_t ucDay;    /* 1 to 31 */
    uint8_t ucHour;   /* 24 and more are possible */
    uint8_t ucMinute; /* 60 and more are possible */
    uint8_t ucSecond;
    uint8_t ucTimeMode; /* 0 from this library */
    uint8_t ucTimeZone; /* zone index in the camera's numbering */
    uint8_t reserved9[3];
    char szNtpServer[14];
    uint8_t reserved26[186];
};

#pragma pack(pop)

LENSWIRE_PIN(sizeof(struct IpcTimeInfo) == LENSWIRE_TIME_SIZE);
LENSWIRE_PIN(offsetof(struct IpcTimeInfo, szNtpServer) == 12);

/* Reads a camera's clock, a 212-byte struct IpcTimeInfo. channel must be 0 or more and is not sent. 0, or -1
 * with out212 untouched: a bad argument, no free request slot (after up to 5 s), not sent, an error answer,
 * or none within 10 s. */
LENSWIRE_API int Prv_GetTimeProperty(int channel, uint32_t ip, void* out212);

/* Sends a camera a clock as it stands; no answer is awaited. 0 sent, -1 not. */
LENSWIRE_API int Prv_SetIPCTimeDate(uint32_t ip, const void* record212);

/* Completes a clock whose ucTimeZone is the host's zone index: corrects the hour by the zone's hours
 * (GetTimeZoneTime) in time mode 0, turns time mode 1 into 2, adds zoneMinutes to the minutes without a
 * carry, and names the time server. 0, or -1 for a null record. */
LENSWIRE_API int Prv_TimInfoPacket(void* record212, int zoneMinutes);

/* Sets the clock of a camera, a struct HostCameraRecord, from the recorder's clock and time zone: local time,
 * in the zone that TZ names by then, less the offset of the zone text, completed as above, with the camera's
 * index of the zone. A zone that the host cannot tell is logged and does not stop it. 0 sent, -1 not. */
LENSWIRE_API int Prv_SetIPCTimeAndDate(const void* camera);

/* The half-hour index of a zone text: "GMT+08:00" is 40, "GMT-03:30" 17, "GMT" alone 0. -1 for a null text
 * or one without "GMT", which is logged. Any minutes count as half an hour. */
LENSWIRE_API int TZ_Process(const char* zone);

#ifdef __cplusplus
}
#endif

#endif
