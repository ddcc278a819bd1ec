#include "recorder/host/store.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "lenswire/cruise.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

constexpr size_t kCruiseSize = sizeof(CruiseLine);

constexpr const char* kTables = R"(
    CREATE TABLE IF NOT EXISTS channels(
        channel INTEGER PRIMARY KEY, port INTEGER NOT NULL, camera_channel INTEGER NOT NULL,
        record BLOB NOT NULL CHECK(length(record) = 450));
    CREATE TABLE IF NOT EXISTS motion_records(
        channel INTEGER PRIMARY KEY, record BLOB NOT NULL CHECK(length(record) = 88));
    CREATE TABLE IF NOT EXISTS upgrade_records(
        channel INTEGER PRIMARY KEY, record BLOB NOT NULL CHECK(length(record) = 9));
    CREATE TABLE IF NOT EXISTS cruise_lines(
        channel INTEGER, line INTEGER CHECK(line BETWEEN 0 AND 2),
        record BLOB NOT NULL CHECK(length(record) = 390), PRIMARY KEY(channel, line));
    CREATE TABLE IF NOT EXISTS zones(
        zone INTEGER PRIMARY KEY, name TEXT UNIQUE NOT NULL, hours INTEGER NOT NULL,
        minutes INTEGER NOT NULL, camera_zone INTEGER NOT NULL);
)";

// The offsets in use somewhere, in minutes east of Greenwich.
constexpr int kOffsets[] = {-720, -660, -600, -570, -540, -480, -420, -360, -300, -240, -210, -180, -120,
                            -60,  0,    60,   120,  180,  210,  240,  270,  300,  330,  345,  360,  390,
                            420,  480,  525,  540,  570,  600,  630,  660,  720,  765,  780,  840};

// One record per channel under a plain key: the two tables of this shape.
struct PlainTable {
    LenswireHostTable table;
    size_t size;
    const char* read;
    const char* write;
    uint8_t first_byte;  // of the record of a channel that has none yet; the rest is 0
};
constexpr PlainTable kPlainTables[] = {
    // Motion detection is on until somebody switches it off.
    {LENSWIRE_TABLE_MOTION, sizeof(HostMotionRecord), "SELECT record FROM motion_records WHERE channel = ?",
     "INSERT OR REPLACE INTO motion_records VALUES(?, ?)", 1},
    {LENSWIRE_TABLE_UPGRADE, sizeof(HostUpgradeRecord),
     "SELECT record FROM upgrade_records WHERE channel = ?",
     "INSERT OR REPLACE INTO upgrade_records VALUES(?, ?)", 0},
};

int read_plain(Database& database, const PlainTable& table, int channel, std::span<uint8_t> buffer) {
    if (buffer.size() < table.size) return -1;
    Query query = database.query(table.read);
    if (query.bind(channel).row()) {
        std::ranges::copy(query.bytes(0), buffer.begin());
    } else {
        std::ranges::fill(buffer.first(table.size), uint8_t{0});
        buffer[0] = table.first_byte;
    }
    return static_cast<int>(table.size);
}

int write_plain(Database& database, const PlainTable& table, int channel, std::span<const uint8_t> buffer) {
    if (buffer.size() < table.size) return -1;
    const bool done = database.query(table.write).bind(channel).bind(buffer.first(table.size)).run();
    return done ? static_cast<int>(table.size) : -1;
}

HostChannelRecord to_record(std::span<const uint8_t> bytes) {
    HostChannelRecord record{};
    std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof record));
    return record;
}

std::span<const uint8_t> to_bytes(const HostChannelRecord& record) {
    return {reinterpret_cast<const uint8_t*>(&record), sizeof record};
}

std::string address_of(const HostChannelRecord& record) {
    return {record.szIpAddr, strnlen(record.szIpAddr, sizeof record.szIpAddr)};
}

Zone zone_of(const Query& row) {
    return {.index = static_cast<int>(row.integer(0)),
            .name = row.text(1),
            .hours = static_cast<int>(row.integer(2)),
            .minutes = static_cast<int>(row.integer(3)),
            .camera_index = static_cast<int>(row.integer(4))};
}

