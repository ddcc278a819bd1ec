// Host services: motion state and alarms.
#include <cstdint>
#include <span>

#include "lenswire/host_services.h"
#include "recorder/host/host.h"

using lenswire::recorder::Host;

namespace {

constexpr size_t kMotionSize = 88;
constexpr size_t kAlarmSize = 4;

}  // namespace

int VideoMDGetStatus(int channel) {
    const Host* host = Host::current();
    return host != nullptr ? host->motion.status(channel) : 0;
}

// The motion record itself stands in table 21; what comes with a status is a copy of it.
int VideoMDSetStatus(int channel, int status, void*) {
    Host* host = Host::current();
    return host != nullptr && host->motion.set_status(channel, status) ? 0 : -1;
}

int snapSetMotion(int channel, int state) {
    Host* host = Host::current();
    return host != nullptr && host->motion.set_snapshots(channel, state) ? 0 : -1;
}

int motion_data_copy(int channel, void* data88) {
    if (data88 == nullptr) return -1;
    const int read = databaseOperate(lenswire::recorder::kMotionTable, lenswire::recorder::kRead, &channel,
                                     sizeof channel, data88, kMotionSize);
    return read == static_cast<int>(kMotionSize) ? 0 : -1;
}

int MD_Disarming_Time(int channel) {
    const Host* host = Host::current();
    return host != nullptr && host->motion.armed(channel) ? 1 : 0;
}

int streamInsertAlarmToAlarmQueue(int, void* record4) {
    Host* host = Host::current();
    if (host == nullptr || record4 == nullptr) return -1;
    const std::span record(static_cast<const uint8_t*>(record4), kAlarmSize);
    return host->motion.queue_alarm(record[0], record[1]) ? 0 : -1;
}
