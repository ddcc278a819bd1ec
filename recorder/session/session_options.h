#pragma once

#include <string>

namespace lenswire::recorder {

// What every session with a camera stands on.
struct SessionOptions {
    std::string library;
    std::string database;  // empty: in memory
};

}  // namespace lenswire::recorder
