/* The cipher of the camera login, and two key functions for hosts.
 *
 * DES as published in FIPS 46-3, block by block without chaining or padding, meant for short secrets: it
 * works bit by bit through the standard's tables. Bit 1 of the standard is the most significant bit of
 * the first byte of a block or key; the least significant bit of each key byte is ignored.
 *
 * All memory is the caller's, nothing is allocated, no function reports an error: a null pointer or a
 * length of 0 or less makes a call do nothing. Callable from any thread, also at once; never blocks. */
#ifndef LENSWIRE_CIPHER_H
#define LENSWIRE_CIPHER_H

#include "lenswire/records.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Set to 0 by every block and every PP_DES_Decode. Carries no meaning. */
extern LENSWIRE_API int32_t g_index;

/* Encrypt and decrypt len bytes of src into dst under the 8 bytes of key. A last block that is not full
 * is processed whole: both buffers must hold len rounded up to a multiple of 8. dst may be src; else
 * the two must not overlap. */
LENSWIRE_API void PP_DES_Encode(uint8_t* dst, const uint8_t* src, const uint8_t* key, int len);
LENSWIRE_API void PP_DES_Decode(uint8_t* dst, const uint8_t* src, const uint8_t* key, int len);

/* One block of 8 bytes under the 8 bytes of key; mode 0 encrypts, 1 decrypts. Mind the order of the
 * arguments. dst may be src. */
LENSWIRE_API void PP_Des(const uint8_t* src, const uint8_t* key, uint8_t* dst, int mode);

/* dst[i] = src[i] XOR key[i mod 8] for len bytes. dst may be src. */
LENSWIRE_API void PP_Scramb_Decode(uint8_t* dst, const uint8_t* src, const uint8_t* key, int len);

/* Recovers an 8-byte key: the 8 bytes of src decrypted under the fixed scramble key. dst may be src. */
LENSWIRE_API void PP_Scramb_GetKey(const uint8_t* src, uint8_t* dst);

/* -- The steps the cipher is made of. Bits are counted from the most significant bit of byte 0. */

/* dst[i] ^= src[i] for n bytes, last byte first; n is 0 to 256. */
LENSWIRE_API void PP_Xor(uint8_t* dst, const uint8_t* src, int n);

/* For each j below n, 1 to 255, sets bit j of dst, counted from 0, to the bit of src whose number, counted
 * from 1, is table[j]. The other bits of dst stay. src and dst must not overlap. */
LENSWIRE_API void Permutation(const uint8_t* src, uint8_t* dst, const uint8_t* table, int n);

/* Rotates the bits first to last of buf, counted from 0, by shift positions, -2 to 2: left when it is
 * positive, right when it is negative. move_left and move_right are its two directions, n positions. */
LENSWIRE_API void move_bits(uint8_t* buf, int first, int last, int shift);
LENSWIRE_API void move_left(uint8_t* buf, int first, int last, int n);
LENSWIRE_API void move_right(uint8_t* buf, int first, int last, int n);

/* Row, 0 to 3, and column, 0 to 15, of the S-box entry for the 6 bits of buf that begin at bit pos: the
 * row is made of the outer two bits, the column of the inner four. 0 for a null buffer. */
LENSWIRE_API int S_GetLine(const uint8_t* buf, int pos);
LENSWIRE_API int S_GetRow(const uint8_t* buf, int pos);

#ifdef __cplusplus
}
#endif

#endif
