#include "check/memory.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace lenswire::check {

namespace {

pthread_mutex_t g_mutex = PTHREAD_MUTEX_INITIALIZER;

const auto g_page_size = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));

// No two neighbours are alike, and a shift by a few bytes shows.
uint8_t mark_at(size_t index) {
    return static_cast<uint8_t>(0xA5 ^ (index * 31));
}

bool is_page_there(const uint8_t* place) {
    unsigned char state;
    auto* page = const_cast<uint8_t*>(place) - reinterpret_cast<uintptr_t>(place) % g_page_size;
    return mincore(page, g_page_size, &state) == 0 || errno != ENOMEM;
}

}  // namespace

Lock::Lock() {
    pthread_mutex_lock(&g_mutex);
}

Lock::~Lock() {
    pthread_mutex_unlock(&g_mutex);
}

// What is lent behind short bytes is marked up to the end of the inline area: a host may take the capacity
// for the length.
Lent::Lent(void* original, size_t length)
    : original_(static_cast<uint8_t*>(original)),
      length_(length),
      area_(inline_),
      lent_(original_),
      behind_(0) {
    const bool fits = length <= kInline - 2 * kMarks;
    if (!fits) area_ = static_cast<uint8_t*>(std::malloc(length + 2 * kMarks));
    if (area_ == nullptr || original == nullptr) return;
    behind_ = fits ? kInline - kMarks - length : kMarks;
    for (size_t i = 0; i < kMarks + length + behind_; ++i) area_[i] = mark_at(i);
    lent_ = area_ + kMarks;
    std::memcpy(lent_, original, length);
}

Lent::~Lent() {
    if (area_ == inline_) {
        explicit_bzero(inline_, sizeof inline_);  // there may have been a password
    } else {
        std::free(area_);
    }
}

bool Lent::is_marked(size_t from, size_t to) const {
    for (size_t i = from; i < to; ++i) {
        if (area_[i] != mark_at(i)) return false;
    }
    return true;
}

bool Lent::is_intact() const {
    if (lent_ == original_) return true;
    return is_marked(0, kMarks) && is_marked(kMarks + length_, kMarks + length_ + behind_);
}

void Lent::mark_content() {
    for (size_t i = 0; lent_ != original_ && i < length_; ++i) lent_[i] = mark_at(kMarks + i);
}

size_t Lent::take_unwritten() {
    if (lent_ == original_) return 0;
    size_t count = 0;
    while (count < length_ && lent_[length_ - count - 1] == mark_at(kMarks + length_ - count - 1)) ++count;
    if (count < 4) return 0;
    std::memcpy(lent_ + length_ - count, original_ + length_ - count, count);
    return count;
}

bool Lent::is_unchanged(size_t from) const {
    return from >= length_ || std::memcmp(lent_ + from, original_ + from, length_ - from) == 0;
}

void Lent::give_back() const {
    if (lent_ != original_) std::memcpy(original_, lent_, length_);
}

Kept::Kept(const void* original, size_t length)
    : original_(original), length_(original == nullptr ? 0 : std::min(length, sizeof copy_)) {
    if (length_ > 0) std::memcpy(copy_, original, length_);
}

bool Kept::is_changed() const {
    return length_ > 0 && std::memcmp(copy_, original_, length_) != 0;
}

bool is_mapped(const void* start, size_t length) {
    const auto* first = static_cast<const uint8_t*>(start);
    return reinterpret_cast<uintptr_t>(start) <= UINTPTR_MAX - length && is_page_there(first) &&
           is_page_there(first + length - 1);
}

bool overlap(const void* a, size_t a_length, const void* b, size_t b_length) {
    const auto left = reinterpret_cast<uintptr_t>(a);
    const auto right = reinterpret_cast<uintptr_t>(b);
    return left < right + b_length && right < left + a_length;
}

bool is_aligned(const void* pointer, size_t alignment) {
    return reinterpret_cast<uintptr_t>(pointer) % alignment == 0;
}

int64_t steady_us(clockid_t clock) {
    timespec now;
    if (clock_gettime(clock, &now) != 0) return -1;
    return int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1'000;
}

}  // namespace lenswire::check
