/* The insides of the settings records that the library carries without looking into them.
 *
 * They are agreed between host and camera; these are the layouts that the reference recorder and the camera
 * simulator use. What has no name here is kept as the camera gave it. All numbers are little-endian, texts
 * are padded with NUL and need not end in one. */
#ifndef LENSWIRE_CAMERA_RECORDS_H
#define LENSWIRE_CAMERA_RECORDS_H

#include <stddef.h>
#include <stdint.h>

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma pack(push, 1)

/* LENSWIRE_CMD_IMAGE_GET and _SET. */
struct IpcImageProperty {
    uint8_t ucChannelNo;
    uint8_t ucStreams;    /* LENSWIRE_ALL_STREAMS in a request */
    uint8_t ucBrightness; /* this and the next four: 0 to 100 */
    uint8_t ucContrast;
    uint8_t ucSaturation;
    uint8_t ucHue;
    uint8_t ucSharpness;
    uint8_t ucMirror;   /* bit 0 left and right, bit 1 up and down */
    uint8_t ucDayNight; /* 0 automatic, 1 day, 2 night */
    uint8_t ucBacklight;
    uint8_t ucWideRange;
    uint8_t ucDenoise;
    uint16_t usShutter; /* 1/n second, 0 automatic */
    uint8_t ucFlicker;  /* 50 or 60 Hz, 0 off */
    uint8_t reserved15[21];
};

/* LENSWIRE_CMD_NETWORK_GET. */
struct IpcNetworkProperty {
    uint8_t ucChannelNo;
    uint8_t ucDhcp;
    uint16_t usPort; /* control port */
    uint16_t usHttpPort;
    char szIpAddr[16];
    char szMask[16];
    char szGateway[16];
    char szDns1[16];
    char szDns2[16];
    char szMac[18];
    uint8_t reserved104[14];
};

/* LENSWIRE_CMD_OSD_GET and _SET. Positions in thousandths of the picture. */
struct IpcOsd {
    uint8_t ucChannelNo;
    uint8_t ucShowName;
    uint8_t ucShowTime;
    uint8_t ucDateFormat; /* 0 year first, 1 month first, 2 day first */
    uint16_t usNameX;
    uint16_t usNameY;
    uint16_t usTimeX;
    uint16_t usTimeY;
    char szName[64];
    uint8_t reserved76[152];
};

/* LENSWIRE_CMD_WIFI_GET. */
struct IpcWifiNetwork {
    char szSsid[32];
    uint8_t ucSignal; /* percent */
    uint8_t ucSecured;
};

#define LENSWIRE_WIFI_NETWORKS 8

struct IpcWifi {
    uint8_t ucConnected;
    uint8_t ucSignal; /* percent */
    uint8_t ucNetworks;
    uint8_t reserved3;
    char szSsid[32];                                        /* the network it is in */
    struct IpcWifiNetwork networks[LENSWIRE_WIFI_NETWORKS]; /* in sight */
    uint8_t reserved308[318];
};

/* LENSWIRE_CMD_MOTION_GET and _SET. */
struct IpcMotionConfig {
    uint8_t ucChannelNo;
    uint8_t ucSwitch; /* 0 off */
    uint8_t reserved2;
    uint8_t ucSensitivity; /* byte 7 of the host's motion record */
    uint8_t reserved4[4];
    uint8_t aucArea[72]; /* a bit per field of the picture; bytes 8 to 79 of the host's motion record */
    uint8_t reserved80[88];
};

/* LENSWIRE_CMD_COVER_GET and _SET. Positions and sizes in thousandths of the picture. */
struct IpcCoverArea {
    uint16_t usX;
    uint16_t usY;
    uint16_t usWidth;
    uint16_t usHeight;
};

#define LENSWIRE_COVER_AREAS 4

struct IpcVideoCover {
    uint8_t ucChannelNo;
    uint8_t ucEnable;
    uint8_t ucAreas; /* that are used */
    uint8_t reserved3;
    struct IpcCoverArea areas[LENSWIRE_COVER_AREAS];
    uint8_t reserved36[168];
};

