// Whether anything listens where a camera should be: a connection of our own, before the library makes its
// own and waits for it.
#pragma once

#include <chrono>

#include "recorder/host/camera_address.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {

// Throws an unreachable Failure with the reason, at once where it is known at once and after `patience` else.
void look_at_port(const CameraAddress& camera, std::chrono::steady_clock::duration patience);

}  // namespace lenswire::recorder
