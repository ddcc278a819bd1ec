// The checking plug-in, loaded as a host loads it: a bad host for each rule, and each trips that rule alone.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <csetjmp>
#include <cstring>
#include <fstream>
#include <regex>
#include <thread>

#include "bad_host.h"
#include "lenswire/lenswire.h"
#include "support/connections.h"
#include "support/fake_host.h"

namespace lenswire::test {
namespace {

using testing::IsEmpty;

struct RuleText {
    int number;
    std::string name;
    std::string sentence;
    std::string id() const { return (number < 10 ? "LW-0" : "LW-") + std::to_string(number) + " " + name; }
};
const RuleText kRules[] = {
#define LENSWIRE_RULE(number, constant, name, sentence) {number, name, sentence},
#include "check/rule_table.inc"
#undef LENSWIRE_RULE
};

void* g_library;
#define CALL(function) (*LENSWIRE_FIND(g_library, function))

constexpr int kChannel = 5;
constexpr size_t kRingSize = 1 << 16;
constexpr int kLines = 3 * sizeof(CruiseLine);
constexpr int kSampled = 115;  // of the second payload, a byte that the check knows

// What a host has for one stream, and a library that is loaded for this scene alone.
struct Scene {
    Pair pair;
    ReceiveBuffer buffer{kRingSize};
    FakeStream stream;
    StreamConn unit{.sockFd = pair.ours(), .pCmdClient = nullptr, .reserved = {}};
    int channel = 0;
    int stream_shift = 0;  // of the stream object in the open request
    int calls = 0;

