#include "pteClient/client_state.h"

#include "common/shared_word.h"

namespace lenswire::client_state {

namespace {

// In steps. A login makes at most a thousand of them: these never end one that the 10 seconds do not.
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
