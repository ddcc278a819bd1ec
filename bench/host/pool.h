// Frame buffers of a few sizes, all made in advance. What was given back last is handed out first.
#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <span>
#include <vector>

namespace lenswire::bench {

class Pool {
  public:
    Pool();
    ~Pool();
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    // A buffer with room for so many bytes; null when there is none.
    uint8_t* take(size_t bytes);
    void give_back(std::span<uint8_t* const> buffers);

  private:
    struct Shelf {
        size_t bytes;  // of each buffer
        std::mutex mutex;
        std::vector<uint8_t*> free;
    };
    std::array<Shelf, 3> shelves_;
    uint8_t* memory_;
    size_t memory_bytes_ = 0;
};

}  // namespace lenswire::bench
