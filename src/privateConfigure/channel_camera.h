// The camera of a recorder channel, as the host's channel database gives it.
#pragma once

#include <cstdint>

namespace lenswire {

struct ChannelCamera {
    bool known;   // the database has a camera for the channel
    uint32_t ip;  // network order, 0 none; also converted from what an unknown channel left behind
    int port;
};

ChannelCamera camera_of_channel(int channel);

}  // namespace lenswire
