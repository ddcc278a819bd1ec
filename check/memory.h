// Looks at memory that goes back and forth between library and host.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <ctime>

namespace lenswire::check {

// Guards every table of the check. Never held while the host is called.
class Lock {
  public:
    Lock();
    ~Lock();
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
};

// Memory of the library that the host is to write into, lent as a copy between two rows of marks. A length
// for which there is no memory is lent as it is, without marks.
class Lent {
  public:
    static constexpr size_t kMarks = 64;

    Lent(void* original, size_t length);
    ~Lent();
    Lent(const Lent&) = delete;
    Lent& operator=(const Lent&) = delete;

    template <typename T = void>
    T* bytes() const {
        return reinterpret_cast<T*>(lent_);
    }
    // Whether nothing was written around the bytes.
    bool is_intact() const;
    // Puts marks into the bytes themselves; the library's own content comes back with take_unwritten.
    void mark_content();
    // How many bytes at the end, 4 at least, still have their marks: they get what the library had there.
    size_t take_unwritten();
    // Whether the bytes from `from` on are as the library has them.
    bool is_unchanged(size_t from) const;
    // Hands the bytes to the library.
    void give_back() const;

  private:
    static constexpr size_t kInline = 1280;

    bool is_marked(size_t from, size_t to) const;

    uint8_t* original_;
    size_t length_;
    uint8_t* area_;  // null when the original itself is lent
    uint8_t* lent_;
    size_t behind_;  // marks behind the bytes
    uint8_t inline_[kInline];
};

// Memory of the library that the host is to leave alone: a copy to compare it with.
class Kept {
  public:
    Kept(const void* original, size_t length);
    bool is_changed() const;

  private:
    const void* original_;
    size_t length_;
    uint8_t copy_[1280];
};

// Whether a piece of memory may be looked at: its first and its last page are there.
bool is_mapped(const void* start, size_t length);
bool overlap(const void* a, size_t a_length, const void* b, size_t b_length);
bool is_aligned(const void* pointer, size_t alignment);

// Microseconds of a clock that nobody sets, -1 when it cannot be read.
int64_t steady_us(clockid_t clock = CLOCK_MONOTONIC);

}  // namespace lenswire::check
