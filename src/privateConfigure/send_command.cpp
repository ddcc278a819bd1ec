#include <arpa/inet.h>
#include <unistd.h>

#include "common/log.h"
#include "lenswire/command.h"

namespace {

// Delivery says 0 or -1, so that one attempt is made; the budget and the pause are for a layer that can say
// "later". The budget counts all the same: a command with none of it goes out and is reported as failed.
constexpr int kTryLater = -2;
constexpr useconds_t kPauseUs = 500000;

}  // namespace

int Prv_Send_Cmd(uint32_t ip, void* pCmd, void* pData, int time) {
    if (ip == 0 || pCmd == nullptr || pData == nullptr || time < 0) {
        PRI_LOG("input paramer error\n");
        return -1;
    }
    int attempts = 0;
    int result;
    do {
        // Half of it: delivery looks at nothing but its sign.
        result = Private_Protocol_CMDDelivery(ip, pCmd, pData, time / 2);
        if (result == 0 || result == -1) break;
        ++attempts;
        usleep(kPauseUs);
    } while (result == kTryLater && attempts < time);
    if (result != -1 && attempts < time) return 0;

    char text[INET_ADDRSTRLEN];
    PRI_LOG(" Private_Protocol_CMDDelivery failed,\tk=%d,ip=%s\n", attempts,
            inet_ntop(AF_INET, &ip, text, sizeof text));
    return -1;
}
