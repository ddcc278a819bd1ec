/* Records shared between the library, its host and the cameras.
 *
 * Wire records and host database records are packed: their offsets are the same on every platform
 * and their sizes are pinned below. Records that hold pointers have natural alignment. Field names
 * are the protocol's own. */
#ifndef LENSWIRE_RECORDS_H
#define LENSWIRE_RECORDS_H

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include "lenswire/protocol.h"

/* Fails to compile when the condition does not hold. */
#ifdef __cplusplus
#define LENSWIRE_PIN(condition) static_assert(condition, #condition)
#else
#define LENSWIRE_PIN(condition) __extension__ _Static_assert(condition, #condition)
#endif

/* Stands before every function and object that the shared library exports. */
#define LENSWIRE_API __attribute__((visibility("default")))

#pragma pack(push, 1)

/* The header of a command message; ulBufferNum x ulBufferSize payload bytes follow it. */
struct PrivateCmd {
    uint16_t ulFlag;       /* 0 in every command */
    uint8_t ucTag1;        /* 1 in every command the library builds, not examined on receipt */
    uint8_t ucTag2;        /* likewise */
    uint16_t usCmd;        /* enum LenswireCommand; an answer carries its request's code */
    uint16_t ucState;      /* 0 in requests and in good answers */
    uint32_t ulLoginId;    /* assigned by the camera's login reply, 0 before */
    uint32_t ulBufferSize; /* bytes of one payload buffer */
    uint32_t ulBufferNum;  /* number of payload buffers */
    uint8_t reserved20[12];
};

/* The header of a packet on a stream connection; one whole audio or video frame follows it. */
struct StreamHeadInfo {
    uint16_t ulFlag; /* 1 in every packet */
    uint8_t reserved2;
    uint8_t ucFrameType; /* video: 1 and 3 are passed on, any other value as 0 */
    uint32_t ulDataInfo; /* bit 0: 1 video, 0 audio; bits 6..27: payload length in bytes */
    uint8_t reserved8;
    uint8_t ucCodec; /* LENSWIRE_CODEC_... */
    uint8_t reserved10[6];
    uint32_t ulTimeStamp; /* video: the camera's clock, passed on unchanged */
    uint16_t usWidth;     /* pixels */
    uint16_t usHeight;    /* pixels */
    uint16_t usFrameRate; /* frames per second */
    uint16_t usAttr;      /* top 6 bits are passed on */
    uint8_t reserved28[4];
};

/* The head that the library writes at the start of every frame buffer of the host's frame queue;
 * the frame's data follows at byte 36. In audio frames the bytes 12..19 and 24..31 are not written,
 * in video frames the bytes 18, 19, 21, 30 and 31 are not written. */
struct StreamFrameHead {
    uint8_t ucKind; /* 0 video, 1 audio */
    uint8_t reserved1;
    uint16_t usSequence; /* audio and video frames of a stream share one counter */
    uint32_t ulSeconds;  /* reception time, wall clock */
    uint32_t ulMicroseconds;
    uint32_t ulTimeStamp; /* video: the camera's time stamp */
    uint8_t ucFrameType;  /* video: 1, 3 or 0 */
    uint8_t reserved17;
    uint8_t reserved18[2];
    uint8_t ucCodec;     /* video: codec code 0 H264, 2 JPEG, 3 H265, 4 H264, 5 H265; audio: kind 1 or 2 */
    uint8_t ucAudio21;   /* audio: 1 */
    uint16_t usAttr;     /* video: usAttr >> 10; audio: byte 22 is 0, byte 23 is 1 */
    uint16_t usWidth;    /* video */
    uint16_t usHeight;   /* video */
    uint8_t ucFrameRate; /* video: measured rate, or the camera's while none is measured */
    uint8_t reserved29;  /* video: 0 */
    uint8_t reserved30[2];
    uint32_t ulDataSize; /* bytes after the head: the payload, in audio frames 4 bytes more */
};

/* Credentials of a camera. All 32 bytes of szPassword are encrypted and sent. Neither text needs a
 * terminating NUL. */
struct LoginInfo {
    char szUserName[32];
    char szPassword[32];
    uint8_t reserved64[12];
};

/* What a camera says of itself. The texts need not end in a NUL. */
struct IpcDeviceInfo {
    uint8_t reserved0;
    uint8_t ndevType; /* device type code of the camera's platform */
    uint8_t reserved2[366];
    char szFirmwareName[64]; /* fields separated by '_' */
    char platform[8];        /* chip name, empty if the first byte is 0 */
    uint8_t reserved440[8];
    char sensortype[8]; /* sensor name, empty if the first byte is 0 */
    uint8_t reserved456[8];
};

/* The host's record of one camera. */
struct HostCameraRecord {
    uint8_t reserved0;
    uint8_t ucChannelNo; /* recorder channel */
    uint8_t reserved2[6];
    char szIpAddr[32]; /* dotted text */
    uint32_t ulPort;   /* control port */
};

