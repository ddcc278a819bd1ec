// The states of a client and their timers, without anything that follows from a change: below the client
// table and the login, which both enter states.
#pragma once

#include "lenswire/connection.h"

namespace lenswire::client_state {

// Enters a state and starts its timer. The state is one of enum ClientState.
void enter(CmdClient& client, int state);

void set_default_timers(CmdClient& client);

}  // namespace lenswire::client_state
