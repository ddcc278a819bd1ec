#pragma once

#include <chrono>
#include <string>

namespace lenswire::recorder {

// What every session with a camera stands on.
struct SessionOptions {
    std::string library;
    std::string database = {};  // empty: in memory
    // How long a camera may take for the connection, for the login, and for each answer.
    double timeout_s = 10;

    std::chrono::steady_clock::duration timeout() const {
        return std::chrono::duration_cast<std::chrono::steady_clock::duration>(
            std::chrono::duration<double>(timeout_s));
    }
};

}  // namespace lenswire::recorder
