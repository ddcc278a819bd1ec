// Cameras of a CameraProcess, as clients of the library.
#pragma once

#include <vector>

#include "bench/camera_process.h"
#include "bench/host.h"
#include "bench/receiver.h"

namespace lenswire::bench {

// Starts the library's context; its three threads.
std::vector<Role> start_library();

// Makes the cameras known to the host and logs in to all of them. A unit for each.
std::vector<StreamConn*> log_in(Host& host, const CameraProcess& cameras);

}  // namespace lenswire::bench
