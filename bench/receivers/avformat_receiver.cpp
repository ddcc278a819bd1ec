// libavformat, reading the same streams by RTSP over TCP: a thread per stream, as its blocking reads want it.
#include <unistd.h>
#include <atomic>
#include <string>
#include <thread>

#include "bench/cameras/rtsp.h"
#include "bench/cameras/sender.h"
#include "bench/receivers/receiver.h"
#include "bench/support/measure.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace lenswire::bench {

namespace {

class AvformatReceiver : public Receiver {
  public:
    explicit AvformatReceiver(const ReceiverOptions& options) : streams_(options.streams) {
        av_log_set_level(AV_LOG_FATAL);
        avformat_network_init();
        for (Stream& stream : streams_) stream.delivered_at.resize(options.timed_frames);
    }

    ~AvformatReceiver() override {
        stop_ = true;
        for (Stream& stream : streams_) {
            stream.thread.join();
            avformat_close_input(&stream.input);
        }
    }

    void start(const Sender& sender) override {
        const std::string url = "rtsp://127.0.0.1:" + std::to_string(sender.port()) + "/stream";
        for (Stream& stream : streams_) {
            AVDictionary* settings = nullptr;
            av_dict_set(&settings, "rtsp_transport", "tcp", 0);
            stream.input = avformat_alloc_context();
            stream.input->interrupt_callback = {
                [](void* self) -> int { return static_cast<AvformatReceiver*>(self)->stop_; }, this};
            if (avformat_open_input(&stream.input, url.c_str(), nullptr, &settings) != 0) {
                give_up("opening an RTSP stream");
            }
            av_dict_free(&settings);
        }
        for (Stream& stream : streams_) {
            const auto number = static_cast<uint32_t>(&stream - streams_.data());
            stream.thread = std::thread([this, &stream, number] { read(stream, number); });
            while (stream.id == 0) sleep_ms(1);
        }
    }

    std::vector<Role> receiving() const override {
        std::vector<Role> roles;
        for (const Stream& stream : streams_) roles.push_back({"reader", stream.id});
        return roles;
    }

    uint64_t bytes() const override {
        uint64_t all = 0;
        for (const Stream& stream : streams_) all += stream.bytes;
        return all;
    }

    bool delivers_frames() const override { return true; }
    uint32_t delivered(uint32_t stream) const override { return streams_[stream].frames; }
    int64_t delivered_at(uint32_t stream, uint32_t frame) const override {
        const auto& times = streams_[stream].delivered_at;
        return frame < times.size() ? times[frame] : 0;
    }

  private:
    struct Stream {
        AVFormatContext* input = nullptr;
        std::thread thread;
        std::atomic<pid_t> id{0};
        std::atomic<uint64_t> bytes{0};
        std::atomic<uint32_t> frames{0};
        std::vector<int64_t> delivered_at;
    };

    void read(Stream& stream, uint32_t number) const {
        stream.id = gettid();
        AVPacket* packet = av_packet_alloc();
        // Of each track; a packet of sound comes out before the picture that it follows.
        uint32_t next[2] = {0, 1};
        while (!stop_ && av_read_frame(stream.input, packet) == 0) {
            uint32_t& frame = next[packet->stream_index];
            if (frame < stream.delivered_at.size()) stream.delivered_at[frame] = now_ns();
            stream.bytes += rtsp::connection_bytes(number, frame);
            ++stream.frames;
            frame += 2;
            av_packet_unref(packet);
        }
        av_packet_free(&packet);
    }

    std::atomic<bool> stop_{false};
    std::vector<Stream> streams_;
};

}  // namespace

std::unique_ptr<Receiver> make_avformat_receiver(const ReceiverOptions& options) {
    return std::make_unique<AvformatReceiver>(options);
}

}  // namespace lenswire::bench
