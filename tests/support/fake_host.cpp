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
    const std::lock_guard lock(mutex_);
    tables_ = {};
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

// -- Channels and database.

void FakeHost::has_channel(int channel, Channel description) {
    const std::lock_guard lock(mutex_);
    tables_.channels[channel] = std::move(description);
}

void FakeHost::loses_channel(int channel) {
    const std::lock_guard lock(mutex_);
    tables_.channels.erase(channel);
}

Channel FakeHost::channel(int channel) const {
    const std::lock_guard lock(mutex_);
    const auto found = tables_.channels.find(channel);
    if (found != tables_.channels.end()) return found->second;
    return {.address = "", .protocol = 0, .bound = 0, .motion_data = {}, .known = false};
}

void FakeHost::has_record(int table, uint32_t key, Bytes record) {
    const std::lock_guard lock(mutex_);
    tables_.records[{table, key}] = std::move(record);
}

Bytes FakeHost::record(int table, uint32_t key) const {
    const std::lock_guard lock(mutex_);
    const auto found = tables_.records.find({table, key});
    return found == tables_.records.end() ? Bytes() : found->second;
}

void FakeHost::fails_database(int table, int operation) {
    const std::lock_guard lock(mutex_);
    tables_.failing.insert({table, operation});
}

int FakeHost::database_calls(int table, int operation) const {
    const std::lock_guard lock(mutex_);
    const auto found = tables_.calls.find({table, operation});
    return found == tables_.calls.end() ? 0 : found->second;
}

FakeHost::Written FakeHost::takes_written(int table) {
    const std::lock_guard lock(mutex_);
    return std::exchange(tables_.written[table], {});
}

int FakeHost::operate(int table, int operation, uint32_t key, void* buffer, int length) {
    const std::lock_guard lock(mutex_);
    ++tables_.calls[{table, operation}];
    if (tables_.failing.contains({table, operation}) || length < 0) return -1;
    auto* bytes = static_cast<uint8_t*>(buffer);
    if (operation == LENSWIRE_TABLE_WRITE) {
        tables_.records[{table, key}] = Bytes(bytes, bytes + length);
        tables_.written[table].emplace_back(key, Bytes(bytes, bytes + length));
        return length;
    }
    Bytes record;
    const auto found = tables_.records.find({table, key});
    if (found != tables_.records.end()) {
        record = found->second;
    } else if (table == LENSWIRE_TABLE_CHANNELS && key == LENSWIRE_KEY_ALL_CHANNELS) {
        for (uint32_t channel = 0; channel < LENSWIRE_CHANNELS; ++channel) {
            Bytes one =
                tables_.records.contains({table, channel}) ? tables_.records[{table, channel}] : Bytes();
            one.resize(sizeof(HostChannelRecord));
            record.insert(record.end(), one.begin(), one.end());
        }
    } else {
        return -1;
    }
    const size_t count = std::min(record.size(), static_cast<size_t>(length));
    if (count > 0) std::memcpy(bytes, record.data(), count);
    return static_cast<int>(count);
}

// -- Streams.

void FakeHost::posts(const StreamRequest& request) {
    const std::lock_guard lock(mutex_);
    tables_.requests.push_back(request);
}

int FakeHost::next_request(StreamRequest* request) {
    const std::lock_guard lock(mutex_);
    if (tables_.requests.empty()) {
        ++empty_polls_;
        return -1;
    }
    *request = tables_.requests.front();
    tables_.requests.pop_front();
    return 0;
}

bool FakeHost::waits_for_requests_taken() {
    const size_t before = empty_polls_;
    return wait_until([&] {
        const std::lock_guard lock(mutex_);
        return tables_.requests.empty() && empty_polls_ > before;
    });
}

// -- Motion and alarms.

void FakeHost::sets_motion(const MotionCall& call) {
    motion_calls.add(call);
    const std::lock_guard lock(mutex_);
    const auto found = tables_.channels.find(call.channel);
    if (found != tables_.channels.end()) found->second.motion = call.status;
}

void FakeHost::is_in(const TimeZone& zone) {
    const std::lock_guard lock(mutex_);
    tables_.zone = zone;
}

TimeZone FakeHost::zone() const {
    const std::lock_guard lock(mutex_);
    return tables_.zone;
}

// -- Memory.

void FakeHost::refuses_allocation(int number) {
    const std::lock_guard lock(mutex_);
    tables_.refuse_number = number == 0 ? 0 : tables_.allocations + number;
}

int FakeHost::live_allocations() const {
    const std::lock_guard lock(mutex_);
    return static_cast<int>(live_.size());
}

int FakeHost::allocations() const {
    const std::lock_guard lock(mutex_);
    return tables_.allocations;
}

void* FakeHost::allocate(int size) {
    const std::lock_guard lock(mutex_);
    if (++tables_.allocations == tables_.refuse_number) return nullptr;
    if (size < 0) return nullptr;
    void* pointer = std::malloc(static_cast<size_t>(size));
    std::memset(pointer, 0xA5, static_cast<size_t>(size));
    live_.emplace(pointer, size);
    return pointer;
}

void FakeHost::release(void* pointer) {
    if (pointer == nullptr) return;
    const std::lock_guard lock(mutex_);
    if (live_.erase(pointer) == 1) {
        std::free(pointer);
    } else {
        complaints.add("memory freed that the host did not hand out, or freed twice");
    }
}

// -- Diagnostics and hooks.

int FakeHost::dumped_count(const std::string& text) const {
    const auto lines = dumped();
    return static_cast<int>(
        std::ranges::count_if(lines, [&](auto& line) { return line.find(text) != line.npos; }));
}

void FakeHost::when(Service service, std::function<void(int, int)> hook) {
    const std::lock_guard lock(mutex_);
    tables_.hooks[static_cast<size_t>(service)] = std::move(hook);
    has_hooks_ = true;
}

void FakeHost::enters(Service service, int first, int second) {
    calls_[static_cast<size_t>(service)].fetch_add(1, std::memory_order_relaxed);
    // A thread that a service started now would inherit it.
    if (prctl(PR_GET_TIMERSLACK) > 1'000'000) complaints.add("a service called with timer slack");
    if (!has_hooks_.load(std::memory_order_relaxed)) return;
    Hook hook;
    {
        const std::lock_guard lock(mutex_);
        hook = tables_.hooks[static_cast<size_t>(service)];
    }
    if (hook) hook(first, second);
}

}  // namespace lenswire::test