std::string zone_name(int offset) {
    char text[16];
    const int size = std::abs(offset);
    std::snprintf(text, sizeof text, "GMT%c%02d:%02d", offset < 0 ? '-' : '+', size / 60, size % 60);
    return text;
}

int local_offset() {
    const time_t now = time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    return static_cast<int>(local.tm_gmtoff / 60);
}

}  // namespace

Store::Store(const std::string& file) : database_(file) {
    create_tables();
    const auto here = zone(zone_name(local_offset()));
    zone_ = here ? here->index : zone(zone_name(0))->index;
}

void Store::create_tables() {
    // Waits for a recorder at work in the same file; one that began to read would be refused at once.
    database_.execute("BEGIN IMMEDIATE");
    database_.execute(kTables);
    int index = 0;
    for (const int offset : kOffsets) {
        const int hours = offset >= 0 ? offset / 60 : -((-offset + 59) / 60);
        const bool done = database_.query("INSERT OR IGNORE INTO zones VALUES(?, ?, ?, ?, ?)")
                              .bind(index++)
                              .bind(zone_name(offset))
                              .bind(hours)
                              .bind(offset - hours * 60)
                              .bind(24 + offset / 30)
                              .run();
        if (!done) throw local_failure("the time zones cannot be written to the database");
    }
    database_.execute("COMMIT");
}

int Store::bind_camera(const CameraAddress& camera) {
    const std::lock_guard lock(mutex_);
    int channel = find_channel(camera);
    if (channel < 0) {
        channel = 0;
        while (load_channel(channel)) ++channel;
        if (channel >= kMostChannels) throw bad_input("more than 192 channels");
        HostChannelRecord record{};
        record.ucChannelNo = static_cast<uint8_t>(channel);
        record.ucProtocol = LENSWIRE_PROTOCOL;
        const std::string ip = camera.dotted_ip();
        std::memcpy(record.szIpAddr, ip.data(), ip.size());
        const bool done = database_.query("INSERT INTO channels VALUES(?, ?, ?, ?)")
                              .bind(channel)
                              .bind(camera.port)
                              .bind(camera.channel)
                              .bind(to_bytes(record))
                              .run();
        if (!done) throw local_failure("camera " + camera.name() + " cannot be written to the database");
    }
    bound_[channel] = camera;
    return channel;
}

int Store::find_channel(const CameraAddress& camera) {
    Query rows = database_.query(
        "SELECT channel, record FROM channels WHERE port = ? AND camera_channel = ? ORDER BY channel");
    rows.bind(camera.port).bind(camera.channel);
    while (rows.row()) {
        if (address_of(to_record(rows.bytes(1))) == camera.dotted_ip())
            return static_cast<int>(rows.integer(0));
    }
    return -1;
}

std::optional<CameraAddress> Store::camera(int channel) const {
    const std::lock_guard lock(mutex_);
    const auto bound = bound_.find(channel);
    const auto record = load_channel(channel);
    if (bound == bound_.end() || !record) return std::nullopt;
    CameraAddress camera = bound->second;
    camera.host = address_of(*record);
    return camera;
}

int Store::channels_in_use() const {
    const std::lock_guard lock(mutex_);
    return bound_.empty() ? 0 : bound_.rbegin()->first + 1;
}

std::optional<HostChannelRecord> Store::channel_record(int channel) const {
    const std::lock_guard lock(mutex_);
    return load_channel(channel);
}

void Store::set_channel_record(int channel, const HostChannelRecord& record) {
    const std::lock_guard lock(mutex_);
    store_channel(channel, record);
}

std::optional<HostChannelRecord> Store::load_channel(int channel) const {
    Query query = database_.query("SELECT record FROM channels WHERE channel = ?");
    if (!query.bind(channel).row()) return std::nullopt;
    return to_record(query.bytes(0));
}

void Store::store_channel(int channel, const HostChannelRecord& record) {
    database_.query("UPDATE channels SET record = ? WHERE channel = ?")
        .bind(to_bytes(record))
        .bind(channel)
        .run();
}