    Scene() {
        host().reset();
        host().displayed = 1;
        host().has_record(LENSWIRE_TABLE_CRUISE, 0, Bytes(kLines));
        host().has_channel(kChannel, {.address = "127.0.0.1", .armed = 1});
        std::memset(ucAudioTypeFlag, 0, 256);
        g_library = dlopen(LENSWIRE_LIBRARY, RTLD_NOW | RTLD_LOCAL);
        if (g_library == nullptr) ADD_FAILURE() << dlerror();
    }
    ~Scene() {
        dlclose(g_library);
        bad = {};
    }
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    bool first() { return calls++ == 0; }
    void posts() {
        StreamRequest request = open_request(channel, 0, &unit, buffer, stream);
        request.info.pStream = static_cast<uint8_t*>(stream.object()) + stream_shift;
        host().posts(request);
    }
    // A frame of the library's making, without a payload.
    void* delivers() {
        int32_t words[5]{};
        const Bytes header = Packet{}.bytes();
        CALL(PacketToFrameQueue)
        (header.data(), 0, buffer.object(), stream.object(), stream.object(), 0, &words[0], &words[1],
         &words[2], &words[3], &words[4], 0);
        return nullptr;
    }
};

// -- What the library does, so that it calls the host.

void receives(Scene& scene) {
    int32_t words[7]{};
    for (size_t size : {300, 200}) {
        scene.pair.theirs().sends(Packet{.payload = pattern(size)}.bytes() +
                                  Packet{.payload = pattern(1)}.bytes());
        CALL(RecvStreamToPacketBuf)
        (0, 0, &words[0], scene.pair.ours(), 0, &words[1], scene.buffer.object(), scene.stream.object(),
         &words[2], &words[3], &words[4], &words[5], &words[6]);
    }
}

void takes_requests(Scene& scene) {
    scene.posts();
    // The body of the queue thread, which ends with the requests.
    host().when(Service::kGetRequest, [](int, int) { CALL(PC_G_RecvQueue) = 0; });
    CALL(PC_G_RecvQueue) = 1;
    CALL(PC_GetQueueThread)();
}

void receives_what_it_opened(Scene& scene) {
    takes_requests(scene);
    receives(scene);
}

void takes_a_push(Scene&) {
    const Bytes push = command(0x0009, {0, 0, 1}).bytes();
    EXPECT_LE(CALL(Prv_IPCTriggingMtionDetetion)(push.data(), 0x0100007F), 0);
}

void ends_motion(Scene& scene) {
    host().has_channel(kChannel, {.address = "127.0.0.1", .armed = 0, .motion = 1});
    takes_a_push(scene);
}

void sets_a_clock(Scene&) {
    const HostCameraRecord camera{
        .reserved0 = 0, .ucChannelNo = 0, .reserved2 = {}, .szIpAddr = "127.0.0.1", .ulPort = 1};
    EXPECT_EQ(CALL(Prv_SetIPCTimeAndDate)(&camera), -1);
}

void reads_cruise_lines(Scene&) {
    CALL(Private_ptzCruiseInit)();
}

void writes_a_cruise_line(Scene&) {
    const CruiseLine line{};
    CALL(Private_ChangeCruiseParamToDB)(0, &line);
}

void asks_twice(Scene&) {
    RecvSendSlot* slots[] = {CALL(Init_Cond_Msg)(1, 0, 1), CALL(Init_Cond_Msg)(2, 0, 1)};
    for (RecvSendSlot* slot : slots) CALL(prv_destroy_msg)(slot);
}

void tells_of_a_restart(Scene&) {
    CALL(PostRestartMessageToQueue)(1, 0);
}

void restarts_while_it_runs(Scene& scene) {
    CALL(PC_InitCtx)();
    tells_of_a_restart(scene);
    CALL(PC_UnInitCtx)();
}

void logs_in(Scene&) {
    CALL(PC_InitCtx)();
    const LoginInfo info = credentials();
    host().run_flag = 4;
    EXPECT_NE(CALL(PC_Login)(CALL(PC_CreateNew)(), 0x0100007F, 1, &info, 0, 0), 0);
    CALL(PC_UnInitCtx)();
}

void is_pushed_to(Scene&) {
    ScriptedCamera camera;
    CALL(PC_InitCtx)();
    const LoginInfo info = credentials();
    std::future<Wire> served = camera.logs_in_next();
    EXPECT_EQ(CALL(PC_Login)(CALL(PC_CreateNew)(), camera.address(), camera.port(), &info, 0, 0), 0);
    Wire wire = served.get();
    wire.sends(command(0x0009, {0, 0, 1}));
    EXPECT_TRUE(host().snap_calls.waits_for(1));
    CALL(PC_UnInitCtx)();
}

std::jmp_buf g_jump;
void is_left_by_a_jump(Scene& scene) {
    if (setjmp(g_jump) == 0) reads_cruise_lines(scene);
    bad = {};
    reads_cruise_lines(scene);
}

// -- The bad hosts. What is not planted does as the fake host does.

uint8_t& byte(void* memory, int index) {
    return static_cast<uint8_t*>(memory)[index];
}

// Does what it should, and then changes a byte of what one of its arguments names.
template <size_t Argument, typename R, typename... A>
void spoil(std::function<R(A...)>& service, R (*good)(A...), int offset) {
    service = [=](A... arguments) {
        const R result = good(arguments...);
        ++byte(std::get<Argument>(std::tuple(arguments...)), offset);
        return result;
    };
}

using Step = void (*)(Scene&);
#define SPOILS(name, argument, offset) [](Scene&) { spoil<argument>(bad.name, good_##name, offset); }
#define RETURNS(name, ...) [](Scene&) { bad.name = [](auto...) { return __VA_ARGS__; }; }
#define DOES(name, parameters, ...) \
    [](Scene& scene) { bad.name = [&scene] parameters { return __VA_ARGS__; }; }

alignas(16) uint8_t g_memory[3 * 4096];

void give_memory_at(int first, int second) {
    bad.MeMalloc = [=, calls = 0](auto...) mutable { return g_memory + (calls++ == 0 ? first : second); };
    bad.MeFree = [](auto...) {};
}

// A page that is not there.
uint8_t* no_memory() {
    const auto size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* page = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    munmap(page, size);
    return static_cast<uint8_t*>(page);
}

void post_another(Scene& scene, int socket, ReceiveBuffer& buffer) {
    static StreamConn unit;
    unit.sockFd = socket;
    scene.posts();
    host().posts_open(1, 0, &unit, buffer, scene.stream);
    host().posts_close(0, 0);
    host().posts_close(1, 0);
}

int block_a_signal() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    return pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

int wait_for_an_answer() {
    RecvSendSlot* slot = CALL(Init_Cond_Msg)(1, 0, 1);
    CALL(Prv_GetCond_Property)(slot, 0);
    CALL(prv_destroy_msg)(slot);
    return 1;
}

// A service that takes what is taken out of the ring away from its end as well.
int lose_a_byte(Scene& scene, int result) {
    if (scene.first()) --scene.buffer.ring().fill;
    return result;
}

struct Row {
    const char* rule;
    Step drive;
    Step plant;
};
const Row kRows[] = {
    {"service-slow", reads_cruise_lines, RETURNS(configGetDisplayNum, usleep(20'000))},
    {"service-left", is_left_by_a_jump, RETURNS(configGetDisplayNum, std::longjmp(g_jump, 1), 0)},
    {"signal-mask", reads_cruise_lines, RETURNS(configGetDisplayNum, block_a_signal())},
    {"stop-inside", restarts_while_it_runs, RETURNS(networkInsertMessageToQueue, CALL(PC_UnInitCtx)())},
    {"wait-inside", is_pushed_to, RETURNS(MD_Disarming_Time, wait_for_an_answer())},
    {"channel-overrun", takes_a_push, SPOILS(DbMainMsgChannelInfo, 3, 64)},
    {"channel-address", takes_a_push, [](Scene&) { host().has_channel(kChannel, {.address = "a.local"}); }},
    {"channel-port", takes_a_push,
     [](Scene&) { host().has_channel(kChannel, {.address = "1.2.3.4", .port = 70000}); }},
    {"table-result", reads_cruise_lines, RETURNS(databaseOperate, kLines + 1)},
    {"table-written", writes_a_cruise_line, RETURNS(databaseOperate, 0)},
    {"table-overrun", reads_cruise_lines, SPOILS(databaseOperate, 4, kLines)},
    {"table-beyond", reads_cruise_lines,
     DOES(databaseOperate, (int, int, void*, int, void* buffer, int),
          scene.calls + 390 * ++byte(buffer, 390))},
    {"table-part", reads_cruise_lines, RETURNS(databaseOperate, 389)},
    {"table-input", writes_a_cruise_line, SPOILS(databaseOperate, 4, 0)},
    {"table-key", reads_cruise_lines, SPOILS(databaseOperate, 2, 0)},
    {"display-number", reads_cruise_lines, RETURNS(configGetDisplayNum, 1000)},
    {"protocol-number", takes_a_push, RETURNS(get_channel_protocol, 260)},
    {"request-empty", takes_requests,
     DOES(Private_Protocol_GetRequestFromQueue, (StreamRequest * request),
          scene.first() ? 0 : good_Private_Protocol_GetRequestFromQueue(request))},
    {"request-overrun", takes_requests,
     SPOILS(Private_Protocol_GetRequestFromQueue, 0, sizeof(StreamRequest))},
    {"request-type", takes_requests, [](Scene&) { host().posts(stream_request(STREAM_REQ_RESTART, 0, 0)); }},
    {"open-null", takes_requests, [](Scene&) { host().posts(stream_request(STREAM_REQ_OPEN, 0, 0)); }},
    {"open-socket", takes_requests, [](Scene& scene) { scene.unit.sockFd = 1024; }},
    {"open-socket-twice", takes_requests,
     [](Scene& scene) {
         static ReceiveBuffer other;
         post_another(scene, scene.pair.ours(), other);
     }},
    {"open-buffer-twice", takes_requests,
     [](Scene& scene) { post_another(scene, scene.pair.theirs().descriptor(), scene.buffer); }},
    {"open-unaligned", takes_requests, [](Scene& scene) { scene.stream_shift = 2; }},
    {"open-channel", takes_requests, [](Scene& scene) { scene.channel = 100; }},
    {"message-changed", tells_of_a_restart, SPOILS(networkInsertMessageToQueue, 2, 9)},
    {"used-number", logs_in, RETURNS(networkGetStreamUsedNum, -1)},
    {"info-unaligned", receives, RETURNS(networkGetStreampPrivateInfo, g_memory + 2)},
    {"ring-room", receives, RETURNS(ring_free_size_ex, 512 << 20)},
    {"ring-no-room", receives,
     DOES(ring_free_size_ex, (void* ring), scene.first() ? good_ring_free_size_ex(ring) : 0)},
    {"ring-start-null", receives, RETURNS(ring_get_start_buf, nullptr)},
    {"ring-start-outside", receives, RETURNS(ring_get_start_buf, no_memory())},
    {"ring-not-emptied", receives_what_it_opened,
     DOES(ring_free_size_ex, (void* ring), scene.first() ? scene.buffer.holds(Bytes(5)) : void(),
          good_ring_free_size_ex(ring))},
    {"ring-commit", receives,
     DOES(ring_set_data_end, (void* ring, int length),
          good_ring_set_data_end(ring, scene.first() ? length : length - 1))},
    {"ring-pop", receives_what_it_opened,
     DOES(ring_pop_n, (void* ring, void* dst, int length, int capacity),
          lose_a_byte(scene, good_ring_pop_n(ring, dst, length, capacity)))},
    {"ring-peek", receives,
     DOES(ring_pop_temp, (void* ring, void* dst, int length),
          lose_a_byte(scene, good_ring_pop_temp(ring, dst, length)))},
    {"ring-peek-short", receives,
     DOES(ring_pop_temp, (void* ring, void* dst, int), scene.calls + good_ring_pop_temp(ring, dst, 20))},
    {"ring-peek-overrun", receives, SPOILS(ring_pop_temp, 1, 32)},
    {"ring-pop-overrun", receives, SPOILS(ring_pop_n, 1, 300)},
    {"ring-peek-differs", receives, SPOILS(ring_pop_n, 1, 0)},
    {"ring-bytes", receives,
     DOES(ring_pop_n, (void* ring, void* dst, int length, int capacity),
          good_ring_pop_n(ring, dst, length, capacity) +
              (length == 200 ? ++byte(dst, kSampled) : scene.calls))},
    {"frame-twice", receives,
     [](Scene& scene) {
         bad.streamGetFrameQueueBuffer = [](void*, int) { return g_memory; };
         bad.streamInsertFrameToFrameQueue = [](void*, void*) { return 0; };
         bad.networkGetStreampPrivateInfo = [&scene](int, int) {
             return scene.first() ? scene.delivers() : nullptr;
         };
     }},
    {"frame-overlap", receives,
     DOES(streamGetFrameQueueBuffer, (void*, int), scene.buffer.ring().data + 30'000)},
    {"frame-changed", receives,
     [](Scene&) {
         bad.streamGetFrameQueueBuffer = [](void*, int) { return g_memory; };
         bad.streamFrameQueueLock = [](void*) { return ++byte(g_memory, 10); };
     }},
    {"frame-nested", receives,
     DOES(streamInsertFrameToFrameQueue, (void*, void*), scene.first() ? scene.delivers() : nullptr, 0)},
    {"frame-lock", receives,
     DOES(streamInsertFrameToFrameQueue, (void*, void*),
          scene.first() ? std::thread(&Scene::delivers, &scene).join() : void(), 0)},
    {"audio-flag", receives, [](Scene&) { ucAudioTypeFlag[7] = 9; }},
    {"motion-overrun", takes_a_push, SPOILS(motion_data_copy, 1, 88)},
    {"motion-short", takes_a_push,
     DOES(motion_data_copy, (int, void* data), std::memset(data, 1, 84) == &scene)},
    {"motion-input", takes_a_push, SPOILS(VideoMDSetStatus, 2, 87)},
    {"armed", takes_a_push, RETURNS(MD_Disarming_Time, -1)},
    {"alarm-input", ends_motion, SPOILS(streamInsertAlarmToAlarmQueue, 1, 3)},
    {"zone-overrun", sets_a_clock, SPOILS(GetTimeZone, 0, 12)},
    {"zone-endless", sets_a_clock, [](Scene&) { host().is_in({.name = "GMT+08:00:00"}); }},
    {"zone-text", sets_a_clock, [](Scene&) { host().is_in({.name = "UTC+08:00"}); }},
    {"zone-time-overrun", sets_a_clock, SPOILS(GetTimeZoneTime, 1, 3)},
    {"zone-hours", sets_a_clock, [](Scene&) { host().is_in({.hours = 15}); }},
    {"camera-zone", sets_a_clock, [](Scene&) { host().is_in({.camera_index = 256}); }},
    {"memory-unaligned", asks_twice, [](Scene&) { give_memory_at(1, 4112); }},
    {"memory-twice", asks_twice, [](Scene&) { give_memory_at(0, 0); }},
    {"memory-small", asks_twice, [](Scene&) { give_memory_at(0, 2048); }},
    {"clock-back", takes_requests, DOES(uptime, (), scene.first() ? 100u : 99u)},
    {"clock-fast", takes_requests, DOES(uptime, (), scene.first() ? 0u : 1000u)},
};

// The rules that were broken in one row, however many services broke them: on a busy machine any may be slow,
// which is no matter but where it is the rule.
std::set<std::string> reports(const Row& row) {
    setenv("LENSWIRE_CHECK_SLOW_MS", row.rule == std::string("service-slow") ? "10" : "0", 1);
    const Capture capture;
    {
        Scene scene;
        row.plant(scene);
        row.drive(scene);
    }
    const std::string text = capture.err();
    const std::regex report("lenswire-check: (LW-\\d+ [a-z-]+): [^\n]*thread \\d+");
    std::set<std::string> found;
    for (std::sregex_iterator i(text.begin(), text.end(), report), end; i != end; ++i) found.insert((*i)[1]);
    return found;
}

TEST(Check, EachBadHostTripsItsRuleAlone) {
    std::set<std::string> tripped = {"frame-small"};  // see below
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.rule);
        const auto* rule = std::ranges::find(kRules, row.rule, &RuleText::name);
        ASSERT_NE(rule, std::end(kRules));
        EXPECT_THAT(reports(row), testing::ElementsAre(rule->id()));
        tripped.insert(row.rule);
    }
    EXPECT_EQ(tripped.size(), std::size(kRules));
}

TEST(Check, AGoodHostTripsNone) {
    for (const Step drive : {receives_what_it_opened, ends_motion, sets_a_clock, writes_a_cruise_line,
                             asks_twice, restarts_while_it_runs, logs_in})
        EXPECT_THAT(reports({"", drive, [](Scene&) {}}), IsEmpty()) << reinterpret_cast<void*>(drive);
}

// The report stands in the file before the process crashes, or ends.
TEST(Check, ABreachMayEndTheProcess) {
    const std::string file = testing::TempDir() + "lenswire-check-" + std::to_string(getpid());
    setenv("LENSWIRE_CHECK_FILE", file.c_str(), 1);
    setenv("LENSWIRE_CHECK_ABORT", "1", 1);
    const Row small{"frame-small", receives,
                    [](Scene&) { bad.streamGetFrameQueueBuffer = [](void*, int) { return no_memory(); }; }};
    EXPECT_EXIT(reports(small), testing::KilledBySignal(SIGABRT), "");
    std::ifstream stream(file);
    std::string line;
    std::getline(stream, line);
    EXPECT_THAT(line, testing::StartsWith("lenswire-check: LW-45 frame-small: streamGetFrameQueueBuffer: "));
    std::remove(file.c_str());
}

std::string text_of(const std::string& file) {
    std::ifstream stream(LENSWIRE_SOURCE "/" + file);
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    return std::regex_replace(text, std::regex("\\s+(\\* )?"), " ");
}

TEST(Check, TheRulesStandInHeadersAndDocuments) {
    const std::string headers =
        text_of("include/lenswire/host_services.h") + text_of("include/lenswire/host_objects.h");
    const std::string document = text_of("docs/checks.md");
    for (const RuleText& rule : kRules) {
        EXPECT_THAT(headers, testing::HasSubstr(rule.id() + ": " + rule.sentence + "."));
        EXPECT_THAT(document,
                    testing::HasSubstr("| " + rule.id().insert(5, " |") + " | " + rule.sentence + " |"));
    }
    EXPECT_EQ(occurrences(headers, "LW-"), static_cast<int>(std::size(kRules)));
    EXPECT_EQ(occurrences(document, "| LW-"), static_cast<int>(std::size(kRules)));
}

}  // namespace
}  // namespace lenswire::test
