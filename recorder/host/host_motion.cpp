// Host services: motion state and alarms.
#include <cstdint>

#include "lenswire/host_services.h"
#include "recorder/host/host.h"

using lenswire::recorder::Host;

namespace {

constexpr int kMotionSize = sizeof(HostMotionRecord);

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
    const int read = databaseOperate(LENSWIRE_TABLE_MOTION, LENSWIRE_TABLE_READ, &channel, sizeof channel,
                                     data88, kMotionSize);
    return read == kMotionSize ? 0 : -1;
}

int MD_Disarming_Time(int channel) {
    const Host* host = Host::current();
    return host != nullptr && host->motion.armed(channel) ? 1 : 0;
}

int streamInsertAlarmToAlarmQueue(int, void* record4) {
    Host* host = Host::current();
    if (host == nullptr || record4 == nullptr) return -1;
    const auto* record = static_cast<const HostAlarmRecord*>(record4);
    return host->motion.queue_alarm(record->ucType, record->ucChannel) ? 0 : -1;
}
