/* The host's objects of a stream that the library pokes at: the receive buffer with its ring, the stream
 * object, and the stream's private information.
 *
 * The host allocates them, at least as large as below and aligned to 4 bytes, and keeps them alive while
 * their stream is open: see Ownership in stream.h. What lies beyond the bytes named here is the host's.
 * - LW-24 open-unaligned: receive buffer and stream object are aligned to 4 bytes. */
#ifndef LENSWIRE_HOST_OBJECTS_H
#define LENSWIRE_HOST_OBJECTS_H

#include "lenswire/records.h"

/* The start of the receive-buffer object, DevChannelInfo.pRecvBuf. What the ring services of host_services.h
 * get as their ring is the address of aucRing. */
struct HostReceiveBuffer {
    uint8_t reserved0[16];
    uint8_t aucRing[12]; /* the host's: positions, capacity, a pointer to the bytes, what it likes */
    uint32_t ulFill;     /* cleared when a stream opens, by the queue thread: the ring must then be empty,
                            wherever its positions stood */
};

/* Places in the receive-buffer object, for a host that lays its ring out by itself. */
#define LENSWIRE_RING_OFFSET 16
#define LENSWIRE_RING_FILL_OFFSET 28

/* A packet is taken out of the ring when so many bytes of what follows it are there as well. */
#define LENSWIRE_BYTES_BEHIND_PACKET 33

/* What ring_used_size must be able to reach for a packet of this payload ever to be taken out: its header,
 * its payload, and the bytes behind it. A ring whose capacity can be filled to the last byte needs just that;
 * one that always keeps a byte free needs one more. */
#define LENSWIRE_RING_SIZE(payload) (ARG_HEAD_LEN + (payload) + LENSWIRE_BYTES_BEHIND_PACKET)

/* The least capacity for every packet that the protocol allows. A host that knows its cameras' largest frame
 * may have less. The packet that outgrows a ring fails its stream: the library says so in one line per
 * opening of the stream and asks for a restart, and the same frame will fail it again. */
#define LENSWIRE_RING_LEAST LENSWIRE_RING_SIZE(LENSWIRE_PACKET_LENGTH_MAX)

/* The start of the stream object, DevChannelInfo.pStream. The library reads the two words, writes nothing,
 * and hands the object's address to the frame queue services. */
struct HostStreamObject {
    uint8_t reserved0[724];
    int32_t lFirst; /* arguments of networkGetStreampPrivateInfo, of the host's choice */
    int32_t lSecond;
};

/* The start of what networkGetStreampPrivateInfo points to. Written by the receive loop without a lock: the
 * name only when it changes, the kind with every audio frame. */
struct HostStreamInfo {
    uint8_t reserved0[8];
    char szCodec[5]; /* of the video frames: "H264", "H265" or "JPEG", with its NUL */
    uint8_t reserved13[59];
    uint32_t ulAudioKind; /* of the audio frames: 1 or 2 */
};

LENSWIRE_PIN(sizeof(struct HostReceiveBuffer) == 32);
LENSWIRE_PIN(offsetof(struct HostReceiveBuffer, aucRing) == LENSWIRE_RING_OFFSET);
LENSWIRE_PIN(offsetof(struct HostReceiveBuffer, ulFill) == LENSWIRE_RING_FILL_OFFSET);
LENSWIRE_PIN(LENSWIRE_RING_LEAST == 4194368);
LENSWIRE_PIN(sizeof(struct HostStreamObject) == 732);
LENSWIRE_PIN(offsetof(struct HostStreamObject, lFirst) == 724);
LENSWIRE_PIN(offsetof(struct HostStreamObject, lSecond) == 728);
LENSWIRE_PIN(sizeof(struct HostStreamInfo) == 76);
LENSWIRE_PIN(offsetof(struct HostStreamInfo, szCodec) == 8);
LENSWIRE_PIN(offsetof(struct HostStreamInfo, ulAudioKind) == 72);

#endif
