/* Firmware upgrade: does a file fit a camera, and jobs that send a file to many cameras at once.
 *
 * Prv_ipc_upgrade asks every selected camera what it is, checks the file against that, and starts one
 * detached thread that uploads the file over a connection of its own per camera. The host polls the job
 * with Prv_ipc_upgrade_get_status; for each camera whose upgrade fails on its connection the job queues an
 * alarm. PC_UnInitCtx leaves the uploads alone. An unload of the library, and the end of the process, end
 * them as UPGRADE_FAILED and without an alarm, and wait until the threads of all jobs have left the library:
 * 1 s as a rule, 5 s at most while a service of the host blocks one. The host's signals are blocked in these
 * threads.
 *
 * Limits: paths of 127 characters, file names of 63, fields and tokens of 31, 16 tokens; firmware names of
 * 63, chip and sensor names of 7. A text beyond its limit does not fit; nothing is cut to fit, and no text
 * is read beyond its field, ended or not. Only regular files fit. */
#ifndef LENSWIRE_UPGRADE_H
#define LENSWIRE_UPGRADE_H

#include <stdio.h>

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

#define LENSWIRE_UPGRADE_JOBS 64
#define LENSWIRE_UPGRADE_CAMERAS 64
#define LENSWIRE_UPGRADE_PATH_SIZE 128
/* What a camera has from the start of its job, answer included. */
#define LENSWIRE_UPGRADE_TIMEOUT_S 60

/* A tag-style file has at least 308 bytes and the tag, with its NUL, at byte 180. */
#define LENSWIRE_UPGRADE_TAG_OFFSET 180
#define LENSWIRE_UPGRADE_TAG_SIZE 128
#define LENSWIRE_UPGRADE_TAG "APPLICATION"

enum UpgradeCameraState {
    UPGRADE_RUNNING = 1,   /* connected, upload running or answer awaited */
    UPGRADE_FAILED = 2,    /* no connection, closed, refused by it, 30 unexpected messages, or unloaded */
    UPGRADE_TIMED_OUT = 3, /* no answer within the time */
    UPGRADE_DONE = 4       /* the camera took the file */
};

#pragma pack(push, 1)

/* The first bytes of a header-style upgrade file, little-endian. */
struct UpgradeFileHeader {
    char platform[8];        /* chip name, padded with NUL */
    char sensortype[8];      /* sensor name, padded with NUL */
    uint32_t upgrateDataLen; /* bytes of the whole file, this header included */
    uint32_t ulCheck;        /* not 0 where the names are checked */
};

/* What a host asks for. */
struct UpgradeRequest {
    uint8_t aucChannel[LENSWIRE_UPGRADE_CAMERAS]; /* not 0: upgrade this channel's camera */
    char szFilePath[LENSWIRE_UPGRADE_PATH_SIZE];
};

struct UpgradeCameraStatus {
    uint32_t ulChannel;
    uint32_t ulState;   /* enum UpgradeCameraState */
    uint32_t ulPercent; /* of header and file, as the connection accepted them */
};

/* A job. It keeps its last values after its end, until another job takes its record. */
struct UpgradeJobStatus {
    uint32_t ulUsed;     /* 1 while the job runs */
    uint32_t ulThreadId; /* low 32 bits of the thread's identity */
    uint32_t ulCameraCount;
    struct UpgradeCameraStatus camera[LENSWIRE_UPGRADE_CAMERAS]; /* in the order of their channels */
};

#pragma pack(pop)

LENSWIRE_PIN(sizeof(struct UpgradeFileHeader) == 24);
LENSWIRE_PIN(offsetof(struct UpgradeFileHeader, upgrateDataLen) == 16);
LENSWIRE_PIN(sizeof(struct UpgradeRequest) == 192);
LENSWIRE_PIN(sizeof(struct UpgradeCameraStatus) == 12);
LENSWIRE_PIN(sizeof(struct UpgradeJobStatus) == 780);
LENSWIRE_PIN(offsetof(struct UpgradeJobStatus, camera) == 12);

/* -- Does the file fit? info464 is a struct IpcDeviceInfo as the camera sent it. All return 0 when the
 * file fits and -1 when it does not, and change neither argument. Callable from any thread; they block for
 * reading the start of the file, at most. */

/* The check, or the two checks, that the camera's ndevType asks for. -2 as QM_VT_NewUpgradeFileCheck. */
LENSWIRE_API int CompareUpgradeFile(const void* info464, char* path);

/* By name, three fields each. name is szFirmwareName of the camera, its third field a set of feature
 * letters: T, A, M, C and one of B, X, F, W; -2 when it is not. With P among them the path must contain
 * "BD". The first two fields of the file's name must be the camera's. */
LENSWIRE_API int QM_VT_NewUpgradeFileCheck(const char* name, char* path);

/* By the header at the start of the file: the chip and sensor names of the camera if it gives both, else
 * those that its ndevType requires, if any; and the length. */
LENSWIRE_API int CheckUpgradFile(const void* info464, const char* path);

/* By the tag in the file. devType is not used. */
LENSWIRE_API int CheckUpgradFile2(int devType, const char* path);

/* By name, as many tokens as the camera's firmware name has before its token W: each must begin the
 * file's token at the same place. */
LENSWIRE_API int CheckUpgradFile3(void* info464, const char* path);

/* Asks the camera of a channel what it is and compares. 1 when the file fits, 0 when it does not or the
 * camera gives no answer, -1 when the channel has no camera address. Blocks up to 15 seconds. */
LENSWIRE_API int Get_IPC_upgradeParam(int channel, char* path);

/* -- Jobs. */

/* Checks the selected channels in order, resetting the table-24 record of each that passes, and starts the
 * job when all have. request192 is a struct UpgradeRequest, copied; one with no channel set starts a job
 * that ends at once. 0 with the thread's identity in *thread; -1 at the first camera whom the file does not
 * fit, when 64 jobs are running, without memory or thread, or for a null argument; -2 or -3 at the first
 * channel whose protocol number is 2 or 3. Only 0 starts anything. Blocks as Get_IPC_upgradeParam does,
 * once per camera. Needs 8 KB of the caller's stack, beside what the host's services need, and the C library
 * for a line on standard error. Two threads should not ask one camera at once: the second one's query may
 * wait in vain (command.h). */
LENSWIRE_API int Prv_ipc_upgrade(const void* request192, pthread_t* thread);

/* Copies the struct UpgradeJobStatus of that thread, running or ended, to out780. 0, or -1 when no record
 * carries its identity. Callable from any thread, does not block. */
LENSWIRE_API int Prv_ipc_upgrade_get_status(pthread_t thread, void* out780);

/* The body of a job's thread. Detaches the calling thread, owns and frees the request (of malloc), and
 * ends at once on a thread that Prv_ipc_upgrade did not start. A job ends at once when a channel has no
 * camera or the file cannot be had: not readable, not regular, or above 4294967263 bytes, whose upload would
 * not fit the 32-bit counters. */
LENSWIRE_API void* ipc_upgrade_thread(void* request);

/* Sends the next piece of one camera's upload: the rest of the 32-byte header, then up to 262144 bytes of
 * the file from byte *sent - 32 on, as many as the non-blocking socket takes, without SIGPIPE. Adds what was
 * accepted to *sent; when that is nothing, *sent stays, and the next call tries again. Always 0. */
LENSWIRE_API int upload_process(int sock, FILE* file, const void* header32, uint32_t* sent);

#ifdef __cplusplus
}
#endif

#endif
