#include "bench/host/host.h"

#include <cstring>

namespace lenswire::bench {

namespace {

Host* g_host = nullptr;

constexpr size_t kRingStride = (kRingBytes + 4095) / 4096 * 4096;

constexpr size_t kAudioPrefixBytes = 4;

}  // namespace

MarkedFrame read_frame(const uint8_t* frame) {
    StreamFrameHead head;
    std::memcpy(&head, frame, sizeof head);
    const size_t prefix = head.ucKind == 0 ? 0 : kAudioPrefixBytes;
    MarkedFrame marked;
    std::memcpy(&marked.mark, frame + sizeof head + prefix, sizeof marked.mark);
    marked.payload_bytes = head.ulDataSize - prefix;
    return marked;
}

Host& host() {
    return *g_host;
}

Host::Host(uint32_t streams, size_t timed_frames)
    : streams_(streams),
      buffers_(std::make_unique<ReceiveBuffer[]>(streams)),
      rings_(std::make_unique<uint8_t[]>(streams * kRingStride)),
      objects_(std::make_unique<StreamObject[]>(streams)),
      inserted_at_(std::make_unique<std::atomic<int64_t>[]>(streams * timed_frames)),
      next_packet_(std::make_unique<std::atomic<uint32_t>[]>(streams)),
      consumer_(std::make_unique<Consumer>(pool_, streams, *this)) {
    g_host = this;
    for (uint32_t i = 0; i < streams; ++i) {
        buffers_[i].data = rings_.get() + i * kRingStride;
        objects_[i].words.lFirst = static_cast<int32_t>(i);
        objects_[i].queue = &consumer_->queue(i);
        objects_[i].inserted_at = inserted_at_.get() + i * timed_frames;
        objects_[i].inserted_room = timed_frames;
    }
}

Host::~Host() {
    consumer_.reset();
    g_host = nullptr;
}

void Host::post(const StreamRequest& request) {
    const std::lock_guard lock(request_mutex_);
    requests_.push_back(request);
    waiting_requests_ = requests_.size();
}

void Host::post_open(uint32_t stream, StreamConn* unit) {
    buffers_[stream].read_at = 0;
    StreamRequest request{};
    request.ulType = STREAM_REQ_OPEN;
    request.info.ucChannelNo = static_cast<uint8_t>(stream);
    request.info.pStreamConn = unit;
    request.info.pRecvBuf = &buffers_[stream];
    request.info.pStream = &objects_[stream];
    post(request);
}

void Host::post_close(uint32_t stream) {
    StreamRequest request{};
    request.ulType = STREAM_REQ_CLOSE;
    request.info.ucChannelNo = static_cast<uint8_t>(stream);
    post(request);
}

int Host::next_request(StreamRequest* request) {
    if (waiting_requests_.load(std::memory_order_relaxed) == 0) return -1;
    const std::lock_guard lock(request_mutex_);
    *request = requests_.front();
    requests_.pop_front();
    waiting_requests_ = requests_.size();
    return 0;
}

void Host::read_frame_of(uint32_t stream, const uint8_t* frame) {
    const auto [mark, payload_bytes] = read_frame(frame);
    const Mark expected{.stream = stream, .packet = next_packet_[stream], .length = payload_bytes};
    if (mark != expected) ++wrong_;
    next_packet_[stream] = mark.packet + 1;
}

}  // namespace lenswire::bench
