/* Encoding: what a camera can encode, and its settings per stream.
 *
 * ip is a camera's IPv4 address in network order. For the host's own threads; gets block up to their
 * answer time, after up to 5 seconds while no request slot is free, sets for the send only. Scopes, arrays
 * and records are the caller's and not kept; two threads must not fill one at once. Where nothing else is
 * said, a result is 0 or -1: a null argument or address 0, no free slot, not sent, an error answer, none in
 * time, or one that does not fit. Failures are logged. */
#ifndef LENSWIRE_ENCODING_H
#define LENSWIRE_ENCODING_H

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

#define LENSWIRE_RESOLUTIONS 16 /* sizes, and names, of one entry at most */

#pragma pack(push, 1)

/* Names and sizes are two lists that share the slots: a slot's name does not belong to its size. */
struct ResolutionSlot {
    char szCodec[10]; /* the list of names ends at the first empty one */
    uint16_t usWidth;
    uint16_t usHeight;
};

/* What one stream of one stream mode can encode. */
struct EncodingScopeEntry {
    uint8_t reserved0[16]; /* the host's */
    struct ResolutionSlot slots[LENSWIRE_RESOLUTIONS];
    uint32_t ulSizes; /* distinct sizes, from slot 0 on */
    uint8_t ucCapability;
    uint8_t reserved245[43]; /* the host's */
};

/* Entry 0 is the only stream of single-stream mode, 1 and 2 those of double-stream mode, 3 to 5 those of
 * triple-stream mode. */
struct EncodingScope {
    struct EncodingScopeEntry entries[6];
};

/* One stream's settings. */
struct EncodingRecord {
    uint8_t reserved0;
    uint8_t ucStreamType; /* 0, 1 or 2 */
    uint8_t reserved2[28];
    uint8_t ucFlag;
    uint8_t reserved31;
};

#pragma pack(pop)

LENSWIRE_PIN(sizeof(struct ResolutionSlot) == 14);
LENSWIRE_PIN(sizeof(struct EncodingScopeEntry) == 288);
LENSWIRE_PIN(offsetof(struct EncodingScopeEntry, ulSizes) == 240);
LENSWIRE_PIN(sizeof(struct EncodingScope) == 1728);
LENSWIRE_PIN(sizeof(struct EncodingRecord) == LENSWIRE_ENCODING_SIZE);
LENSWIRE_PIN(offsetof(struct EncodingRecord, ucFlag) == 30);

/* -- Capabilities. */

/* Asks a camera for its encoding scope (answer time 4 s) and fills in a struct EncodingScope: the
 * capability byte of all entries, and the sizes, their count and the codec names of the entries that the
 * camera's text speaks of. Everything else of the scope stays; a failure may leave it partly filled in.
 * channel, 0 or more, is sent (its low 8 bits). */
LENSWIRE_API int Private_Protocol_GetEncodingScope(int channel, uint32_t ip, void* scope);

/* Asks the camera of a recorder channel for its encoding records (answer time 10 s) and condenses ucFlag
 * of each: bit 2 stream type 0, bit 1 type 1, bit 0 type 2. 0 also when the camera could not be asked, 255
 * for a channel that has no camera or is not below configGetDisplayNum. */
LENSWIRE_API uint32_t Private_Protocol_GetStreamType(int channel);

/* The steps of it, for a host that has the answer's payload (at least 1027 bytes, or a text that ends in a
 * NUL) already. Pure but for their log lines.
 *
 * A text is "SINGLE", "SINGLE@DOUBLE" or "SINGLE@DOUBLE@TRIPLE" and must have H264 or H265 somewhere. Each
 * list is of groups "CODEC:WIDTHxHEIGHT;", with one, two or three items, commas between them, one for each
 * stream of the mode; at most 16 groups are read. A text without "@" leaves entries 0 to 2 without sizes. */

/* Copies the capability byte into every entry. */
LENSWIRE_API int Prv_EncScopPasVal(void* scope, const void* payload);

/* Parses the text at payload byte 3, up to its NUL or payload byte 1026, into the scope. */
LENSWIRE_API int Parse_EncodingResolution(void* scope, const void* payload);

/* Splits a text at its first two "@" into buffers of 1024 bytes; longer lists are cut. 0 with one "@", and
 * without any, which leaves the buffers alone; 1 with more; -1 for a null argument. */
LENSWIRE_API int Parse_EncodingResolution_Get(const char* text, char* single, char* twofold, char* triple);

/* Parse one list into the entry given, and the one or two behind it. */
LENSWIRE_API int Parse_SinResolution(void* entry0, const char* text);
LENSWIRE_API int Parse_DouResolution(void* entry1, const char* text);
LENSWIRE_API int Parse_ThrResolution(void* entry3, const char* text);

/* Adds an item to an entry that holds *sizes sizes and *names names, and counts what was new. An entry
 * that is full takes no more. */
LENSWIRE_API int Parse_FiltRes(uint32_t* sizes, uint32_t* names, void* entry, int width, int height,
                               const char* codec);

/* -- Settings per stream. An array96 is three struct EncodingRecord, in the order of stream types. */

/* Read a camera's records, at most 127, and file each at its stream type; those of other types are
 * skipped. 0 when two or more were filed; after -1 some may have been. The first waits 4 s and refuses an
 * answer that counts more than 20 records, the second waits 10 s. */
LENSWIRE_API int Private_Protocol_GetEncodingProperty(uint32_t ip, void* array96);
LENSWIRE_API int Private_Protocol_GetEncodingProperty1(uint32_t ip, void* array96);

/* Reads scope and records at once, both requests out together; waits 10 s for each answer. */
LENSWIRE_API int Private_Protocol_GetEncodingPropert(int channel, uint32_t ip, void* scope, void* array96);

/* Sends the three records as they stand. */
LENSWIRE_API int Private_Protocol_SetEncodingProperty(uint32_t ip, const void* array96);

/* Files one record in an array96. -1 for a stream type above 2. */
LENSWIRE_API int Process_EncodingType(const void* record32, void* array96);

/* -- Fisheye cameras have records of 256 bytes; an array768 is three of them. */

/* Reads a fisheye camera's record (answer time 4 s) and copies it into the first 1 + n of the three places
 * of array768, where n is its byte 1. The low 8 bits of channel are sent. */
LENSWIRE_API int Private_Fish_Protocol_GetEncodingProperty(uint32_t channel, uint32_t ip, void* array768);
LENSWIRE_API int Process_Fish_EncodingType(const void* record256, void* array768);

/* Sends the three records as they stand. */
LENSWIRE_API int Private_Fish_Protocol_SetEncodingProperty(uint32_t ip, const void* array768);

#ifdef __cplusplus
}
#endif

#endif