int Store::operate(int table, int operation, std::span<const uint8_t> key, std::span<uint8_t> buffer) {
    int32_t channel = -1;
    if (key.size() != sizeof channel ||
        (operation != LENSWIRE_TABLE_READ && operation != LENSWIRE_TABLE_WRITE))
        return -1;
    std::memcpy(&channel, key.data(), sizeof channel);
    const std::lock_guard lock(mutex_);
    for (const PlainTable& plain : kPlainTables) {
        if (plain.table != table || channel < 0) continue;
        return operation == LENSWIRE_TABLE_READ ? read_plain(database_, plain, channel, buffer)
                                                : write_plain(database_, plain, channel, buffer);
    }
    if (table == LENSWIRE_TABLE_CRUISE && channel >= 0) {
        return operation == LENSWIRE_TABLE_READ ? read_cruise(channel, buffer)
                                                : write_cruise(channel, buffer);
    }
    if (table != LENSWIRE_TABLE_CHANNELS) return -1;
    if (operation == LENSWIRE_TABLE_READ && channel == LENSWIRE_KEY_ALL_CHANNELS)
        return read_all_channels(buffer);
    if (operation == LENSWIRE_TABLE_READ) return read_channel(channel, buffer);
    if (buffer.size() < sizeof(HostChannelRecord) || !load_channel(channel)) return -1;
    store_channel(channel, to_record(buffer));
    return sizeof(HostChannelRecord);
}

int Store::read_all_channels(std::span<uint8_t> buffer) {
    if (buffer.size() < kChannels * sizeof(HostChannelRecord)) return -1;
    for (int channel = 0; channel < kChannels; ++channel) {
        const HostChannelRecord record = load_channel(channel).value_or(HostChannelRecord{});
        std::ranges::copy(to_bytes(record), buffer.begin() + channel * static_cast<long>(sizeof record));
    }
    return kChannels * sizeof(HostChannelRecord);
}

int Store::read_channel(int channel, std::span<uint8_t> buffer) {
    const auto record = load_channel(channel);
    if (!record || buffer.size() < sizeof *record) return -1;
    std::ranges::copy(to_bytes(*record), buffer.begin());
    return sizeof *record;
}

// All lines in line order; one that was never written is empty but for its number.
int Store::read_cruise(int channel, std::span<uint8_t> buffer) {
    if (buffer.size() < LENSWIRE_CRUISE_LINES * kCruiseSize) return -1;
    for (int line = 0; line < LENSWIRE_CRUISE_LINES; ++line) {
        const auto place = buffer.subspan(line * kCruiseSize, kCruiseSize);
        std::ranges::fill(place, uint8_t{0});
        place[0] = static_cast<uint8_t>(line);
        Query query = database_.query("SELECT record FROM cruise_lines WHERE channel = ? AND line = ?");
        if (query.bind(channel).bind(line).row()) std::ranges::copy(query.bytes(0), place.begin());
    }
    return LENSWIRE_CRUISE_LINES * kCruiseSize;
}

int Store::write_cruise(int channel, std::span<const uint8_t> buffer) {
    if (buffer.size() < kCruiseSize || buffer[0] >= LENSWIRE_CRUISE_LINES) return -1;
    const bool done = database_.query("INSERT OR REPLACE INTO cruise_lines VALUES(?, ?, ?)")
                          .bind(channel)
                          .bind(buffer[0])
                          .bind(buffer.first(kCruiseSize))
                          .run();
    return done ? static_cast<int>(kCruiseSize) : -1;
}

std::optional<Zone> Store::zone(int index) const {
    const std::lock_guard lock(mutex_);
    Query query = database_.query("SELECT * FROM zones WHERE zone = ?");
    if (!query.bind(index).row()) return std::nullopt;
    return zone_of(query);
}

std::optional<Zone> Store::zone(const std::string& name) const {
    const std::lock_guard lock(mutex_);
    Query query = database_.query("SELECT * FROM zones WHERE name = ?");
    if (!query.bind(name).row()) return std::nullopt;
    return zone_of(query);
}

void Store::set_current_zone(const std::string& name) {
    const auto found = zone(name);
    if (!found) throw bad_input("unknown time zone '" + name + "', expected e.g. GMT+08:00");
    const std::lock_guard lock(mutex_);
    zone_ = found->index;
}

Zone Store::current_zone() const {
    int index = 0;
    {
        const std::lock_guard lock(mutex_);
        index = zone_;
    }
    return zone(index).value();
}

}  // namespace lenswire::recorder
