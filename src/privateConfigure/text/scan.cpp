#include "privateConfigure/text/scan.h"

#include <algorithm>
#include <climits>
#include <cstdint>

namespace lenswire {

namespace {

bool is_space(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace

void Scanner::skip_space() {
    while (is_space(*at_)) ++at_;
}

Scanner& Scanner::literal(char expected) {
    fits_ = fits_ && *at_ == expected;
    if (fits_) ++at_;
    return *this;
}

Scanner& Scanner::integer(int& value) {
    if (!fits_) return *this;
    skip_space();
    const bool negative = *at_ == '-';
    if (*at_ == '-' || *at_ == '+') ++at_;
    fits_ = is_digit(*at_);
    if (!fits_) return *this;
    int64_t sum = 0;
    for (; is_digit(*at_); ++at_) sum = std::min<int64_t>(sum * 10 + (*at_ - '0'), INT_MAX + int64_t{1});
    value = static_cast<int>(negative ? -sum : std::min<int64_t>(sum, INT_MAX));
    return *this;
}

Scanner& Scanner::word(char* out, int width) {
    if (!fits_) return *this;
    skip_space();
    int length = 0;
    while (length < width && *at_ != '\0' && !is_space(*at_)) out[length++] = *at_++;
    fits_ = length > 0;
    if (fits_) out[length] = '\0';
    return *this;
}

}  // namespace lenswire
