// The name of a stream: its folder, and what every line calls it. It comes from the camera's own name or
// address and from nothing else, so it is the same in every run, whatever else is recorded.
#pragma once

#include <string>

namespace lenswire::recorder {

// Of a camera, where none is named.
inline constexpr int kDefaultPort = 7788;

struct StreamIdentity {
    std::string name;  // as given on the command line; may be empty
    std::string host;
    int port = 0;
    int channel = 0;
    int stream = 0;
};

// front, front-sub; 192.0.2.7, and with -7001, -ch2, -sub, -sub2 behind it where they are not the usual ones.
// Only letters, digits, '.', '_' and '-' are in it.
std::string stream_name(const StreamIdentity& identity);

}  // namespace lenswire::recorder
