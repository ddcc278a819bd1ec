// The library at work in this process: its context, its clients, its streams.
#pragma once

#include <vector>

#include "bench/cameras/camera_process.h"
#include "bench/host/host.h"
#include "bench/receivers/receiver.h"

namespace lenswire::bench {

// Starts the library's context; its three threads.
std::vector<Role> start_library();

// Makes the cameras known to the host and logs in to all of them. A unit for each.
std::vector<StreamConn*> log_in(Host& host, const CameraProcess& cameras);

// Connects all of the host's streams to a sender's port and has the library open them, on the units given
// or on new ones.
void open_streams(Host& host, int port, std::vector<StreamConn*> units = {});

}  // namespace lenswire::bench
