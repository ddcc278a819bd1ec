// A fuzz target is a function over bytes that may be anything. One source in targets/ defines run(); the
// driver beside this file calls it for every input, of libFuzzer's making or from a corpus.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace lenswire::fuzz {

using Bytes = std::vector<uint8_t>;

// Takes an input apart from its front. What is not there any more reads as zero.
class Input {
  public:
    explicit Input(std::span<const uint8_t> bytes) : rest_(bytes) {}

    bool empty() const { return rest_.empty(); }
    std::span<const uint8_t> rest() const { return rest_; }
    std::span<const uint8_t> take(size_t count) {
        const auto taken = rest_.first(std::min(count, rest_.size()));
        rest_ = rest_.subspan(taken.size());
        return taken;
    }
    template <typename T>
    T number() {
        T value{};
        const auto bytes = take(sizeof value);
        if (!bytes.empty()) std::memcpy(&value, bytes.data(), bytes.size());
        return value;
    }
    // A packed record; what is not there any more is zero.
    template <typename T>
    T record() {
        return number<T>();
    }
    // Up to the next line end, which is taken as well; with a NUL behind it.
    std::vector<char> line();

  private:
    std::span<const uint8_t> rest_;
};

// Ends the process when something that must hold does not: a finding like a sanitizer's.
void require(bool holds, const char* what);

// The target. An input that it leaves no state behind is the same input every time.
void run(Input input);

}  // namespace lenswire::fuzz
