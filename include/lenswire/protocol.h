/* The numbers of the camera protocol: sizes, limits, command codes and field values that a
 * recorder, the library and a camera all agree on. No code that builds or reads a message lives
 * here. All multi-byte fields on the wire are little-endian. */
#ifndef LENSWIRE_PROTOCOL_H
#define LENSWIRE_PROTOCOL_H

/* A command message is a header and ulBufferNum x ulBufferSize payload bytes. */
#define ARG_HEAD_LEN 32   /* bytes of a command header and of a stream packet header */
#define MAX_CMD_SIZE 4096 /* bytes of the largest whole message */

/* ulFlag, the first 16-bit word: tells a command from a stream packet. */
#define LENSWIRE_FLAG_COMMAND 0
#define LENSWIRE_FLAG_STREAM 1

/* usCmd, command codes. "Answered" requests get a message of the same code back. */
enum LenswireCommand {
    LENSWIRE_CMD_LOGIN = 0x0000,          /* 76-byte login record; answered */
    LENSWIRE_CMD_HEARTBEAT = 0x0006,      /* header only, both ways */
    LENSWIRE_CMD_MOTION_PUSH = 0x0009,    /* camera only; payload byte 2 is the motion state */
    LENSWIRE_CMD_PTZ_OPTION = 0x0020,     /* 20 bytes */
    LENSWIRE_CMD_CRUISE_SET = 0x0025,     /* 980 bytes */
    LENSWIRE_CMD_CRUISE_GET = 0x0026,     /* 980 bytes; answered */
    LENSWIRE_CMD_WIFI_GET = 0x0035,       /* 626 bytes; answered */
    LENSWIRE_CMD_SERIAL = 0x0101,         /* header only; answered, first 8 payload bytes are the serialNum */
    LENSWIRE_CMD_STREAM = 0x0102,         /* 4 bytes, on a stream connection; answered */
    LENSWIRE_CMD_TIME_GET = 0x1000,       /* size 212, number 0; answered */
    LENSWIRE_CMD_TIME_SET = 0x1001,       /* 212 bytes */
    LENSWIRE_CMD_ENCODING_GET = 0x1002,   /* 32 bytes; answered with up to 127 records of 32 bytes */
    LENSWIRE_CMD_ENCODING_SET = 0x1003,   /* 3 x 32 bytes */
    LENSWIRE_CMD_IMAGE_GET = 0x1004,      /* 36 bytes; answered */
    LENSWIRE_CMD_IMAGE_SET = 0x1005,      /* 36 bytes */
    LENSWIRE_CMD_NETWORK_GET = 0x1006,    /* 118 bytes; answered */
    LENSWIRE_CMD_MOTION_GET = 0x100A,     /* 168 bytes; answered */
    LENSWIRE_CMD_MOTION_SET = 0x100B,     /* 168 bytes */
    LENSWIRE_CMD_COVER_SET = 0x1020,      /* 204 bytes */
    LENSWIRE_CMD_COVER_GET = 0x1021,      /* 204 bytes; answered */
    LENSWIRE_CMD_OSD_SET = 0x1022,        /* 228 bytes */
    LENSWIRE_CMD_OSD_GET = 0x1023,        /* 228 bytes; answered */
    LENSWIRE_CMD_PTZ_SET = 0x1030,        /* 24 bytes */
    LENSWIRE_CMD_PTZ_GET = 0x1031,        /* header only; answered with 24 bytes */
    LENSWIRE_CMD_ALARM_EX = 0x1057,       /* 560 bytes */
    LENSWIRE_CMD_STATE2_IS_GOOD = 0x1058, /* the one command whose ucState 2 counts as success */
    LENSWIRE_CMD_FISH_ENCODING_GET = 0x1061, /* 256 bytes; answered */
    LENSWIRE_CMD_FISH_ENCODING_SET = 0x1062, /* 3 x 256 bytes */
    LENSWIRE_CMD_FISH_PROPERTY_GET = 0x1063, /* 64 bytes; answered, also without a login */
    LENSWIRE_CMD_SMART_IFRAME_SET = 0x106D,  /* 512 bytes */
    LENSWIRE_CMD_ENCODING_SCOPE = 0x1102,    /* 1027 bytes; answered */
    LENSWIRE_CMD_UPGRADE = 0x2002,           /* the firmware file; answered, on a connection of its own */
    LENSWIRE_CMD_DEVICE_INFO = 0x2003,       /* 464 bytes; answered */
    LENSWIRE_CMD_PROPERTY_BLOCK = 0x2012     /* 1024 bytes; answered */
};

/* Sizes of the fixed records, in bytes. */
#define LENSWIRE_LOGIN_SIZE 76
#define LENSWIRE_SERIAL_SIZE 8
#define LENSWIRE_STREAM_REQUEST_SIZE 4
#define LENSWIRE_STREAM_ANSWER_SIZE 32
#define LENSWIRE_PTZ_OPTION_SIZE 20
#define LENSWIRE_PTZ_SIZE 24
#define LENSWIRE_CRUISE_SIZE 980
#define LENSWIRE_WIFI_SIZE 626
#define LENSWIRE_TIME_SIZE 212
#define LENSWIRE_ENCODING_SIZE 32
#define LENSWIRE_FISH_ENCODING_SIZE 256
#define LENSWIRE_FISH_PROPERTY_SIZE 64
#define LENSWIRE_IMAGE_SIZE 36
#define LENSWIRE_NETWORK_SIZE 118
#define LENSWIRE_MOTION_SIZE 168
#define LENSWIRE_COVER_SIZE 204
#define LENSWIRE_OSD_SIZE 228
#define LENSWIRE_ALARM_EX_SIZE 560
#define LENSWIRE_SMART_IFRAME_SIZE 512
#define LENSWIRE_ENCODING_SCOPE_SIZE 1027
#define LENSWIRE_DEVICE_INFO_SIZE 464
#define LENSWIRE_PROPERTY_BLOCK_SIZE 1024

/* The channel byte that asks for the encoding or image records of all streams. */
#define LENSWIRE_ALL_STREAMS 0x33

/* Stream packets: ulDataInfo holds the kind in bit 0 and the payload length in bits 6 to 27. */
#define LENSWIRE_PACKET_VIDEO 1
#define LENSWIRE_PACKET_AUDIO 0
#define LENSWIRE_PACKET_LENGTH_SHIFT 6
#define LENSWIRE_PACKET_LENGTH_MAX 4194303

/* ucFrameType of a video packet: only these two are passed on. */
#define LENSWIRE_FRAME_TYPE_1 1
#define LENSWIRE_FRAME_TYPE_3 3

/* ucCodec of a video packet; any other value reads as H.264. */
#define LENSWIRE_CODEC_H264 0
#define LENSWIRE_CODEC_H265 1
#define LENSWIRE_CODEC_H264_ALT 2
#define LENSWIRE_CODEC_JPEG 3
#define LENSWIRE_CODEC_H264_PLUS 4
#define LENSWIRE_CODEC_H265_PLUS 5
/* ucCodec of an audio packet: 16 is audio kind 1, any other value audio kind 2. */
#define LENSWIRE_CODEC_AUDIO_KIND_1 16

/* Codes of byte 1 of a PTZ operation that the library itself uses. */
#define LENSWIRE_PTZ_GOTO_PRESET 0x28
#define LENSWIRE_PTZ_START_CRUISE 0x29
#define LENSWIRE_PTZ_SET_PRESET 0x2C
#define LENSWIRE_PTZ_STOP_CRUISE 0x2E

#endif
