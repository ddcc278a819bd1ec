// Host services: the channel database.
#include <cstring>
#include <string_view>

#include "lenswire/host_services.h"
#include "recorder/host/host.h"

using lenswire::recorder::CameraAddress;
using lenswire::recorder::Host;
using lenswire::recorder::or_nothing;

namespace {

constexpr size_t kTextSize = 64;

void copy_text(char* destination, std::string_view text) {
    const size_t length = std::min(text.size(), kTextSize - 1);
    std::memcpy(destination, text.data(), length);
    destination[length] = '\0';
}

std::optional<CameraAddress> camera_of(int channel) {
    Host* host = Host::current();
    return host != nullptr ? or_nothing([&] { return host->store.camera(channel); }) : std::nullopt;
}

std::optional<HostChannelRecord> record_of(int channel) {
    Host* host = Host::current();
    return host != nullptr ? or_nothing([&] { return host->store.channel_record(channel); }) : std::nullopt;
}

}  // namespace

int DbMainMsgChannelInfo(int channel, char ip[64], int* port, char user[64], char password[64]) {
    const auto camera = camera_of(channel);
    if (!camera) return -1;
    if (ip != nullptr) copy_text(ip, camera->host);
    if (port != nullptr) *port = camera->port;
    if (user != nullptr) copy_text(user, camera->user);
    if (password != nullptr) copy_text(password, camera->password.value_or(""));
    return 0;
}

int databaseOperate(int table, int operation, void* key, int keyLength, void* buffer, int bufferLength) {
    Host* host = Host::current();
    if (host == nullptr || key == nullptr || buffer == nullptr || keyLength < 0 || bufferLength < 0)
        return -1;
    const auto size = or_nothing([&] {
        return std::optional(host->store.operate(
            table, operation, {static_cast<const uint8_t*>(key), static_cast<size_t>(keyLength)},
            {static_cast<uint8_t*>(buffer), static_cast<size_t>(bufferLength)}));
    });
    return size.value_or(-1);
}

int configGetDisplayNum() {
    Host* host = Host::current();
    return host != nullptr ? std::min(host->store.channels_in_use(), lenswire::recorder::kChannels) : 0;
}

int get_channel_protocol(int channel) {
    const auto record = record_of(channel);
    return record ? record->ucProtocol : 0;
}

int get_channel_bindstatus(int channel) {
    return camera_of(channel) ? 1 : 0;
}

int is_channel_fish_eye(int channel) {
    const auto record = record_of(channel);
    return record ? record->ucFishEye : 0;
}
