// What the counted programs share: the mark around what is counted, and the receive loop on their own thread.
#pragma once

#include <cstdint>

#include "bench/cost/network.h"
#include "lenswire/connection.h"
#include "lenswire/stream.h"

// Instructions are collected from where this is entered to where it is left.
template <typename Work>
[[gnu::noinline]] void count_instructions(Work work) {
    work();
    asm volatile("" ::: "memory");  // keeps the call inside
}

namespace lenswire::bench::cost {

// Runs the library's receive loop. `bring` is called before each pass and makes ready what it will find; the
// loop ends when it returns false.
template <typename Bring>
void run_receive_loop(Bring bring) {
    if (!bring()) return;
    network().paused = [&bring] {
        if (!bring()) PC_G_RecvStreamLoopSwitch = 0;
    };
    PC_G_RecvStreamLoopSwitch = 1;
    PC_RecvStreamLoop();
    network().paused = nullptr;
}

}  // namespace lenswire::bench::cost
