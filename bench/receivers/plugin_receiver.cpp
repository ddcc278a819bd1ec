// The library, delivering into frame queues that a consumer empties, with a camera logged in for each stream.
#include "bench/cameras/sender.h"
#include "bench/host/host.h"
#include "bench/receivers/library_clients.h"
#include "bench/receivers/receiver.h"
#include "lenswire/connection.h"

namespace lenswire::bench {

namespace {

class PluginReceiver : public Receiver {
  public:
    explicit PluginReceiver(const ReceiverOptions& options)
        : cameras_(options.streams),
          host_(options.streams, options.timed_frames),
          workers_(start_library()) {}

    ~PluginReceiver() override { PC_UnInitCtx(); }

    void start(const Sender& sender) override { open_streams(host_, sender.port(), log_in(host_, cameras_)); }

    std::vector<Role> receiving() const override { return workers_; }
    std::vector<Role> consuming() const override { return {{"consumer", host_.consumer().thread()}}; }
    uint64_t bytes() const override { return host_.bytes(); }

    bool delivers_frames() const override { return true; }
    uint32_t delivered(uint32_t stream) const override { return host_.stream(stream).inserted; }
    int64_t delivered_at(uint32_t stream, uint32_t frame) const override {
        const StreamObject& object = host_.stream(stream);
        return frame < object.inserted_room ? object.inserted_at[frame].load() : 0;
    }
    uint32_t wrong_frames() const override { return host_.wrong_frames() + host_.restarts; }

  private:
    CameraProcess cameras_;
    mutable Host host_;
    std::vector<Role> workers_;
};

}  // namespace

std::unique_ptr<Receiver> make_plugin_receiver(const ReceiverOptions& options) {
    return std::make_unique<PluginReceiver>(options);
}

}  // namespace lenswire::bench
