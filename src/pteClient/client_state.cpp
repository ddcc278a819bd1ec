#include "pteClient/client_state.h"

#include "common/shared_word.h"

namespace lenswire::client_state {

namespace {

// In steps, of which a login makes a thousand in its 10 seconds.
constexpr uint32_t kDefaultTimerLength[8] = {10000, 100000, 100000, 100000, 100000, 100000, 100000, 0};

}  // namespace

void enter(CmdClient& client, int state) {
    client.ulTimer = client.ulTimerLen[state];
    store_word(client.ucClientState, static_cast<uint8_t>(state));
}

void set_default_timers(CmdClient& client) {
    for (int state = 0; state < 8; ++state) client.ulTimerLen[state] = kDefaultTimerLength[state];
}

}  // namespace lenswire::client_state
