// The channel database.
#include <arpa/inet.h>

#include <cstring>

#include "check/call.h"
#include "check/memory.h"
#include "check/services.h"
#include "lenswire/cruise.h"

using namespace lenswire::check;

namespace {

constexpr size_t kText = 64;
constexpr int kMostChannels = 256;

bool is_dotted(const char* text) {
    char ended[kText + 1] = {};
    std::memcpy(ended, text, kText);
    in_addr address;
    return inet_pton(AF_INET, ended, &address) == 1;
}

// Of one record; 0 for a table that is not known.
int record_size(int table) {
    switch (table) {
        case LENSWIRE_TABLE_CHANNELS:
            return sizeof(HostChannelRecord);
        case LENSWIRE_TABLE_MOTION:
            return sizeof(HostMotionRecord);
        case LENSWIRE_TABLE_UPGRADE:
            return sizeof(HostUpgradeRecord);
        case LENSWIRE_TABLE_CRUISE:
            return sizeof(CruiseLine);
        default:
            return 0;
    }
}

int read_table(Call& call, int table, void* key, int keyLength, void* buffer, int length) {
    const Lent lent(buffer, static_cast<size_t>(length));
    const int result = call.into(real_databaseOperate, table, int{LENSWIRE_TABLE_READ}, key, keyLength,
                                 lent.bytes(), length);
    const bool possible = call.expect(result >= -1 && result <= length, kTableResult,
                                      "table %d, %d bytes asked for, result %d", table, length, result);
    const bool intact =
        call.expect(lent.is_intact(), kTableOverrun, "table %d, %d bytes asked for", table, length);
    if (possible && intact && result >= 0) {
        call.expect(lent.is_unchanged(static_cast<size_t>(result)), kTableBeyond,
                    "table %d, result %d, bytes behind that are written", table, result);
        const int size = record_size(table);
        call.expect(size == 0 || result % size == 0, kTablePart, "table %d, result %d, records of %d", table,
                    result, size);
    }
    lent.give_back();
    return result;
}

int write_table(Call& call, int table, void* key, int keyLength, void* buffer, int length) {
    const Kept record(buffer, static_cast<size_t>(length));
    const int result =
        call.into(real_databaseOperate, table, int{LENSWIRE_TABLE_WRITE}, key, keyLength, buffer, length);
    call.expect(result == -1 || result == length, kTableWritten, "table %d, %d bytes, result %d", table,
                length, result);
    call.expect(!record.is_changed(), kTableInput, "table %d, the record of %d bytes is changed", table,
                length);
    return result;
}

}  // namespace

extern "C" {

int checked_DbMainMsgChannelInfo(int channel, char ip[64], int* port, char user[64], char password[64]) {
    Call call(Service::DbMainMsgChannelInfo);
    const Lent lent_ip(ip, kText);
    const Lent lent_user(user, kText);
    const Lent lent_password(password, kText);
    const int result = call.into(real_DbMainMsgChannelInfo, channel, lent_ip.bytes<char>(), port,
                                 lent_user.bytes<char>(), lent_password.bytes<char>());
    call.expect(lent_ip.is_intact() && lent_user.is_intact() && lent_password.is_intact(), kChannelOverrun,
                "channel %d, bytes around a text are written", channel);
    if (result != -1) {
        call.expect(is_dotted(lent_ip.bytes<char>()), kChannelAddress, "channel %d, \"%.64s\"", channel,
                    lent_ip.bytes<char>());
        call.expect(*port >= 0 && *port <= 65535, kChannelPort, "channel %d, port %d", channel, *port);
    }
    lent_ip.give_back();
    lent_user.give_back();
    lent_password.give_back();
    return result;
}

int checked_databaseOperate(int table, int operation, void* key, int keyLength, void* buffer,
                            int bufferLength) {
    Call call(Service::databaseOperate);
    const Kept kept_key(key, static_cast<size_t>(keyLength));
    const auto operate = operation == LENSWIRE_TABLE_READ ? read_table : write_table;
    const int result = operate(call, table, key, keyLength, buffer, bufferLength);
    call.expect(!kept_key.is_changed(), kTableKey, "table %d, the key is changed", table);
    return result;
}

int checked_configGetDisplayNum(void) {
    Call call(Service::configGetDisplayNum);
    const int count = call.into(real_configGetDisplayNum);
    call.expect(count >= 0 && count <= kMostChannels, kDisplayNumber, "%d", count);
    return count;
}

int checked_get_channel_protocol(int channel) {
    Call call(Service::get_channel_protocol);
    const int protocol = call.into(real_get_channel_protocol, channel);
    call.expect(protocol >= 0 && protocol <= UINT8_MAX, kProtocolNumber, "channel %d, %d", channel, protocol);
    return protocol;
}

int checked_get_channel_bindstatus(int channel) {
    Call call(Service::get_channel_bindstatus);
    return call.into(real_get_channel_bindstatus, channel);
}

int checked_is_channel_fish_eye(int channel) {
    Call call(Service::is_channel_fish_eye);
    return call.into(real_is_channel_fish_eye, channel);
}
}
