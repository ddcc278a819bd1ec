#include "support/fake_host.h"

#include <sys/prctl.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "support/capture.h"

namespace lenswire::test {

FakeHost& host() {
    static FakeHost* host = new FakeHost;  // outlives every thread of the library
    return *host;
}

void FakeHost::reset() {
    const std::lock_guard lock(mutex_);
    channels_.clear();
    displayed_ = 64;
    records_.clear();
    failing_.clear();
    database_calls_.clear();
    written_.clear();
    requests_.clear();
    restarts_.clear();
    rates_.clear();
    params_.clear();
    motion_calls_.clear();
    snap_calls_.clear();
    alarms_.clear();
    zone_ = TimeZone{};
    allocations_ = 0;
    refuse_number_ = 0;
    dumped_.clear();
    complaints_.clear();
    hooks_ = {};
    has_hooks_ = false;
    for (auto& count : calls_) count = 0;
    stream_used_num = 1;
    run_flag = 0;
    clock.set(1000);
}

// -- Channels and database.

void FakeHost::has_channel(int channel, Channel description) {
    const std::lock_guard lock(mutex_);
    channels_[channel] = std::move(description);
}

void FakeHost::loses_channel(int channel) {
    const std::lock_guard lock(mutex_);
    channels_.erase(channel);
}

Channel FakeHost::channel(int channel) const {
    const std::lock_guard lock(mutex_);
    const auto found = channels_.find(channel);
    if (found != channels_.end()) return found->second;
    Channel none;
    none.bound = false;
    none.protocol = 0;
    none.motion_data.clear();
    return none;
}

bool FakeHost::channel_known(int channel) const {
    const std::lock_guard lock(mutex_);
    return channels_.contains(channel);
}

void FakeHost::shows_channels(int count) {
    const std::lock_guard lock(mutex_);
    displayed_ = count;
}

int FakeHost::displayed() const {
    const std::lock_guard lock(mutex_);
    return displayed_;
}

void FakeHost::arms(int channel, bool armed) {
    const std::lock_guard lock(mutex_);
    channels_[channel].armed = armed;
}

void FakeHost::sets_motion(int channel, int state) {
    const std::lock_guard lock(mutex_);
    const auto found = channels_.find(channel);
    if (found != channels_.end()) found->second.motion = state;
}

void FakeHost::has_record(int table, uint32_t key, Bytes record) {
    const std::lock_guard lock(mutex_);
    records_[{table, key}] = std::move(record);
}

Bytes FakeHost::record(int table, uint32_t key) const {
    const std::lock_guard lock(mutex_);
    const auto found = records_.find({table, key});
    return found == records_.end() ? Bytes() : found->second;
}

void FakeHost::fails_database(int table, int operation) {
    const std::lock_guard lock(mutex_);
    failing_[{table, operation}] = true;
}

int FakeHost::database_calls(int table, int operation) const {
    const std::lock_guard lock(mutex_);
    const auto found = database_calls_.find({table, operation});
    return found == database_calls_.end() ? 0 : found->second;
}

FakeHost::Written FakeHost::takes_written(int table) {
    const std::lock_guard lock(mutex_);
    return std::exchange(written_[table], {});
}

int FakeHost::operate(int table, int operation, uint32_t key, void* buffer, int length) {
    const std::lock_guard lock(mutex_);
    ++database_calls_[{table, operation}];
    if (failing_.contains({table, operation}) || length < 0) return -1;
    auto* bytes = static_cast<uint8_t*>(buffer);
    if (operation == LENSWIRE_TABLE_WRITE) {
        records_[{table, key}] = Bytes(bytes, bytes + length);
        written_[table].emplace_back(key, Bytes(bytes, bytes + length));
        return length;
    }
    Bytes record;
    const auto found = records_.find({table, key});
    if (found != records_.end()) {
        record = found->second;
    } else if (table == LENSWIRE_TABLE_CHANNELS && key == LENSWIRE_KEY_ALL_CHANNELS) {
        for (uint32_t channel = 0; channel < LENSWIRE_CHANNELS; ++channel) {
            Bytes one = records_.contains({table, channel}) ? records_[{table, channel}] : Bytes();
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
    requests_.push_back(request);
}

void FakeHost::posts_open(int channel, int stream, StreamConn* unit, ReceiveBuffer& buffer,
                          FakeStream& frames) {
    StreamRequest request{};
    request.ulType = STREAM_REQ_OPEN;
    request.info.ucChannelNo = static_cast<uint8_t>(channel);
    request.info.ucStreamNo = static_cast<uint8_t>(stream);
    request.info.pStreamConn = unit;
    request.info.pRecvBuf = buffer.object();
    request.info.pStream = frames.object();
    posts(request);
}

void FakeHost::posts_close(int channel, int stream) {
    StreamRequest request{};
    request.ulType = STREAM_REQ_CLOSE;
    request.info.ucChannelNo = static_cast<uint8_t>(channel);
    request.info.ucStreamNo = static_cast<uint8_t>(stream);
    posts(request);
}

int FakeHost::next_request(StreamRequest* request) {
    const std::lock_guard lock(mutex_);
    if (requests_.empty()) {
        ++empty_polls_;
        return -1;
    }
    *request = requests_.front();
    requests_.pop_front();
    return 0;
}

bool FakeHost::waits_for_requests_taken() {
    uint64_t before;
    {
        const std::lock_guard lock(mutex_);
        before = empty_polls_;
    }
    return wait_until([&] {
        const std::lock_guard lock(mutex_);
        return requests_.empty() && empty_polls_ > before;
    });
}

std::vector<RestartMessage> FakeHost::restarts() const {
    const std::lock_guard lock(mutex_);
    return restarts_;
}

size_t FakeHost::restart_count() const {
    const std::lock_guard lock(mutex_);
    return restarts_.size();
}

std::vector<Statistics> FakeHost::receive_rates() const {
    const std::lock_guard lock(mutex_);
    return rates_;
}

std::vector<Statistics> FakeHost::network_params() const {
    const std::lock_guard lock(mutex_);
    return params_;
}

void FakeHost::notes_restart(const RestartMessage& message) {
    const std::lock_guard lock(mutex_);
    restarts_.push_back(message);
}

void FakeHost::notes_rate(const Statistics& rate) {
    const std::lock_guard lock(mutex_);
    rates_.push_back(rate);
}

void FakeHost::notes_param(const Statistics& param) {
    const std::lock_guard lock(mutex_);
    params_.push_back(param);
}

// -- Motion and alarms.

std::vector<MotionCall> FakeHost::motion_calls() const {
    const std::lock_guard lock(mutex_);
    return motion_calls_;
}

std::vector<std::pair<int, int>> FakeHost::snap_calls() const {
    const std::lock_guard lock(mutex_);
    return snap_calls_;
}

std::vector<Alarm> FakeHost::alarms() const {
    const std::lock_guard lock(mutex_);
    return alarms_;
}

bool FakeHost::waits_for_motion_calls(size_t count) const {
    return wait_until([&] { return motion_calls().size() >= count; });
}

bool FakeHost::waits_for_alarms(size_t count) const {
    return wait_until([&] { return alarms().size() >= count; });
}

void FakeHost::notes_motion(const MotionCall& call) {
    const std::lock_guard lock(mutex_);
    motion_calls_.push_back(call);
    const auto found = channels_.find(call.channel);
    if (found != channels_.end()) found->second.motion = call.status;
}

void FakeHost::notes_snap(int channel, int state) {
    const std::lock_guard lock(mutex_);
    snap_calls_.emplace_back(channel, state);
}

void FakeHost::notes_alarm(const Alarm& alarm) {
    const std::lock_guard lock(mutex_);
    alarms_.push_back(alarm);
}

void FakeHost::is_in(const TimeZone& zone) {
    const std::lock_guard lock(mutex_);
    zone_ = zone;
}

TimeZone FakeHost::zone() const {
    const std::lock_guard lock(mutex_);
    return zone_;
}

// -- Memory.

void FakeHost::refuses_allocation(int number) {
    const std::lock_guard lock(mutex_);
    refuse_number_ = number == 0 ? 0 : allocations_ + number;
}

int FakeHost::live_allocations() const {
    const std::lock_guard lock(mutex_);
    return static_cast<int>(live_.size());
}

int FakeHost::allocations() const {
    const std::lock_guard lock(mutex_);
    return allocations_;
}

void* FakeHost::allocate(int size) {
    const std::lock_guard lock(mutex_);
    if (++allocations_ == refuse_number_) return nullptr;
    if (size < 0) return nullptr;
    void* pointer = std::malloc(static_cast<size_t>(size));
    std::memset(pointer, 0xA5, static_cast<size_t>(size));
    live_.emplace(pointer, size);
    return pointer;
}

void FakeHost::release(void* pointer) {
    if (pointer == nullptr) return;
    bool known;
    {
        const std::lock_guard lock(mutex_);
        known = live_.erase(pointer) == 1;
    }
    if (known) {
        std::free(pointer);
    } else {
        complains("memory freed that the host did not hand out, or freed twice");
    }
}

// -- Diagnostics and hooks.

std::vector<std::string> FakeHost::dumped() const {
    const std::lock_guard lock(mutex_);
    return dumped_;
}

int FakeHost::dumped_count(const std::string& text) const {
    const std::lock_guard lock(mutex_);
    int count = 0;
    for (const std::string& line : dumped_) count += line.find(text) != std::string::npos;
    return count;
}

void FakeHost::notes_dump(const std::string& text) {
    const std::lock_guard lock(mutex_);
    dumped_.push_back(text);
}

std::vector<std::string> FakeHost::complaints() const {
    const std::lock_guard lock(mutex_);
    return complaints_;
}

void FakeHost::complains(const std::string& complaint) {
    const std::lock_guard lock(mutex_);
    complaints_.push_back(complaint);
}

void FakeHost::when(Service service, std::function<void(int, int)> hook) {
    const std::lock_guard lock(mutex_);
    hooks_[static_cast<size_t>(service)] = std::move(hook);
    has_hooks_ = true;
}

void FakeHost::enters(Service service, int first, int second) {
    calls_[static_cast<size_t>(service)].fetch_add(1, std::memory_order_relaxed);
    // A thread that a service started now would inherit it.
    if (prctl(PR_GET_TIMERSLACK) > 1'000'000) complains("a service called with timer slack");
    if (!has_hooks_.load(std::memory_order_relaxed)) return;
    std::function<void(int, int)> hook;
    {
        const std::lock_guard lock(mutex_);
        hook = hooks_[static_cast<size_t>(service)];
    }
    if (hook) hook(first, second);
}

}  // namespace lenswire::test