#pragma pack(pop)

LENSWIRE_PIN(sizeof(struct PrivateCmd) == ARG_HEAD_LEN);
LENSWIRE_PIN(offsetof(struct PrivateCmd, ulBufferSize) == 12);
LENSWIRE_PIN(sizeof(struct StreamHeadInfo) == ARG_HEAD_LEN);
LENSWIRE_PIN(offsetof(struct StreamHeadInfo, ulTimeStamp) == 16);
LENSWIRE_PIN(sizeof(struct StreamFrameHead) == 36);
LENSWIRE_PIN(offsetof(struct StreamFrameHead, ucCodec) == 20);
LENSWIRE_PIN(sizeof(struct LoginInfo) == LENSWIRE_LOGIN_SIZE);
LENSWIRE_PIN(sizeof(struct IpcDeviceInfo) == LENSWIRE_DEVICE_INFO_SIZE);
LENSWIRE_PIN(offsetof(struct IpcDeviceInfo, szFirmwareName) == 368);
LENSWIRE_PIN(offsetof(struct IpcDeviceInfo, platform) == 432);
LENSWIRE_PIN(offsetof(struct IpcDeviceInfo, sensortype) == 448);
LENSWIRE_PIN(sizeof(struct HostCameraRecord) == 44);

/* One pending request. Slots live in g_recvsendlist; a host gets one from Init_Cond_Msg or
 * Prv_PacketMsg and gives it back with prv_destroy_msg. */
struct RecvSendSlot {
    uint8_t* recvData; /* 4096 bytes of the host's allocator, owned by the slot; the answer lands here */
    uint32_t ulCmd;    /* command code awaited */
    uint32_t ulInUse;  /* 1 while taken */
    pthread_mutex_t mutex;
    pthread_cond_t cond;
    uint8_t ucPosted;   /* 1 once an answer or an error has been posted */
    uint32_t ulIpAddr;  /* camera address awaited, network order */
    uint32_t ulErrFlag; /* 1 when the posted answer carried an error state */
};

/* One control connection to a camera. */
struct CmdClient {
    uint8_t ucClientState;       /* enum ClientState */
    uint32_t ulLoginUptime;      /* host uptime when the connection became PC_STATE_READY */
    uint32_t ulTimerLen[8];      /* steps, per state */
    uint32_t ulLoginStep;        /* 0 to 4 */
    struct LoginInfo LoginInfo;  /* copied from the host */
    uint32_t ulIpAddr;           /* network order */
    uint32_t ulPort;             /* host order */
    uint8_t serialNum[8];        /* key of the login encryption */
    uint32_t ulLoginId;          /* assigned by the camera */
    int32_t sockFd;              /* -1 when there is none */
    uint32_t ulTimer;            /* steps left in the current state, 0 when no timer runs */
    uint8_t aucRecvRemain[4096]; /* an incomplete message kept between two reads */
    uint32_t ulRecvRemainLen;    /* bytes held in aucRecvRemain */
};

/* One stream connection unit, the host's handle for a stream. */
struct StreamConn {
    int32_t sockFd; /* stream socket, -1 when there is none */
    struct CmdClient* pCmdClient;
    uint8_t reserved[68];
};

/* The host's record of one channel's stream; 72 bytes where pointers have 4. */
struct DevChannelInfo {
    uint8_t reserved0[2];
    uint8_t ucChannelNo; /* recorder channel; indexes the host's per-channel tables */
    uint8_t ucStreamNo;
    uint8_t reserved4[40];
    struct StreamConn* pStreamConn;
    uint8_t reserved48[12];
    void* pRecvBuf; /* host receive-buffer object; its ring begins 16 bytes into it */
    void* pStream;  /* host stream object, the frame queue */
    uint8_t reserved68[4];
};

/* The record of the host's stream request queue and of restart messages. */
struct StreamRequest {
    uint32_t ulType; /* enum StreamRequestType */
    struct DevChannelInfo info;
    uint8_t reserved76[952];
};

enum StreamRequestType { STREAM_REQ_OPEN = 0, STREAM_REQ_CLOSE = 1, STREAM_REQ_RESTART = 3 };

#if UINTPTR_MAX == 0xFFFFFFFFu
LENSWIRE_PIN(sizeof(struct DevChannelInfo) == 72);
LENSWIRE_PIN(offsetof(struct DevChannelInfo, pStreamConn) == 44);
LENSWIRE_PIN(offsetof(struct DevChannelInfo, pRecvBuf) == 60);
LENSWIRE_PIN(offsetof(struct DevChannelInfo, pStream) == 64);
LENSWIRE_PIN(sizeof(struct StreamRequest) == 1028);
#else
LENSWIRE_PIN(sizeof(struct DevChannelInfo) == 96);
LENSWIRE_PIN(sizeof(struct StreamRequest) == 1056);
#endif

#endif
