/* The tables of the host's database that the library reads and writes through databaseOperate
 * (host_services.h), and the alarm record.
 *
 * A record belongs to the host. The library looks into the named fields alone and carries every other byte
 * unchanged; what they mean is between the host and its other parts. */
#ifndef LENSWIRE_HOST_TABLES_H
#define LENSWIRE_HOST_TABLES_H

#include "lenswire/records.h"

/* Recorder channels that the library's scans and tables know: 0 to 63. */
#define LENSWIRE_CHANNELS 64

/* The protocol number of channels whose camera this library drives (get_channel_protocol, ucProtocol). */
#define LENSWIRE_PROTOCOL 4

/* First argument of databaseOperate. */
enum LenswireHostTable {
    LENSWIRE_TABLE_CHANNELS = 17, /* struct HostChannelRecord */
    LENSWIRE_TABLE_MOTION = 21,   /* struct HostMotionRecord */
    LENSWIRE_TABLE_UPGRADE = 24,  /* struct HostUpgradeRecord */
    LENSWIRE_TABLE_CRUISE = 62    /* struct CruiseLine of cruise.h: three in a read, one in a write */
};

/* Second argument of databaseOperate. */
enum LenswireHostOperation { LENSWIRE_TABLE_WRITE = 1, LENSWIRE_TABLE_READ = 2 };

/* The key of LENSWIRE_TABLE_CHANNELS that reads the records of all LENSWIRE_CHANNELS at once, 28800 bytes, in
 * the order of the channels. A channel without a record reads as zeros. Every other key is a channel. */
#define LENSWIRE_KEY_ALL_CHANNELS 250

#pragma pack(push, 1)

/* One recorder channel. Read only. */
struct HostChannelRecord {
    uint8_t reserved0[97];
    uint8_t ucChannelNo; /* the number that log lines of an upgrade show */
    uint8_t reserved98[2];
    char szIpAddr[64]; /* the camera's address as dotted text; it is logged, not connected to */
    uint8_t reserved164[22];
    uint8_t ucProtocol; /* LENSWIRE_PROTOCOL; cameras of 2 and 3 take no upgrade */
    uint8_t reserved187[5];
    uint8_t ucFishEye; /* 0 for an ordinary camera, else two nibbles; is_channel_fish_eye gives the same */
    uint8_t reserved193[257];
};

/* Motion detection of one channel. Prv_CloseMD reads it, clears ucEnable and writes it back. The same record
 * is what motion_data_copy fills in and VideoMDSetStatus takes. */
struct HostMotionRecord {
    uint8_t ucEnable; /* 0: detection is off */
    uint8_t reserved1[6];
    uint8_t ucByte7;     /* goes to byte 3 of the camera's motion configuration */
    uint8_t aucArea[72]; /* the detection area, to byte 8 of it */
    uint8_t reserved80[8];
};

/* Written as zeros when a camera has passed the check of Prv_ipc_upgrade; never read. */
struct HostUpgradeRecord {
    uint8_t reserved0[9];
};

/* What streamInsertAlarmToAlarmQueue is handed. */
struct HostAlarmRecord {
    uint8_t ucType; /* enum LenswireAlarm */
    uint8_t ucChannel;
    uint8_t ucByte2; /* 0 */
    uint8_t ucByte3; /* 1 for LENSWIRE_ALARM_UPGRADE_FAILED, else 0 */
};

#pragma pack(pop)

enum LenswireAlarm {
    LENSWIRE_ALARM_MOTION = 2,         /* motion on a channel that is not armed any more */
    LENSWIRE_ALARM_UPGRADE_FAILED = 40 /* a camera's firmware upgrade failed on its connection */
};

LENSWIRE_PIN(sizeof(struct HostChannelRecord) == 450);
LENSWIRE_PIN(offsetof(struct HostChannelRecord, ucChannelNo) == 97);
LENSWIRE_PIN(offsetof(struct HostChannelRecord, szIpAddr) == 100);
LENSWIRE_PIN(offsetof(struct HostChannelRecord, ucProtocol) == 186);
LENSWIRE_PIN(offsetof(struct HostChannelRecord, ucFishEye) == 192);
LENSWIRE_PIN(LENSWIRE_CHANNELS * sizeof(struct HostChannelRecord) == 28800);
LENSWIRE_PIN(sizeof(struct HostMotionRecord) == 88);
LENSWIRE_PIN(offsetof(struct HostMotionRecord, ucByte7) == 7);
LENSWIRE_PIN(offsetof(struct HostMotionRecord, aucArea) == 8);
LENSWIRE_PIN(sizeof(struct HostUpgradeRecord) == 9);
LENSWIRE_PIN(sizeof(struct HostAlarmRecord) == 4);

#endif
