// A stream of a camera as the supervisor handles it, through the library and the host.
#pragma once

#include "recorder/host/host.h"
#include "recorder/session/camera_link.h"
#include "recorder/session/supervisor.h"

namespace lenswire::recorder {

class PluginStreamLink : public StreamLink {
  public:
    PluginStreamLink(Host& host, RecorderStream& recorder_stream, CameraLink& camera);

    int channel() const override { return recorder_stream_.channel(); }
    int stream() const override { return recorder_stream_.stream(); }
    int login(bool first) override;
    bool invite() override;
    void open() override;
    bool control_alive() override;

  private:
    Host& host_;
    RecorderStream& recorder_stream_;
    CameraLink& camera_;
    RecorderStream::Clock::time_point next_heartbeat_{};
    bool refused_ = false;  // the latest login
};

}  // namespace lenswire::recorder
