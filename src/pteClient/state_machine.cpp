// The steps of a login by state. Each follows a socket that tested ready; what a step finds out decides the
// next state, and only the thread that makes the steps enters states.
#include <cstdio>

#include "common/shared_word.h"
#include "common/wire.h"
#include "lenswire/command.h"
#include "lenswire/connection.h"
#include "lenswire/socket.h"
#include "pteClient/client_state.h"
#include "pteClient/client_table.h"
#include "pteClient/login.h"

using namespace lenswire;
using namespace lenswire::clients;

void PC_SetDefaultTimerLength(CmdClient* client) {
    if (client != nullptr) client_state::set_default_timers(*client);
}

int PC_SetCBState(CmdClient* client, int state) {
    if (client == nullptr) return -1;
    if (state < PC_STATE_IDLE || state > PC_STATE_TIMEOUT) {
        std::printf("State(%u) Error!\n", static_cast<unsigned>(state));
        return -1;
    }
    client_state::enter(*client, state);
    look_again(client);
    return 0;
}

int PC_TimerProc(CmdClient* client) {
    if (client == nullptr) return -1;
    if (load_word(client->ucClientState) > PC_STATE_READY) return 0;
    PC_SetCBState(client, PC_STATE_TIMEOUT);
    return -1;
}

int PC_TaskProc(CmdClient* client) {
    // A step that failed is no step: the timer counts what the camera was given time for.
    const int result = PC_TcpSocketRecv(client);
    if (result == -1 || client->ulTimer == 0) return result;
    if (--client->ulTimer > 0) return result;
    return PC_TimerProc(client);
}

int PC_TcpSocketRecv(CmdClient* client) {
    if (client == nullptr || load_word(client->ucClientState) > PC_STATE_READY) return -1;
    const int ready = PC_SockReadable(load_word(client->sockFd));
    if (ready <= 0) return ready;
    const uint8_t state = load_word(client->ucClientState);
    switch (state) {
        case PC_STATE_CONNECTING:
            return PC_CONNECTINGRespMsg(client);
        case PC_STATE_CONNECTED:
            return PC_CONNECTEDRespMsg(client);
        case PC_STATE_LOGINING:
            return PC_LOGININGRespMsg(client);
        case PC_STATE_LOGINED:
            return PC_LOGINEDRespMsg(client);
        default:
            std::printf("Unmown status[%u] recv packet, bypass it\n", state);
            return -1;
    }
}

int PC_CONNECTINGRespMsg(CmdClient* client) {
    if (client == nullptr) return -1;
    if (PC_SockReadable(load_word(client->sockFd)) > 0) PC_SetCBState(client, PC_STATE_CONNECTED);
    return 0;
}

int PC_CONNECTEDRespMsg(CmdClient* client) {
    if (client == nullptr) return -1;
    // How far it got shows in the step, not in the result: a reply may only be late.
    login::PC_CmdLogin(client);
    if (client->ulLoginStep == login::kLoginSent) return -4;
    if (client->ulLoginStep == login::kAccepted) PC_SetCBState(client, PC_STATE_LOGINED);
    return 0;
}

int PC_LOGININGRespMsg(CmdClient* client) {
    return PC_SetCBState(client, PC_STATE_LOGINED);
}

int PC_LOGINEDRespMsg(CmdClient* client) {
    return PC_SetCBState(client, PC_STATE_READY);
}

int PC_SendHeartbeat(CmdClient* client) {
    if (client == nullptr) return -1;
    const Pin pin(client);
    if (!pin) return -1;
    const int fd = load_word(client->sockFd);
    if (fd < 0) return -1;
    PrivateCmd heartbeat = wire::command_header(LENSWIRE_CMD_HEARTBEAT, 0, 0);
    heartbeat.ulLoginId = load_word(client->ulLoginId);
    int length = sizeof heartbeat;
    return PC_SendCmd(fd, &heartbeat, &length) == 0 ? 0 : -1;
}
