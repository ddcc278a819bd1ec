// A camera's clock, read.
#pragma once

#include <ctime>
#include <string>

#include "lenswire/clock.h"

namespace lenswire::recorder {

// Its fields as seconds, in its own zone. Hours and minutes may go beyond their range.
time_t clock_seconds(const IpcTimeInfo& clock);
// "2026-11-23 14:05:00"
std::string clock_text(const IpcTimeInfo& clock);
// "GMT+08:00"; the number of a zone that there is not.
std::string clock_zone(const IpcTimeInfo& clock);
// How far it is ahead of this machine's, in seconds.
long clock_ahead(const IpcTimeInfo& clock, time_t now);

}  // namespace lenswire::recorder
