/* Operation codes of byte 1 of a PTZ operation (command 0x0020). The library gives a meaning to four of
 * them, LENSWIRE_PTZ_GOTO_PRESET (0x28), LENSWIRE_PTZ_START_CRUISE (0x29), LENSWIRE_PTZ_SET_PRESET (0x2C)
 * and LENSWIRE_PTZ_STOP_CRUISE (0x2E) of protocol.h, and passes every other code on unchanged: plain moves
 * are between host and camera. This is the table that the reference recorder and the camera simulator use.
 *
 * A move goes on until a stop, another move, a preset or a cruise line ends it. Its argument (byte 4) is a
 * speed from 1 to 255; 0 stands for the speed of the camera's PTZ property. */
#ifndef LENSWIRE_PTZ_CODES_H
#define LENSWIRE_PTZ_CODES_H

enum LenswirePtzMove {
    LENSWIRE_PTZ_STOP = 0x01, /* ends a move where it is; the argument is not used */
    LENSWIRE_PTZ_LEFT = 0x02,
    LENSWIRE_PTZ_RIGHT = 0x03,
    LENSWIRE_PTZ_UP = 0x04,
    LENSWIRE_PTZ_DOWN = 0x05,
    LENSWIRE_PTZ_ZOOM_IN = 0x06,
    LENSWIRE_PTZ_ZOOM_OUT = 0x07
};

#endif
