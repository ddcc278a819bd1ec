// The login exchange on a fresh control connection: what goes out and what comes back, a step at a time.
#pragma once

#include "lenswire/connection.h"

namespace lenswire::login {

// ulLoginStep of a client.
enum Step : uint32_t {
    kNothingSent = 0,
    kSerialRequested = 1,
    kSerialReceived = 2,
    kLoginSent = 3,
    kAccepted = 4,
};

// One step of the exchange, on a socket that has just tested ready. 0, or -1 when there is no socket or a
// request could not be sent; ulLoginStep tells how far it got.
int PC_CmdLogin(CmdClient* client);

}  // namespace lenswire::login
