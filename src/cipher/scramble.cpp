// The key functions for hosts.
#include "lenswire/cipher.h"

namespace {
constexpr uint8_t kScrambleKey[8] = {'5', '8', '3', '0', '1', '6', '4', '7'};
}

void PP_Scramb_Decode(uint8_t* dst, const uint8_t* src, const uint8_t* key, int len) {
    if (dst == nullptr || src == nullptr || key == nullptr) return;
    for (int i = 0; i < len; ++i) dst[i] = src[i] ^ key[i % 8];
}

void PP_Scramb_GetKey(const uint8_t* src, uint8_t* dst) {
    PP_DES_Decode(dst, src, kScrambleKey, sizeof kScrambleKey);
}
