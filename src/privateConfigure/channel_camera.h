// The camera of a recorder channel, as the host's channel database gives it.
#pragma once

#include <cstdint>

namespace lenswire {

struct ChannelCamera {
    bool known;   // the database has a camera for the channel
    uint32_t ip;  // network order; INADDR_NONE where the database has no address, an unknown channel for one
    int port;
};

ChannelCamera camera_of_channel(int channel);

}  // namespace lenswire
