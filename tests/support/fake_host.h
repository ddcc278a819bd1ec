// A host made for tests: every service that the library imports, backed by tables that a test fills in and
// lists of what the library did. There is one, host(), since services have no argument that names a host.
// Safe to use from any thread; no lock is held while a hook runs.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "lenswire/host_services.h"
#include "support/fake_stream.h"
#include "support/notes.h"

namespace lenswire::test {

// Names for the services that a hook can stand in.
enum class Service {
    kChannelInfo,      // channel, 0
    kDatabase,         // table, operation
    kGetRequest,       // 0, 0
    kInsertMessage,    // channel, stream
    kStreamUsedNum,    // channel, stream
    kRunFlag,          // channel, stream
    kInsertFrame,      // 0, 0
    kSetMotionStatus,  // channel, status
    kSnapMotion,       // channel, state
    kAlarm,            // queue, 0
    kMalloc,           // size, 0
    kFree,             // 0, 0
    kDump,             // 0, 0
    kZone,             // zone index asked about, 0
    kUptime,           // 0, 0
    kCount
};

struct Channel {
    std::string address;
    int port = 0;
    std::string user = "admin";
    std::string password = "12345";
    int protocol = 4;
    int bound = 1;
    int fisheye = 0;
    int armed = 0;
    int motion = 0;
    Bytes motion_data = Bytes(sizeof(HostMotionRecord));  // empty: motion_data_copy fails
    int result = 0;  // of a DbMainMsgChannelInfo or motion_data_copy that does not fail
    bool known = true;
};

struct RestartMessage {
    int channel;
    int stream;
    int kind;
    StreamRequest request;
};

struct MotionCall {
    int channel;
    int status;
    std::optional<Bytes> data;  // 88 bytes, none when the library passed null
};

struct Statistics {
    int channel;
    int stream;
    int bytes_per_second;
    int width = 0;  // Private_Protocol_SetRecvBit
    int height = 0;
    int kind = 0;  // libVideoInfoSetNetworkParam
    int frame_rate = 0;
};

struct Alarm {
    int queue;
    Bytes record;
};

struct TimeZone {
    std::string name = "GMT+08:00";
    int result = 0;  // host zone index in bits 8 to 15, -1 fails
    uint8_t hours = 8;
    uint8_t minutes = 0;
    uint32_t camera_index = 0;
};

// The host's seconds counter. It stands still until a test moves it.
class Clock {
  public:
    uint32_t now() const { return seconds_.load(std::memory_order_relaxed); }
    void set(uint32_t seconds) { seconds_.store(seconds, std::memory_order_relaxed); }
    void advance(uint32_t seconds) { seconds_.fetch_add(seconds, std::memory_order_relaxed); }

  private:
    std::atomic<uint32_t> seconds_{1000};
};

// A request as a host queues it, for a stream or without one.
StreamRequest stream_request(uint32_t type, int channel, int stream);
StreamRequest open_request(int channel, int stream, StreamConn* unit, ReceiveBuffer& buffer,
                           FakeStream& frames);

class FakeHost {
  public:
    // Back to the beginning. Allocations that the library still holds stay counted.
    void reset();

    // -- Channels and database.
    void has_channel(int channel, Channel description) {
        tables()->channels[channel] = std::move(description);
    }
    Channel channel(int channel) const;
    std::atomic<int> displayed{64};  // configGetDisplayNum
    void has_record(int table, uint32_t key, Bytes record) {
        tables()->records[{table, key}] = std::move(record);
    }
    // What stands in the database, empty when nothing does.
    Bytes record(int table, uint32_t key) const { return tables()->records[{table, key}]; }
    void fails_database(int table, int operation) { tables()->failing.insert({table, operation}); }
    int database_calls(int table, int operation) const { return tables()->calls[{table, operation}]; }
    // Every record that was written to a table since it was last asked for, under its key.
    using Written = std::vector<std::pair<uint32_t, Bytes>>;
    Written takes_written(int table) { return std::exchange(tables()->written[table], {}); }

    // -- Streams.
    void posts(const StreamRequest& request) { tables()->requests.push_back(request); }
    void posts_open(int channel, int stream, StreamConn* unit, ReceiveBuffer& buffer, FakeStream& frames) {
        posts(open_request(channel, stream, unit, buffer, frames));
    }
    void posts_close(int channel, int stream) { posts(stream_request(STREAM_REQ_CLOSE, channel, stream)); }
    // Whether the library has taken every posted request and come back for more.
    bool waits_for_requests_taken();
    Notes<RestartMessage> restarts;
    Notes<Statistics> receive_rates;   // Private_Protocol_SetRecvBit
    Notes<Statistics> network_params;  // libVideoInfoSetNetworkParam
    // Results during a login; 0 and 4 end one.
    std::atomic<int> stream_used_num{1};
    std::atomic<int> run_flag{0};

    // -- Motion and alarms.
    Notes<MotionCall> motion_calls;
    Notes<std::pair<int, int>> snap_calls;
    Notes<Alarm> alarms;

    // -- Time.
    Clock clock;
    void is_in(const TimeZone& zone) { tables()->zone = zone; }

    // -- Memory.
    // Counted from now on, the first is 1; 0 refuses none.
    void refuses_allocation(int number) {
        const Held held = tables();
        held->refuse_number = number == 0 ? 0 : held->allocations + number;
    }
    int live_allocations() const {
        const Held held = tables();
        return static_cast<int>(live_.size());
    }
    int allocations() const { return tables()->allocations; }

    // -- Diagnostics.
    Notes<std::string> dumped;
    int dumped_count(const std::string& text) const;
    // What the library did wrong with a service; a test's fixture expects none.
    Notes<std::string> complaints;

    // Runs at every entry into a service, outside every lock of the host, with the arguments named above.
    void when(Service service, std::function<void(int, int)> hook) {
        tables()->hooks[static_cast<size_t>(service)] = std::move(hook);
        has_hooks_ = true;
    }
    int calls(Service service) const { return calls_[static_cast<size_t>(service)]; }

    // -- The services' side.
    void enters(Service service, int first, int second);
    int operate(int table, int operation, uint32_t key, void* buffer, int length);
    int next_request(StreamRequest* request);
    void sets_motion(const MotionCall& call);
    TimeZone zone() const { return tables()->zone; }
    void* allocate(int size);
    void release(void* pointer);

  private:
    static constexpr auto kServices = static_cast<size_t>(Service::kCount);
    struct Tables {
        std::map<int, Channel> channels;
        std::map<std::pair<int, uint32_t>, Bytes> records;  // empty ones are none
        std::set<std::pair<int, int>> failing;
        std::map<std::pair<int, int>, int> calls;
        std::map<int, Written> written;
        std::deque<StreamRequest> requests;
        TimeZone zone;
        int allocations = 0;
        int refuse_number = 0;
        std::array<std::function<void(int, int)>, kServices> hooks;
    };
    // The tables, locked as long as this object is there.
    struct Held {
        std::unique_lock<std::mutex> lock;
        Tables& tables;
        Tables* operator->() const { return &tables; }
    };
    Held tables() const { return {std::unique_lock(mutex_), tables_}; }

    mutable std::mutex mutex_;
    mutable Tables tables_;
    std::set<void*> live_;
    std::atomic<size_t> empty_polls_{0};

    // Counted and looked up without a lock, so that the host orders nothing between the library's threads
    // that a real one would not.
    std::array<std::atomic<int>, kServices> calls_{};
    std::atomic<bool> has_hooks_{false};
};

FakeHost& host();

}  // namespace lenswire::test
