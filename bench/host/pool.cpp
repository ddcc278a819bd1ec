#include "bench/host/pool.h"

#include <sys/mman.h>

#include "bench/cameras/video.h"
#include "bench/support/measure.h"

namespace lenswire::bench {

namespace {

// Before each buffer stands the number of its shelf; buffers begin on a cache line.
constexpr size_t kLabelBytes = 64;

struct Kind {
    size_t bytes;
    size_t count;
};
constexpr size_t kFrameHeadRoom = 128;
constexpr Kind kKinds[] = {
    {1024, 16384}, {kSmallFrame + kFrameHeadRoom, 8192}, {kKeyFrame + kFrameHeadRoom, 1024}};

constexpr size_t stride(const Kind& kind) {
    return kLabelBytes + (kind.bytes + kLabelBytes - 1) / kLabelBytes * kLabelBytes;
}

}  // namespace

Pool::Pool() {
    for (const Kind& kind : kKinds) memory_bytes_ += kind.count * stride(kind);
    void* memory = mmap(nullptr, memory_bytes_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) give_up("memory for frames");
    memory_ = static_cast<uint8_t*>(memory);
    uint8_t* at = memory_;
    for (size_t i = 0; i < shelves_.size(); ++i) {
        shelves_[i].bytes = kKinds[i].bytes;
        for (size_t n = 0; n < kKinds[i].count; ++n, at += stride(kKinds[i])) {
            shelves_[i].free.push_back(at + kLabelBytes);
        }
    }
}

Pool::~Pool() {
    munmap(memory_, memory_bytes_);
}

uint8_t* Pool::take(size_t bytes) {
    for (size_t i = 0; i < shelves_.size(); ++i) {
        Shelf& shelf = shelves_[i];
        if (bytes > shelf.bytes) continue;
        const std::lock_guard lock(shelf.mutex);
        if (shelf.free.empty()) return nullptr;
        uint8_t* buffer = shelf.free.back();
        shelf.free.pop_back();
        buffer[-1] = static_cast<uint8_t>(i);
        return buffer;
    }
    return nullptr;
}

void Pool::give_back(std::span<uint8_t* const> buffers) {
    for (size_t i = 0; i < shelves_.size(); ++i) {
        const std::lock_guard lock(shelves_[i].mutex);
        for (uint8_t* buffer : buffers) {
            if (buffer[-1] == i) shelves_[i].free.push_back(buffer);
        }
    }
}

}  // namespace lenswire::bench