/* LENSWIRE_CMD_SMART_IFRAME_SET. */
struct IpcSmartIFrame {
    uint8_t ucChannelNo;
    uint8_t ucEnable;
    uint16_t usInterval; /* pictures from one key frame to the next */
    uint8_t reserved4[508];
};

/* LENSWIRE_CMD_ENCODING_GET and _SET, one stream. */
struct IpcEncoding {
    uint8_t ucChannelNo;
    uint8_t ucStreamType;  /* 0, 1 or 2 */
    uint8_t ucCodec;       /* LENSWIRE_CODEC_... */
    uint8_t ucBitrateMode; /* 0 variable, 1 constant */
    uint16_t usWidth;
    uint16_t usHeight;
    uint8_t ucFrameRate;
    uint8_t ucQuality;      /* 0 to 5 */
    uint16_t usKeyInterval; /* pictures from one key frame to the next */
    uint32_t ulBitrate;     /* kbit/s */
    uint8_t ucAudio;
    uint8_t reserved17[13];
    uint8_t ucFlag;
    uint8_t reserved31;
};

/* LENSWIRE_CMD_PTZ_GET and _SET. */
struct IpcPtz {
    uint8_t ucPtzChannel;
    uint8_t ucSpeed;
    int16_t sPan; /* this and the next in tenths of a degree; a set does not move the camera */
    int16_t sTilt;
    uint16_t usZoom;      /* hundredths */
    uint8_t ucMoving;     /* the move under way, enum LenswirePtzMove, 0 none */
    uint8_t ucPreset;     /* the preset that it went to last, counted from 1, 0 none */
    uint8_t ucCruiseLine; /* the running line, counted from 1, 0 none */
    uint8_t reserved11[13];
};

/* LENSWIRE_CMD_FISH_PROPERTY_GET. */
struct IpcFishEye {
    uint8_t reserved0;
    uint8_t ucType; /* 0 to 3 */
    uint8_t reserved2[62];
};

/* LENSWIRE_CMD_PROPERTY_BLOCK. */
struct IpcPropertyBlock {
    uint8_t reserved0[27];
    uint8_t ucSpecialPlatform; /* 1 for cameras of the special platform family */
    uint8_t reserved28[996];
};

#pragma pack(pop)

LENSWIRE_PIN(sizeof(struct IpcImageProperty) == LENSWIRE_IMAGE_SIZE);
LENSWIRE_PIN(sizeof(struct IpcNetworkProperty) == LENSWIRE_NETWORK_SIZE);
LENSWIRE_PIN(sizeof(struct IpcOsd) == LENSWIRE_OSD_SIZE);
LENSWIRE_PIN(sizeof(struct IpcWifi) == LENSWIRE_WIFI_SIZE);
LENSWIRE_PIN(sizeof(struct IpcMotionConfig) == LENSWIRE_MOTION_SIZE);
LENSWIRE_PIN(offsetof(struct IpcMotionConfig, aucArea) == 8);
LENSWIRE_PIN(sizeof(struct IpcVideoCover) == LENSWIRE_COVER_SIZE);
LENSWIRE_PIN(sizeof(struct IpcSmartIFrame) == LENSWIRE_SMART_IFRAME_SIZE);
LENSWIRE_PIN(sizeof(struct IpcEncoding) == LENSWIRE_ENCODING_SIZE);
LENSWIRE_PIN(offsetof(struct IpcEncoding, ucFlag) == 30);
LENSWIRE_PIN(sizeof(struct IpcPtz) == LENSWIRE_PTZ_SIZE);
LENSWIRE_PIN(sizeof(struct IpcFishEye) == LENSWIRE_FISH_PROPERTY_SIZE);
LENSWIRE_PIN(sizeof(struct IpcPropertyBlock) == LENSWIRE_PROPERTY_BLOCK_SIZE);
LENSWIRE_PIN(offsetof(struct IpcPropertyBlock, ucSpecialPlatform) == 27);

#ifdef __cplusplus
}
#endif

#endif
