#include "camera/settings.h"

#include <utility>

#include "lenswire/protocol.h"

namespace lenswire::camera {
namespace {

struct SettingRow {
    uint16_t get;
    uint16_t set;  // 0: cannot be written
    uint32_t size;
};

constexpr SettingRow kRows[] = {
    {LENSWIRE_CMD_TIME_GET, LENSWIRE_CMD_TIME_SET, LENSWIRE_TIME_SIZE},
    {LENSWIRE_CMD_IMAGE_GET, LENSWIRE_CMD_IMAGE_SET, LENSWIRE_IMAGE_SIZE},
    {LENSWIRE_CMD_NETWORK_GET, 0, LENSWIRE_NETWORK_SIZE},
    {LENSWIRE_CMD_OSD_GET, LENSWIRE_CMD_OSD_SET, LENSWIRE_OSD_SIZE},
    {LENSWIRE_CMD_WIFI_GET, 0, LENSWIRE_WIFI_SIZE},
    {LENSWIRE_CMD_MOTION_GET, LENSWIRE_CMD_MOTION_SET, LENSWIRE_MOTION_SIZE},
    {LENSWIRE_CMD_COVER_GET, LENSWIRE_CMD_COVER_SET, LENSWIRE_COVER_SIZE},
    {LENSWIRE_CMD_FISH_PROPERTY_GET, 0, LENSWIRE_FISH_PROPERTY_SIZE},
    {LENSWIRE_CMD_DEVICE_INFO, 0, LENSWIRE_DEVICE_INFO_SIZE},
    {LENSWIRE_CMD_PROPERTY_BLOCK, 0, LENSWIRE_PROPERTY_BLOCK_SIZE},
};

}  // namespace

std::optional<Command> Settings::handle(const Command& request) {
    for (const SettingRow& row : kRows) {
        if (request.code == row.get) return answer_to(request, record(row.get));
        if (row.set == 0 || request.code != row.set) continue;
        if (request.payload.size() != row.size) return answer_to(request, {}, kStateBadRequest);
        records_[row.get] = request.payload;
        return std::nullopt;
    }
    return answer_to(request, {}, kStateUnsupported);
}

Bytes Settings::record(uint16_t get_code) const {
    const auto found = records_.find(get_code);
    if (found != records_.end()) return found->second;
    for (const SettingRow& row : kRows) {
        if (row.get == get_code) return Bytes(row.size);
    }
    return {};
}

void Settings::set_record(uint16_t get_code, Bytes bytes) {
    records_[get_code] = std::move(bytes);
}

}  // namespace lenswire::camera
