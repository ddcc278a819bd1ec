/* Pan, tilt and zoom.
 *
 * ip is a camera's IPv4 address in network order; operations that take a recorder channel look its camera
 * up in the host's channel database. For the host's own threads. Sends await no answer; the get, and with it
 * Private_SetPtzSpeed, blocks as those of settings.h do. Records are the caller's and not kept. -1 stands for
 * a null argument or address 0 as well; failures are logged. */
#ifndef LENSWIRE_PTZ_H
#define LENSWIRE_PTZ_H

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

#pragma pack(push, 1)

struct PtzProperty {
    uint8_t ucPtzChannel; /* 0 or the channel of an ordinary camera, a fisheye camera's view */
    uint8_t ucSpeed;
    uint8_t reserved2[22]; /* the camera's */
};

struct PtzOption {
    uint8_t ucKind;      /* 1 from Private_PtzCmd, 0 for a cruise line */
    uint8_t ucOperation; /* LENSWIRE_PTZ_..., or a code between host and camera */
    uint8_t reserved2[2];
    uint8_t ucArgument; /* preset number - 1, or cruise line number */
    uint8_t reserved5[15];
};

#pragma pack(pop)

LENSWIRE_PIN(sizeof(struct PtzProperty) == LENSWIRE_PTZ_SIZE);
LENSWIRE_PIN(sizeof(struct PtzOption) == LENSWIRE_PTZ_OPTION_SIZE);
LENSWIRE_PIN(offsetof(struct PtzOption, ucArgument) == 4);

/* Reads the 24-byte struct PtzProperty. 0, or -1 with out24 untouched. */
LENSWIRE_API int Private_PTZ_GET_Property(uint32_t ip, void* out24);

/* Sends it. 0 sent, -1 not. */
LENSWIRE_API int Private_PTZ_SET_Property(uint32_t ip, const void* record24);

/* Sends one operation, a 20-byte struct PtzOption. 0 sent, -1 not. */
LENSWIRE_API int Private_PTZ_OPTION(uint32_t ip, const void* record20);

/* Sets a channel's PTZ speed (low 8 bits): reads the camera's property, changes speed and PTZ channel, and
 * sends it back. The fisheye byte of struct HostChannelRecord gives the PTZ channel. Two threads
 * that do this for one camera may overtake each other. 0, or -1 when the channel has no camera or
 * the property cannot be read; a failed send is not reported. */
LENSWIRE_API int Private_SetPtzSpeed(uint32_t channel, int speed);

/* Sends an operation to a channel's camera, with secondArgument unless it is 0, else with argument (low 8
 * bits). 0, also when it could not be sent; -1 when the channel has no camera. */
LENSWIRE_API int Private_PtzCmd(uint32_t channel, int operation, int argument, int secondArgument);

/* Store the current position as a preset, and go to one. Presets count from 1. 4, whatever became of the
 * command, or -1 for a null pointer. */
LENSWIRE_API int Private_SetPreset(uint32_t channel, const uint16_t* preset);
LENSWIRE_API int Private_RecallPreset(uint32_t channel, const uint16_t* preset);

#ifdef __cplusplus
}
#endif

#endif
