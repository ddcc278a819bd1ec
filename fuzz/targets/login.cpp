// The login exchange, a step at a time: the input is what the camera says before each step.
#include "fuzz/support/camera_end.h"

namespace lenswire::fuzz {

// A byte before each piece says how long it is; 0 is a step without one.
void run(Input input) {
    constexpr int kSteps = 12;
    static const SocketPair sockets;
    sockets.drain();
    CmdClient client{};
    client.sockFd = sockets.library;
    std::memset(&client.LoginInfo, 'x', sizeof client.LoginInfo);  // texts without an end
    PC_SetDefaultTimerLength(&client);
    PC_SetCBState(&client, PC_STATE_CONNECTED);
    for (int i = 0; i < kSteps && client.ucClientState != PC_STATE_READY; ++i) {
        const auto said = input.take(input.number<uint8_t>());
        if (!said.empty()) sockets.say(said);
        PC_TaskProc(&client);
    }
    require(client.ulLoginStep <= 4, "a login has four steps");
    require(client.ucClientState != PC_STATE_READY || client.ulLoginStep == 4,
            "who is ready has been accepted");
}

}  // namespace lenswire::fuzz
