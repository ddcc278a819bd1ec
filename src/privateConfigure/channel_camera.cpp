#include "privateConfigure/channel_camera.h"

#include <arpa/inet.h>
#include <string.h>

#include "lenswire/host_services.h"

namespace lenswire {

ChannelCamera camera_of_channel(int channel) {
    // One byte more than the host fills in, so that a text without an end has one here.
    char ip[64 + 1] = {};
    char user[64 + 1] = {};
    char password[64 + 1] = {};
    int port = 0;
    const int result = DbMainMsgChannelInfo(channel, ip, &port, user, password);
    explicit_bzero(password, sizeof password);
    return {.known = result != -1, .ip = inet_addr(ip), .port = port};
}

}  // namespace lenswire
