// Connecting a client and logging it in, step by step, on the host's thread.
#include <sys/select.h>
#include <unistd.h>
#include <algorithm>
#include <cstdio>

#include "common/log.h"
#include "common/shared_word.h"
#include "common/steady_clock.h"
#include "lenswire/connection.h"
#include "lenswire/host_services.h"
#include "lenswire/socket.h"
#include "pteClient/client_table.h"
#include "pteClient/expected_requests.h"
#include "pteClient/waits.h"

using namespace lenswire;
using namespace lenswire::clients;

namespace {

constexpr int kRunFlagEndsLogin = 4;

bool host_ends_it(int channel, int stream) {
    return networkGetStreamUsedNum(channel, stream) == 0 ||
           networkGetRunFlag(channel, stream) == kRunFlagEndsLogin;
}

// Starts the connection. False when that failed or the client died.
bool connect_client(const Invited& invited) {
    const int fd = SK_ConnectTo(invited.address, invited.port);
    if (fd < 0) {
        std::fprintf(stderr, "RTSP_Client_SubSvr Failed, error line: %d, error file: %s\n", __LINE__,
                     LENSWIRE_LAYER_CLIENT);
        return false;
    }
    if (fd >= FD_SETSIZE) {
        ENGINE_ERROR_AS("PcInviteStream", "**********can not support , socket %d is too big****** \n", fd);
        close(fd);
        return false;
    }
    if (attach(invited.ref, fd)) return true;
    close(fd);
    return false;
}

// One step with the client held in place. False when it died.
bool step(const Ref& ref, int& result, bool& ready) {
    const Pin pin(ref);
    if (!pin) return false;
    result = PC_TaskProc(ref.client);
    ready = load_word(ref.client->ucClientState) == PC_STATE_READY;
    return true;
}

// Whole seconds, on the clock that nobody sets: the wall clock may jump while a login waits. False without a
// reading.
bool read_elapsed(int64_t start_us, int& seconds) {
    const int64_t now_us = steady_us();
    if (start_us < 0 || now_us < 0) return false;
    seconds = static_cast<int>(now_us / 1'000'000 - start_us / 1'000'000);
    return true;
}

// A step that fails closes the connection, and the steps that follow fail, too: a caller that asks again at
// once would flood a camera that refuses, so the time is waited out.
int invite(const Invited& invited, int channel, int stream) {
    const Ref& ref = invited.ref;
    if (ref.client == nullptr || !connect_client(invited)) return -1;
    const int64_t start_us = steady_us();
    int worst = -1;
    int elapsed = 0;
    for (int untimed_steps = 0; untimed_steps < waits::kLoginMostSteps;) {
        if (!read_elapsed(start_us, elapsed)) ++untimed_steps;
        if (elapsed > waits::kLoginLongest_s || host_ends_it(channel, stream)) break;
        int result = -1;
        bool ready = false;
        if (!step(ref, result, ready)) return -1;
        if (result == -1) {
            std::fprintf(stderr, "RTSP_TaskProc Failed, error line: %d, error file: %s\n", __LINE__,
                         LENSWIRE_LAYER_CLIENT);
            drop(ref);
        }
        worst = std::min(worst, result);
        usleep(waits::kLoginStepPauseUs);
        if (ready) return finish(ref, uptime()) ? 0 : -1;
    }
    ENGINE_LOG_AS("PcInviteStream", "channel %d stream %d wait private respone time out %d \n", channel,
                  stream, elapsed);
    drop(ref);
    return worst;
}

// A stream of a camera that has just been logged in is likely to be asked for.
int invite_and_expect(const Invited& invited, int channel, int stream) {
    const int result = invite(invited, channel, stream);
    expect_stream_request();
    return result;
}

}  // namespace

int PC_Login(StreamConn* unit, uint32_t address, int port, const LoginInfo* info, int channel, int stream) {
    if (unit == nullptr || info == nullptr) return -1;
    bool table_full = false;
    const Invited invited = bind_unit(unit, {address, port, info}, table_full);
    if (table_full) ENGINE_ERROR("add client failed \n");
    return invite_and_expect(invited, channel, stream);
}

int PcInviteStream(CmdClient* client, int channel, int stream) {
    if (client == nullptr) return -1;
    return invite_and_expect(bind_again(client), channel, stream);
}
