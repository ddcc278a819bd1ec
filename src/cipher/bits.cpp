// Single bits of byte buffers, counted from the most significant bit of byte 0.
#include "lenswire/cipher.h"

namespace {

int bit_at(const uint8_t* buf, int pos) {
    return buf[pos / 8] >> (7 - pos % 8) & 1;
}

void set_bit(uint8_t* buf, int pos, int bit) {
    const auto mask = static_cast<uint8_t>(0x80 >> pos % 8);
    buf[pos / 8] = static_cast<uint8_t>(bit ? buf[pos / 8] | mask : buf[pos / 8] & ~mask);
}

// The bits from `from` to `to` move one place towards `from`, the first one comes last; `step` is the
// direction from `from` to `to`.
void rotate_one(uint8_t* buf, int from, int to, int step) {
    const int carried = bit_at(buf, from);
    for (int pos = from; pos != to; pos += step) set_bit(buf, pos, bit_at(buf, pos + step));
    set_bit(buf, to, carried);
}

}  // namespace

void PP_Xor(uint8_t* dst, const uint8_t* src, int n) {
    if (dst == nullptr || src == nullptr) return;
    for (int i = n - 1; i >= 0; --i) dst[i] ^= src[i];
}

void Permutation(const uint8_t* src, uint8_t* dst, const uint8_t* table, int n) {
    if (src == nullptr || dst == nullptr || table == nullptr) return;
    for (int j = 0; j < n; ++j) set_bit(dst, j, bit_at(src, table[j] - 1));
}

void move_bits(uint8_t* buf, int first, int last, int shift) {
    if (shift > 0) {
        move_left(buf, first, last, shift);
    } else {
        move_right(buf, first, last, -shift);
    }
}

void move_left(uint8_t* buf, int first, int last, int n) {
    if (buf == nullptr || first >= last) return;
    for (int i = 0; i < n; ++i) rotate_one(buf, first, last, 1);
}

void move_right(uint8_t* buf, int first, int last, int n) {
    if (buf == nullptr || first >= last) return;
    for (int i = 0; i < n; ++i) rotate_one(buf, last, first, -1);
}

int S_GetLine(const uint8_t* buf, int pos) {
    if (buf == nullptr) return 0;
    return 2 * bit_at(buf, pos) + bit_at(buf, pos + 5);
}

int S_GetRow(const uint8_t* buf, int pos) {
    if (buf == nullptr) return 0;
    return 8 * bit_at(buf, pos + 1) + 4 * bit_at(buf, pos + 2) + 2 * bit_at(buf, pos + 3) +
           bit_at(buf, pos + 4);
}
