#include "privateConfigure/upgrade_job.h"

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>

#include "common/lock.h"
#include "common/log.h"
#include "common/stop.h"
#include "common/wire.h"
#include "lenswire/host_services.h"
#include "privateConfigure/channel_camera.h"
#include "privateConfigure/exchange.h"
#include "privateConfigure/host_tables.h"
#include "privateConfigure/upgrade_threads.h"

namespace lenswire::upgrade {

struct Job {
    UpgradeJobStatus status;
    pthread_t thread;  // whole, where the status holds only its low 32 bits
    bool bound;        // thread is one: from the job's start until its record is taken again
    RunningContext context;
};

namespace {

// g_upgrade_mutex guards every word of the table, also those that only one job writes, so that a host never
// sees half a change. A job's thread is created under it: the thread looks for its record under the same
// lock, and so never before its identity stands there. A record with ulUsed 1 is written by its thread only.
pthread_mutex_t g_upgrade_mutex = PTHREAD_MUTEX_INITIALIZER;
Job g_upgradeJobs[LENSWIRE_UPGRADE_JOBS];

// Callers of these three hold the lock.
Job* free_job() {
    for (Job& job : g_upgradeJobs) {
        if (job.status.ulUsed == 0) return &job;
    }
    return nullptr;
}

Job* job_of(pthread_t thread) {
    for (Job& job : g_upgradeJobs) {
        if (job.bound && pthread_equal(job.thread, thread)) return &job;
    }
    return nullptr;
}

// The system uses identities again: an ended job of the same one is forgotten.
void bind(Job& job, pthread_t thread, const RunningContext& context) {
    if (Job* const ended = job_of(thread)) ended->bound = false;
    job = {.status = {}, .thread = thread, .bound = true, .context = context};
    job.status.ulUsed = 1;
    job.status.ulThreadId = static_cast<uint32_t>(thread);
}

int start_job(const UpgradeRequest& request, const RunningContext& context, pthread_t* thread) {
    void* const copy = std::malloc(sizeof request);
    if (copy == nullptr) return -1;
    wire::store(copy, request);

    Lock lock(g_upgrade_mutex);
    Job* const job = free_job();
    pthread_t created;
    if (job == nullptr || !start_thread(created, copy)) {
        lock.unlock();
        std::free(copy);
        return -1;
    }
    bind(*job, created, context);
    *thread = created;
    return 0;
}

constexpr int kUpgradeRecordSize = 9;

// On the heap: it would be most of what the operation needs of its caller's stack.
struct ChannelTable {
    ChannelTable() : records(static_cast<ChannelRecord*>(std::calloc(kCount, sizeof(ChannelRecord)))) {}
    ~ChannelTable() { std::free(records); }
    ChannelTable(const ChannelTable&) = delete;
    ChannelTable& operator=(const ChannelTable&) = delete;

    void read() {
        uint32_t all_channels = 250;  // the host's key for the whole table
        constexpr int kSize = kCount * sizeof(ChannelRecord);
        const int length =
            databaseOperate(kChannelTable, kRead, &all_channels, sizeof all_channels, records, kSize);
        if (length != kSize) std::printf("get devChannel info error, len = %d\r\n", length);
    }

