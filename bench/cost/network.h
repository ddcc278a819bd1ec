// The network, the clock and the threads of a counted program, such that every run does the same: recv gives
// the pieces that stand ready, however a kernel would have cut them, and a wait does the work that it waits
// for. A shared library of its own, in front of libc, so that what it spends is told apart from what is
// counted.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <span>
#include <vector>

namespace lenswire::bench::cost {

struct Network {
    // What the next recv calls of a descriptor get, a piece each, joined of these parts.
    void brings(int fd, std::initializer_list<std::span<const uint8_t>> parts);

    std::function<void(int fd, std::vector<uint8_t> bytes)> sent;
    std::function<void()> awaited;  // what a thread waits for at a condition is done here, by itself
    std::function<void()> paused;   // in place of every pause
    bool refuses_threads = false;
    int64_t now_us = 1'000'000'000;  // of every clock; each reading takes a microsecond
};

Network& network();

}  // namespace lenswire::bench::cost
