// The recorder's tables, in SQLite: channels and their cameras, motion and upgrade records, cruise lines,
// time zones. The library reads and writes them by table number through databaseOperate.
//
// With a database file a camera keeps its recorder channel, its cruise lines and its records from one run to
// the next. User names and passwords are never stored: they live here only while the program runs.
//
// Every function may be called by any thread; one mutex guards it all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "lenswire/host_tables.h"
#include "recorder/host/camera_address.h"
#include "recorder/support/database.h"

namespace lenswire::recorder {

inline constexpr int kChannels = LENSWIRE_CHANNELS;
inline constexpr int kMostChannels = 192;   // that can be recorded
inline constexpr int kMotionChannels = 64;  // the library looks no further when a camera tells of motion

struct Zone {
    int index = 0;
    std::string name;      // GMT+08:00
    int hours = 0;         // rounded down, so that hours and minutes add up to the offset
    int minutes = 0;       // 0 to 59
    int camera_index = 0;  // half hours from GMT-12:00
};

class Store {
  public:
    explicit Store(const std::string& file = "");

    // Gives a camera its channel, the one it had before or the lowest free one, and makes it known for this
    // run. Throws a bad-input Failure when all are taken.
    int bind_camera(const CameraAddress& camera);

    // The camera bound to a channel in this run.
    std::optional<CameraAddress> camera(int channel) const;
    int channels_in_use() const;  // highest bound channel and one more

    std::optional<HostChannelRecord> channel_record(int channel) const;
    void set_channel_record(int channel, const HostChannelRecord& record);

    // The bytes moved, or -1. See the tables in lenswire/host_services.h.
    int operate(int table, int operation, std::span<const uint8_t> key, std::span<uint8_t> buffer);

    std::optional<Zone> zone(int index) const;
    std::optional<Zone> zone(const std::string& name) const;
    void set_current_zone(const std::string& name);  // throws a bad-input Failure for an unknown one
    Zone current_zone() const;

  private:
    void create_tables();
    int find_channel(const CameraAddress& camera);
    std::optional<HostChannelRecord> load_channel(int channel) const;
    void store_channel(int channel, const HostChannelRecord& record);
    int read_all_channels(std::span<uint8_t> buffer);
    int read_channel(int channel, std::span<uint8_t> buffer);
    int read_cruise(int channel, std::span<uint8_t> buffer);
    int write_cruise(int channel, std::span<const uint8_t> buffer);

    mutable std::mutex mutex_;
    mutable Database database_;
    std::map<int, CameraAddress> bound_;
    int zone_ = 0;
};

}  // namespace lenswire::recorder