    static constexpr int kCount = LENSWIRE_UPGRADE_CAMERAS;
    ChannelRecord* const records;
};

// 0, or the refusal of a channel whose protocol takes no upgrade.
int check_protocol(const ChannelRecord& record, int channel) {
    if (record.ucProtocol != 2 && record.ucProtocol != 3) return 0;
    PRI_ERROR_AS("Prv_ipc_upgrade",
                 " the protocol can't update ipc the chano = %d the ip = %.*s the protocol = %d  i = %d\n",
                 record.ucChannelNo, static_cast<int>(sizeof record.szIpAddr), record.szIpAddr,
                 record.ucProtocol, channel);
    return -record.ucProtocol;
}

int check_camera(const UpgradeRequest& request, int channel) {
    char path[sizeof request.szFilePath + 1] = {};
    std::memcpy(path, request.szFilePath, sizeof request.szFilePath);
    if (Get_IPC_upgradeParam(channel, path) != 1) {
        std::fputs("###############Ipc Upgrade Check fault###############", stdout);
        return -1;
    }
    std::fputs("###############Ipc Upgrade Check successful##########", stdout);
    auto key = static_cast<uint32_t>(channel);
    uint8_t zeros[kUpgradeRecordSize] = {};
    databaseOperate(kUpgradeTable, kWrite, &key, sizeof key, zeros, sizeof zeros);
    return 0;
}

int check_channels(const UpgradeRequest& request) {
    ChannelTable table;
    if (table.records == nullptr) return -1;
    table.read();
    for (int channel = 0; channel < LENSWIRE_UPGRADE_CAMERAS; ++channel) {
        if (request.aucChannel[channel] == 0) continue;
        if (const int refusal = check_protocol(table.records[channel], channel); refusal != 0) return refusal;
        if (check_camera(request, channel) != 0) return -1;
    }
    return 0;
}

constexpr exchange::Row kDeviceInfo{
    .operation = "Get_IPC_upgradeParam",
    .wire = {.command = LENSWIRE_CMD_DEVICE_INFO,
             .records = {LENSWIRE_DEVICE_INFO_SIZE},
             .checks_flag = true},
    .wording = {.form = exchange::Form::kError, .not_sent = "Prv_Send_Cmd failed"}};

}  // namespace

JobRecord JobRecord::of_this_thread() {
    Lock lock(g_upgrade_mutex);
    Job* const job = job_of(pthread_self());
    return JobRecord(job != nullptr && job->status.ulUsed == 1 ? job : nullptr);
}

bool JobRecord::is_stopped() const {
    return job_->context.ended() || is_unloading();
}

void JobRecord::sets_camera(size_t k, uint32_t channel, uint32_t state) const {
    Lock lock(g_upgrade_mutex);
    job_->status.camera[k] = {.ulChannel = channel, .ulState = state, .ulPercent = 0};
}

void JobRecord::sets_camera_count(size_t count) const {
    Lock lock(g_upgrade_mutex);
    job_->status.ulCameraCount = static_cast<uint32_t>(count);
}

void JobRecord::sets_state(size_t k, uint32_t state) const {
    Lock lock(g_upgrade_mutex);
    job_->status.camera[k].ulState = state;
}

void JobRecord::sets_percent(size_t k, uint32_t percent) const {
    Lock lock(g_upgrade_mutex);
    job_->status.camera[k].ulPercent = percent;
}

void JobRecord::releases() const {
    Lock lock(g_upgrade_mutex);
    job_->status.ulUsed = 0;
}

}  // namespace lenswire::upgrade

int Get_IPC_upgradeParam(int channel, char* path) {
    namespace exchange = lenswire::exchange;
    const lenswire::ChannelCamera camera = lenswire::camera_of_channel(channel);
    // A channel without a camera leaves no address text, which converts to none that a camera could have.
    if (camera.ip == 0 || camera.ip == INADDR_NONE) {
        PRI_ERROR("IP error\n");
        return -1;
    }
    exchange::Message message(lenswire::upgrade::kDeviceInfo);
    if (!exchange::fetch(lenswire::upgrade::kDeviceInfo, camera.ip, message)) return 0;
    return CompareUpgradeFile(message.payload(), path) == 0 ? 1 : 0;
}

int Prv_ipc_upgrade(const void* request192, pthread_t* thread) {
    if (request192 == nullptr || thread == nullptr) {
        PRI_ERROR("input param error\n");
        return -1;
    }
    const lenswire::RunningContext context;
    const auto request = lenswire::wire::load<UpgradeRequest>(request192);
    if (const int refusal = lenswire::upgrade::check_channels(request); refusal != 0) return refusal;
    return lenswire::upgrade::start_job(request, context, thread);
}

int Prv_ipc_upgrade_get_status(pthread_t thread, void* out780) {
    if (out780 == nullptr) {
        PRI_ERROR("input param error\n");
        return -1;
    }
    lenswire::Lock lock(lenswire::upgrade::g_upgrade_mutex);
    const lenswire::upgrade::Job* const job = lenswire::upgrade::job_of(thread);
    if (job == nullptr) return -1;
    lenswire::wire::store(out780, job->status);
    return 0;
}
