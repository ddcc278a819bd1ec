// What can be learnt of cameras in little time, of all at once.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "recorder/host/camera_address.h"
#include "recorder/records/fields.h"
#include "recorder/session/session_options.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {

struct ProbeResult {
    CameraAddress camera;
    ExitCode code = kDone;
    std::string error;  // why not more is known
    bool answers = false;
    bool logged_in = false;
    Bytes device;  // the records, empty when they were not read
    Bytes encoding;
    std::optional<long> clock_ahead_s;
    long took_ms = 0;
};

// Asks all cameras, those of one address one after the other, and hands each result on when it is there, one
// at a time. A camera has options.timeout() for all of it.
void probe_cameras(const std::vector<CameraAddress>& cameras, const SessionOptions& options,
                   const std::function<void(size_t, const ProbeResult&)>& done);

}  // namespace lenswire::recorder
