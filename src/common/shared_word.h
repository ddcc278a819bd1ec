// Single words that several threads read and write without a lock, exported ones among them: what was
// written before a store is seen after the load that finds it.
#pragma once

#include <atomic>

namespace lenswire {

template <typename T>
T load_word(const T& word) {
    return std::atomic_ref<T>(const_cast<T&>(word)).load(std::memory_order_acquire);
}

template <typename T>
void store_word(T& word, T value) {
    std::atomic_ref<T>(word).store(value, std::memory_order_release);
}

}  // namespace lenswire
