// Many cameras in one process, served by one thread or a few.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "camera/serve/camera.h"
#include "camera/serve/loop.h"

namespace lenswire::camera {

// The address `index` places above `first` ("127.0.0.1", 3 -> "127.0.0.4"); empty when there is none.
std::string address_above(const std::string& first, uint32_t index);

class CameraFarm {
  public:
    explicit CameraFarm(unsigned threads = 1, Clock clock = steady_us);
    ~CameraFarm();  // stops all cameras and joins the threads
    CameraFarm(const CameraFarm&) = delete;
    CameraFarm& operator=(const CameraFarm&) = delete;

    // Adds a camera that listens already. Null and a reason when it cannot. The farm owns it.
    Camera* add(CameraConfig config, std::string* error);

    // Returns when the cameras have served all that was there and due at the call. Not from inside a hook.
    void settle();

    size_t size() const { return cameras_.size(); }
    Camera& operator[](size_t index) { return *cameras_[index]; }

  private:
    unsigned threads_;
    Clock clock_;
    std::vector<std::shared_ptr<Loop>> loops_;
    std::vector<std::unique_ptr<Camera>> cameras_;
};

}  // namespace lenswire::camera
