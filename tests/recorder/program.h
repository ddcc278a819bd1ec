// The whole program in this process: its arguments go in, what it printed and its exit code come out.
#pragma once

#include <string>
#include <vector>

namespace lenswire::recorder {

struct Outcome {
    int code = -1;
    std::string out;
    std::string err;
};

// Loads the library of this build. Nothing else may write to the standard streams meanwhile.
Outcome run_lenswire(std::vector<std::string> arguments);

}  // namespace lenswire::recorder
