/* PTZ cruise lines: tours of up to 32 presets, three lines per recorder channel, at most one of them enabled.
 *
 * A line is kept in memory (gp_private_ptzCruise), in host table 62 and in the camera; these operations keep
 * the three in step. Channels are 0 to 63, lines 0 to 2; whatever names another is refused with -1. A struct
 * CruiseLine is handed over as 390 bytes.
 *
 * For any number of host threads, but the caller sees to it that operations on one channel do not overlap: a
 * line is read and written whole, its three places one after the other. Sends await no answer, and what the
 * database answers to a write is not looked at. What blocks longer than a send and the host's database says
 * so. Records are the caller's and not kept; a null one is refused with -1. */
#ifndef LENSWIRE_CRUISE_H
#define LENSWIRE_CRUISE_H

#include "lenswire/host_tables.h"
#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

#define LENSWIRE_CRUISE_LINES 3 /* of a channel */
#define LENSWIRE_CRUISE_POINTS 32

#pragma pack(push, 1)

struct CruisePoint {
    uint8_t ucUsed; /* 1: part of the tour */
    uint8_t reserved1[5];
    uint8_t ucTime; /* dwell time; 0 leaves the point out */
    uint8_t ucSpeed;
    uint16_t usPreset; /* counts from 1 */
    uint8_t reserved10[2];
};

/* In memory, in the database and in the host's hands. */
struct CruiseLine {
    uint8_t ucLineNo; /* 0 to 2 */
    uint8_t ucEnable; /* 1: the channel's running line */
    uint8_t reserved2[4];
    struct CruisePoint points[LENSWIRE_CRUISE_POINTS];
};

struct CameraCruisePoint {
    uint8_t ucPtzChannel;
    uint8_t ucLineNo;
    uint8_t ucPoint;
    uint8_t reserved3;
    uint8_t ucUsed;
    uint8_t ucPreset; /* counts from 0 */
    uint8_t ucTime;   /* CruisePoint.ucTime x 6 */
    uint8_t reserved7;
    uint32_t ulSpeed;
    uint8_t reserved12[16];
};

/* In the camera. */
struct CameraCruise {
    uint8_t ucPtzChannel;
    uint8_t ucLineNo;
    uint8_t ucEnable;
    uint8_t reserved3[65];
    struct CameraCruisePoint points[LENSWIRE_CRUISE_POINTS];
    uint8_t reserved964[16];
};

#pragma pack(pop)

LENSWIRE_PIN(sizeof(struct CruisePoint) == 12);
LENSWIRE_PIN(sizeof(struct CruiseLine) == 390);
LENSWIRE_PIN(sizeof(struct CameraCruisePoint) == 28);
LENSWIRE_PIN(sizeof(struct CameraCruise) == LENSWIRE_CRUISE_SIZE);
LENSWIRE_PIN(offsetof(struct CameraCruise, points) == 68);

/* 64 channels x 3 lines x 390 bytes. For the host to read; a reader on another thread than a writer may
 * see a line half written. */
extern LENSWIRE_API uint8_t gp_private_ptzCruise[74880];
LENSWIRE_PIN(LENSWIRE_CHANNELS* LENSWIRE_CRUISE_LINES * sizeof(struct CruiseLine) == 74880);

/* -- Memory and database. */

/* Clears the table and loads the channels below configGetDisplayNum, 64 at most. 0. */
LENSWIRE_API int Private_ptzCruiseInit(void);

/* Loads a channel's three lines from host table 62. Returns what the read returned. */
LENSWIRE_API int Private_ptzInitCruiseInfo(uint32_t channel);

/* ucEnable of a line. */
LENSWIRE_API int Private_Get_EnableFlagFromMemory(uint32_t channel, uint32_t line);

/* The first line whose ucEnable is not 0, or -1. */
LENSWIRE_API int Get_Private_EnableFlagFromMemory(uint32_t channel);

/* Puts a line into the table at its own ucLineNo, which line repeats. 0. */
LENSWIRE_API int Private_ChangeCruiseLineParam(uint32_t channel, uint32_t line, const void* record390);

/* Stores a line in the database. 390. */
LENSWIRE_API int Private_ChangeCruiseParamToDB(uint32_t channel, const void* record390);

/* Sets ucEnable of a line in the table. */
LENSWIRE_API void Private_ChangeCruiseLineEnableFlag(uint32_t channel, uint32_t line, int flag);

/* Puts a line into table and database; when it is enabled, the line that was is disabled in both. 0. */
LENSWIRE_API int Private_ChangeCruiseParamToMemory(uint32_t channel, const void* record390);

/* -- With the camera. */

/* Sends a 980-byte struct CameraCruise to the camera at ip (network order). 0 sent, -1 not. */
LENSWIRE_API int Private_PTZ_CRUISE(uint32_t ip, const void* record980);

/* Reads one: ucPtzChannel and ucLineNo of the record name it, the answer replaces the record; what an answer
 * lacks is zero. Blocks up to 10 s, after up to 5 s while no request slot is free. 0, or -1 with the record
 * untouched. */
LENSWIRE_API int Private_PTZ_CRUISE_GET(uint32_t ip, void* record980);

/* Reads the camera's version of the line that record390 names into it; memory and database stay. Blocks as
 * Private_PTZ_CRUISE_GET does. 390, or -1 with the record untouched. */
LENSWIRE_API int Private_GetPtzCruiseAllPreset(uint32_t channel, void* record390);

/* Puts a line into memory, database and camera, and with start 1 starts it, or stops it when it is not
 * enabled. 0, or -1 when the channel has no camera or a command could not be sent. */
LENSWIRE_API int Private_SetPtzCruiseAllPreset(uint32_t channel, const void* record390, int start);

/* Loads a channel from the database and sends the enabled line to the camera again, started: 0 or -1, as
 * Private_SetPtzCruiseAllPreset. Without an enabled line returns what the database read returned. */
LENSWIRE_API int Private_GetPtzCruiseChannel(uint32_t channel);

/* start 1: enables a line instead of the one that was, sends and starts it. Anything else: disables all
 * three in memory and database, sends nothing and returns after half a second. 0, whatever the camera
 * made of it. */
LENSWIRE_API int Private_StartPtzCruiseLine(uint32_t channel, uint32_t line, int start);

#ifdef __cplusplus
}
#endif

#endif
