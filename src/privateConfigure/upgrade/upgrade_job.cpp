#include "privateConfigure/upgrade/upgrade_job.h"

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>

#include "common/lock.h"
#include "common/log.h"
#include "common/wire.h"
#include "lenswire/host_services.h"
#include "privateConfigure/channel_camera.h"
#include "privateConfigure/exchange.h"
#include "privateConfigure/upgrade/upgrade_threads.h"

namespace lenswire::upgrade {

namespace {

struct Job {
    UpgradeJobStatus status;
    pthread_t thread;  // whole, where the status holds only its low 32 bits
    bool bound;        // thread is one: from the job's start until its record is taken again
};

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
void bind(Job& job, pthread_t thread) {
    if (Job* const ended = job_of(thread)) ended->bound = false;
    job = {.status = {}, .thread = thread, .bound = true};
    job.status.ulUsed = 1;
    job.status.ulThreadId = static_cast<uint32_t>(thread);
}

// What a job needs of the heap, in one piece: the copy of its request, and behind it the host's table of
// channels, which would be most of what the operation takes of its caller's stack. The job's thread, which
// knows of the request only, frees it.
struct JobMemory {
    UpgradeRequest request;
    HostChannelRecord channels[LENSWIRE_CHANNELS];
};

void read_channels(JobMemory& memory) {
    uint32_t all_channels = LENSWIRE_KEY_ALL_CHANNELS;
    constexpr int kSize = sizeof memory.channels;
    std::memset(memory.channels, 0, kSize);
    const int length = databaseOperate(LENSWIRE_TABLE_CHANNELS, LENSWIRE_TABLE_READ, &all_channels,
                                       sizeof all_channels, memory.channels, kSize);
    if (length != kSize) std::printf("get devChannel info error, len = %d\r\n", length);
}

// 0, or the refusal of a channel whose protocol takes no upgrade.
int check_protocol(const HostChannelRecord& record, int channel) {
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
    HostUpgradeRecord zeros{};
    databaseOperate(LENSWIRE_TABLE_UPGRADE, LENSWIRE_TABLE_WRITE, &key, sizeof key, &zeros, sizeof zeros);
    return 0;
}

int check_channels(JobMemory& memory) {
    const UpgradeRequest& request = memory.request;
    read_channels(memory);
    for (int channel = 0; channel < LENSWIRE_UPGRADE_CAMERAS; ++channel) {
        if (request.aucChannel[channel] == 0) continue;
        const int refusal = check_protocol(memory.channels[channel], channel);
        if (refusal != 0) return refusal;
        if (check_camera(request, channel) != 0) return -1;
    }
    return 0;
}

// The memory is the thread's once it has started.
bool start_job(JobMemory* memory, pthread_t* thread) {
    Lock lock(g_upgrade_mutex);
    Job* const job = free_job();
    pthread_t created;
    if (job == nullptr || !start_thread(created, memory)) return false;
    bind(*job, created);
    *thread = created;
    return true;
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
    return JobRecord(job != nullptr && job->status.ulUsed == 1 ? &job->status : nullptr);
}

void JobRecord::set_camera(size_t k, uint32_t channel, uint32_t state) const {
    Lock lock(g_upgrade_mutex);
    status_->camera[k] = {.ulChannel = channel, .ulState = state, .ulPercent = 0};
}

void JobRecord::set_camera_count(size_t count) const {
    Lock lock(g_upgrade_mutex);
    status_->ulCameraCount = static_cast<uint32_t>(count);
}

void JobRecord::set_state(size_t k, uint32_t state) const {
    Lock lock(g_upgrade_mutex);
    status_->camera[k].ulState = state;
}

void JobRecord::set_percent(size_t k, uint32_t percent) const {
    Lock lock(g_upgrade_mutex);
    status_->camera[k].ulPercent = percent;
}

void JobRecord::release() const {
    Lock lock(g_upgrade_mutex);
    status_->ulUsed = 0;
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
    auto* const memory =
        static_cast<lenswire::upgrade::JobMemory*>(std::malloc(sizeof(lenswire::upgrade::JobMemory)));
    if (memory == nullptr) return -1;
    memory->request = lenswire::wire::load<UpgradeRequest>(request192);
    int result = lenswire::upgrade::check_channels(*memory);
    if (result == 0 && !lenswire::upgrade::start_job(memory, thread)) result = -1;
    if (result != 0) std::free(memory);
    return result;
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
