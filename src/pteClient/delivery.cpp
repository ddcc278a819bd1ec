// A command on its way to a camera, known by its address alone. The lock is held from the search through the
// send, so that the client cannot go and two messages cannot mix; the socket does not block, and lines and
// pauses come after the lock.
#include <algorithm>
#include <climits>

#include "common/log.h"
#include "common/shared_word.h"
#include "common/wire.h"
#include "lenswire/command.h"
#include "pteClient/client_table.h"
#include "pteClient/command_io.h"

using namespace lenswire;
using namespace lenswire::command_io;

namespace {

// Under the clients' lock.
CmdClient* first_client_at(uint32_t ip) {
    for (clients::ClientSlot& slot : clients::g_cmdclientlist) {
        if (clients::is_taken(slot) && slot.client.ulIpAddr == ip) return &slot.client;
    }
    return nullptr;
}

}  // namespace

int Private_Protocol_CMDDelivery(uint32_t ip, void* pCmd, void* pData, int time) {
    if (pData == nullptr || ip == 0 || pCmd == nullptr || time < 0) {
        PRIVATE_LOG("input para error ip=%d,pData=%d,pCmd=%x,time=%d\n", static_cast<int>(ip),
                    static_cast<int>(reinterpret_cast<intptr_t>(pData)),
                    static_cast<unsigned>(reinterpret_cast<uintptr_t>(pCmd)), time);
        return -1;
    }
    Lock lock(clients::g_cmdclient_mutex);
    const CmdClient* client = first_client_at(ip);
    if (client == nullptr) return -1;
    PrivateCmd header = wire::load_header(pCmd);
    header.ulLoginId = load_word(client->ulLoginId);
    wire::store(pCmd, header);
    const int fd = load_word(client->sockFd);
    if (fd < 0) return -1;
    const int given = static_cast<int>(std::min<uint64_t>(wire::message_length(header), INT_MAX));
    int length = given;
    const SendOutcome outcome = try_send(fd, pData, &length);
    lock.unlock();

    report(outcome, fd, pData, given);
    if (outcome.result == SendResult::kSent) return 0;
    PRIVATE_LOG("send error\n");
    std::puts("send error");
    return -1;
}
