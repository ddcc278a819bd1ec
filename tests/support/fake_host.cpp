#include "support/fake_host.h"

#include <sys/prctl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <tuple>

namespace lenswire::test {

FakeHost& host() {
    static FakeHost* host = new FakeHost;  // outlives every thread of the library
    return *host;
}

void FakeHost::reset() {
    std::apply([](auto&... notes) { (notes.takes(), ...); },
               std::tie(restarts, receive_rates, network_params, motion_calls, snap_calls, alarms, dumped,
                        complaints));
    for (auto& count : calls_) count = 0;
    stream_used_num = 1;
    run_flag = 0;
    displayed = 64;
    clock.set(1000);
    has_hooks_ = false;
    tables().tables = {};
}

StreamRequest stream_request(uint32_t type, int channel, int stream) {
    StreamRequest request{};
    request.ulType = type;
    request.info.ucChannelNo = static_cast<uint8_t>(channel);
    request.info.ucStreamNo = static_cast<uint8_t>(stream);
    return request;
}

StreamRequest open_request(int channel, int stream, StreamConn* unit, ReceiveBuffer& buffer,
                           FakeStream& frames) {
    StreamRequest request = stream_request(STREAM_REQ_OPEN, channel, stream);
    request.info.pStreamConn = unit;
    request.info.pRecvBuf = buffer.object();
    request.info.pStream = frames.object();
    return request;
}

Channel FakeHost::channel(int channel) const {
    const Held held = tables();
    const auto found = held->channels.find(channel);
    if (found != held->channels.end()) return found->second;
    return {.address = "", .protocol = 0, .bound = 0, .motion_data = {}, .known = false};
}

int FakeHost::operate(int table, int operation, uint32_t key, void* buffer, int length) {
    const Held held = tables();
    ++held->calls[{table, operation}];
    if (held->failing.contains({table, operation}) || length < 0) return -1;
    auto* bytes = static_cast<uint8_t*>(buffer);
    if (operation == LENSWIRE_TABLE_WRITE) {
        const Bytes& record = held->records[{table, key}] = Bytes(bytes, bytes + length);
        held->written[table].emplace_back(key, record);
        return length;
    }
    Bytes record = held->records[{table, key}];
    if (record.empty() && table == LENSWIRE_TABLE_CHANNELS && key == LENSWIRE_KEY_ALL_CHANNELS) {
        for (uint32_t channel = 0; channel < LENSWIRE_CHANNELS; ++channel) {
            Bytes one = held->records[{table, channel}];
            one.resize(sizeof(HostChannelRecord));
            record = std::move(record) + one;
        }
    }
    if (record.empty()) return -1;
    const size_t count = std::min(record.size(), static_cast<size_t>(length));
    std::copy_n(record.begin(), count, bytes);
    return static_cast<int>(count);
}

int FakeHost::next_request(StreamRequest* request) {
    const Held held = tables();
    if (held->requests.empty()) {
        ++empty_polls_;
        return -1;
    }
    *request = held->requests.front();
    held->requests.pop_front();
    return 0;
}

bool FakeHost::waits_for_requests_taken() {
    const size_t before = empty_polls_;
    return wait_until([&] { return tables()->requests.empty() && empty_polls_ > before; });
}

void FakeHost::sets_motion(const MotionCall& call) {
    motion_calls.add(call);
    const Held held = tables();
    const auto found = held->channels.find(call.channel);
    if (found != held->channels.end()) found->second.motion = call.status;
}

void* FakeHost::allocate(int size) {
    const Held held = tables();
    if (++held->allocations == held->refuse_number || size < 0) return nullptr;
    void* pointer = std::malloc(static_cast<size_t>(size));
    std::memset(pointer, 0xA5, static_cast<size_t>(size));
    live_.insert(pointer);
    return pointer;
}

void FakeHost::release(void* pointer) {
    if (pointer == nullptr) return;
    const Held held = tables();
    const bool was_live = live_.erase(pointer) == 1;
    if (was_live) std::free(pointer);
    if (!was_live) complaints.add("memory freed that the host did not hand out, or freed twice");
}

int FakeHost::dumped_count(const std::string& text) const {
    const auto lines = dumped();
    return static_cast<int>(
        std::ranges::count_if(lines, [&](auto& line) { return line.find(text) != line.npos; }));
}

void FakeHost::enters(Service service, int first, int second) {
    calls_[static_cast<size_t>(service)].fetch_add(1, std::memory_order_relaxed);
    // A thread that a service started now would inherit it.
    if (prctl(PR_GET_TIMERSLACK) > 1'000'000) complaints.add("a service called with timer slack");
    if (!has_hooks_.load(std::memory_order_relaxed)) return;
    const std::function<void(int, int)> hook = tables()->hooks[static_cast<size_t>(service)];
    if (hook) hook(first, second);
}

}  // namespace lenswire::test
