// What all exchanges with a camera have in common, a row each: requests, answers, and each way to fail.
#include <arpa/inet.h>

#include <cinttypes>
#include <regex>

#include "settings/settings.h"

namespace lenswire::test {
namespace {

// What is special about a get.
enum Trait {
    kInside = 1 << 0,    // more is done with the answer than to copy it
    kZero = 1 << 1,      // it fails with 0
    kApart = 1 << 2,     // an answer without payload leaves zeros
    kFlag = 1 << 3,      // the flag of an answer is looked at
    kNoRecord = 1 << 4,  // the request is a header that announces the record
    kNoSize = 1 << 5,    // or nothing
    kNameless = 1 << 6,  // a missing answer's line does not name the command
    kNamesIt = 1 << 7,   // the line of a failed send names the channel
    kBlank = 1 << 8,     // lines end twice,
    kBare = 1 << 9,      // or not at all, and have no prefix,
    kError = 1 << 10     // or are on standard error
};

// A get, called for channel 0x105 where it takes one; its low byte is what cameras see. Those that find
// their camera by a channel of the host do so through kChannel.
struct Get {
    const char* name;
    int (*call)(uint32_t ip, uint8_t* out);
    uint16_t code;
    uint32_t size;          // of the record that goes out and the one that comes back
    uint8_t first, second;  // of its bytes as it goes out, the others are zero
    int traits;
    const char* refused = nullptr;  // without an address; none when it looks the address up
    int wait_s = 10;

    bool has(int trait) const { return (traits & trait) != 0; }
    // The payload of the request.
    Bytes payload() const {
        if (has(kApart)) return repeated('u', size);  // the caller's record, as these tests fill it
        return has(kNoRecord | kNoSize) ? Bytes() : Bytes{first, second} + Bytes(size - 2);
    }
    Bytes request() const {
        Message request = command(code, payload(), 0, kLoginId);
        request.buffer_size = has(kNoSize) ? 0 : size;
        return request.bytes();
    }
};

constexpr int kSome = 0x105;
#define CALL(operation, ...)                     \
#operation, [](uint32_t ip [[maybe_unused]], \
                   uint8_t * out [[maybe_unused]]) { return static_cast<int>(operation(__VA_ARGS__)); }
constexpr const char* kUsual = "parameter pass error!";
constexpr const char* kAddress = "IP  error";

const Get kGets[] = {
    {CALL(Prv_GetIPCImageProperty, kSome, ip, out), 0x1004, 36, 5, 0x33, 0, kUsual},
    {CALL(Prv_GetIPCNetworkProperty, kSome, ip, out), 0x1006, 118, 5, 0, kNameless, kUsual},
    {CALL(Prv_GetIPCOSD, kSome, ip, out), 0x1023, 228, 5, 0, kNameless, kUsual},
    {CALL(Prv_GetWifiSignal, kSome, ip, out), 0x35, 626, 0, 0, 0,
     "ip : 0 , channel : 261,inWifi : OUT32 parameter pass error!"},
    {CALL(Prv_GetTimeProperty, kSome, ip, out), 0x1000, 212, 0, 0, kNoRecord | kNameless, kUsual},
    {CALL(Prv_GetIPCMtionDetetionConfigure, 64, ip, out), 0x100A, 168, 64, 0, kNameless,
     "parameter pass error! ip=0,outMotionProperty=OUT,channel=64"},
    {CALL(Prv_GetVideoCover, 64, ip, out), 0x1021, 204, 64, 0, kNameless,
     "Prv_GetVideoCover parameter pass error! ip=0,outCoverProperty=OUT,channel=64"},
    {CALL(Private_PTZ_GET_Property, ip, out), 0x1031, 24, 0, 0, kNoSize | kNameless, kUsual},
    {CALL(Private_Fish_Protocol_EYE_PROPERTY, kSome, ip, out), 0x1063, 64, 5, 0, kNamesIt, kUsual},
    {CALL(Private_PTZ_CRUISE_GET, ip, out), 0x26, 980, 'u', 'u', kBare | kApart, kAddress},
    {CALL(Prv_Get_IPC_PropertyParam, kChannel, out), 0x2012, 1024, 0, 0, kError | kFlag, nullptr, 3},
    {CALL(Private_Protocol_GetEncodingScope, kSome, ip, out), 0x1102, 1027, 5, 0, kInside | kNamesIt, kUsual,
     4},
    {CALL(Private_Protocol_GetStreamType, kChannel), 0x1002, 32, 0, 0x33, kInside | kZero | kFlag},
    {CALL(Private_Protocol_GetEncodingProperty, ip, out), 0x1002, 32, 0, 0x33, kInside | kFlag, kAddress, 4},
    {CALL(Private_Protocol_GetEncodingProperty1, ip, out), 0x1002, 32, 0, 0x33, kInside | kFlag},
    {CALL(Private_Fish_Protocol_GetEncodingProperty, kSome, ip, out), 0x1061, 256, 5, 0, kInside | kFlag,
     kAddress, 4},
    {CALL(Private_Protocol_GetPlatFormType, kChannel), 0x2003, 464, 0, 0, kInside | kZero | kFlag | kBlank},
    {CALL(Get_IPC_upgradeParam, kChannel, reinterpret_cast<char*>(out)), 0x2003, 464, 0, 0,
     kInside | kZero | kFlag | kError},
};

std::string undelivered(uint32_t ip) {
    return line("Prv_Send_Cmd",
                std::string(" Private_Protocol_CMDDelivery failed,\tk=0,ip=") + inet_ntoa(in_addr{ip}));
}

// A number as printf shows it.
std::string hex(uint64_t number) {
    char text[32];
    snprintf(text, sizeof text, "%" PRIx64, number);
    return text;
}

// What a get prints, line ends and all.
std::string told(const Get& get, const std::string& text) {
    if (get.has(kBare)) return text;
    if (get.has(kError)) return error(get.name, text.substr(text[0] == ' ' ? 1 : 0));
    return line(get.name, text) + (get.has(kBlank) ? "\n" : "");
}
std::string refused(const Get& get) {
    return get.refused != nullptr ? told(get, get.refused) : "";
}
std::string no_slot(const Get& get) {
    // Nothing is given back, either; the operation's line may come on standard error.
    const std::string text = told(get, "cond init failed");
    const std::string released_nothing = line("prv_destroy_msg", "input param error ");
    return get.has(kError) ? released_nothing + text : text + released_nothing;
}
std::string not_sent(const Get& get) {
    return told(get, std::string(" Prv_Send_Cmd failed") + (get.has(kNamesIt) ? " channel : 261\n" : ""));
}
std::string no_answer(const Get& get) {
    const std::string text = "get cond and property failed";
    return told(get, get.has(kNameless) ? text : text + " pCmd->usCmd =" + hex(get.code));
}
std::string bad_flag(const Get& get) {
    if (!get.has(kFlag)) return "";
    return told(get, std::string("ulBufferNum =1 ulFlag=1") + (get.has(kError) ? "\t" : "  ") + "ERROR");
}

// Both streams: an operation writes to one or the other.
std::string printed(const Capture& capture) {
    return unnumbered(capture.out()) + unnumbered(capture.err());
}

using Gets = SettingsTest;
using Sets = SettingsTest;

// Short answers are filled up with what the buffer held: the request, zeros behind it.
TEST_F(Gets, CopyTheAnswer) {
    for (const Get& get : kGets) {
        if (get.has(kInside)) continue;
        for (size_t length : {0u, 1u, get.size - 1, get.size, get.size + 1, 4064u}) {
            SCOPED_TRACE(get.name + std::to_string(length));
            Bytes out = repeated('u', get.size + 8);
            Message answer = command(get.code, pattern(length, get.code));
            answer.flag = get.has(kFlag) ? 0 : 1;
            Bytes expected = get.has(kApart) ? Bytes() : get.payload();
            expected.resize(4064);
            std::copy(answer.payload.begin(), answer.payload.end(), expected.begin());
            const int allocations = host().allocations();
            EXPECT_EQ(runs([&] { return get.call(ip(), out.data()); }, {answer}).result, 0);
            EXPECT_EQ(out, slice(expected, 0, get.size) + repeated('u', 8));
            EXPECT_EQ(host().allocations(), allocations + 1);
        }
    }
}

// A way for a get to fail, and what it does on the way.
struct Failure {
    const char* name;
    std::string (*text)(const Get&);  // its own line; the case is left out where there is none
    std::string before = "";          // a line of the layers below
    Message answer = {};              // if it has a payload
    size_t sends = 0;
    size_t waits = 0;
    size_t slots_tried = 0;  // a second apart
    std::function<void(Timewarp&)> comes = [](Timewarp&) {};
};

TEST_F(Gets, FailInEachOfTheseWaysAndLeaveTheBufferAlone) {
    Message flagged = command(0, pattern(1728));
    flagged.flag = 1;
    std::vector<RecvSendSlot*> taken;
    const auto takes_all = [&](Timewarp&) {
        while (taken.size() < 128) taken.push_back(Init_Cond_Msg(0x7777, 0, ip()));
    };
    const auto loses = [&](Timewarp&) {
        for (RecvSendSlot* slot : std::exchange(taken, {})) prv_destroy_msg(slot);
        loses_camera();
    };
    const std::string no_memory = line("Init_Cond_Msg", "MeMalloc failed \n");
    const std::string full = line("Prv_PacketMsg", "###############cond init error time =5");
    const Failure failures[] = {
        {"an error", no_answer, "", command(0, pattern(1728), 1), 1},
        {"a flag", bad_flag, "", flagged, 1},
        {"silence", no_answer, "", {}, 1, 1},
        {"no clock", no_answer, "", {}, 1, 0, 0, [](Timewarp& warp) { warp.clock_fails = true; }},
        {"no memory", no_slot, no_memory, {}, 0, 0, 0, [](Timewarp&) { host().refuses_allocation(1); }},
        {"no address", refused},
        {"a full table", no_slot, full, {}, 0, 0, 5, takes_all},
        {"no client", not_sent, undelivered(ip()), {}, 0, 0, 0, loses},
    };
    for (const Failure& failure : failures) {
        for (const Get& get : kGets) {
            if (failure.text(get).empty()) continue;
            SCOPED_TRACE(get.name + std::string(": ") + failure.name);
            Bytes out = repeated('u', 1728);
            const auto at = reinterpret_cast<uintptr_t>(out.data());
            std::string text = failure.before + failure.text(get);
            text = std::regex_replace(text, std::regex("OUT32"), hex(at & 0xFFFFFFFF));
            text = std::regex_replace(text, std::regex("OUT"), "0x" + hex(at));
            Capture capture;
            Timewarp warp;
            failure.comes(warp);
            Message answer = failure.answer;
            answer.command = get.code;
            const auto call = [&] { return get.call(failure.text == refused ? 0 : ip(), out.data()); };
            const auto [result, requests] =
                answer.payload.empty() ? sends(call, failure.sends) : runs(call, {answer});
            for (const Message& request : requests) EXPECT_EQ(request.bytes(), get.request());
            EXPECT_EQ(result, get.has(kZero) ? 0 : -1);
            EXPECT_EQ(printed(capture), text);
            EXPECT_EQ(warp.waited_s, std::vector<int>(failure.waits, get.wait_s));
            EXPECT_EQ(warp.slept_us, std::vector<long>(10 * failure.slots_tried, 100000));
            EXPECT_EQ(out, repeated('u', 1728));
        }
    }
}

// -- Channels out of their range and missing arguments: one line in the name of the operation, nothing else.

// Calls an operation with each list of arguments.
template <typename Operation, typename... Lists>
void refuses(const char* name, Operation operation, const Lists&... lists) {
    const auto call = [&](const auto& list) {
        Capture capture;
        EXPECT_EQ(std::apply(operation, list), -1);
        const std::string text = printed(capture);
        EXPECT_THAT(text, testing::AllOf(HasSubstr(name), HasSubstr("error")));
        EXPECT_EQ(occurrences(text, "PRI_LOG ") + occurrences(text, "[src"), 1) << text;
    };
    (call(lists), ...);
}
template <typename... Arguments>
auto args(Arguments... arguments) {
    return std::tuple(arguments...);
}
#define REFUSES(operation, ...) refuses(#operation, operation, __VA_ARGS__)

TEST_F(Gets, RefuseChannelsOutOfTheirRangeAndMissingArgumentsWithoutTakingASlot) {
    Bytes buffer(4096);
    uint8_t* out = buffer.data();
    const HostCameraRecord camera{};
    const uint32_t ip = this->ip();
    const char* text = "127.0.0.1";
    uint32_t count = 0;
    const int allocations = host().allocations();
    REFUSES(Prv_GetIPCImageProperty, args(-1, ip, out), args(1, ip, nullptr));
    REFUSES(Prv_GetIPCNetworkProperty, args(-1, ip, out), args(1, ip, nullptr));
    REFUSES(Prv_GetIPCOSD, args(-1, ip, out), args(1, ip, nullptr));
    REFUSES(Prv_GetWifiSignal, args(-1, ip, out), args(1, ip, nullptr));
    REFUSES(Prv_GetTimeProperty, args(-1, ip, out), args(1, ip, nullptr));
    REFUSES(Prv_GetIPCMtionDetetionConfigure, args(65, ip, out), args(-1, ip, out), args(1, ip, nullptr));
    REFUSES(Prv_GetVideoCover, args(65, ip, out), args(-1, ip, out), args(1, ip, nullptr));
    REFUSES(Private_PTZ_GET_Property, args(ip, nullptr));
    REFUSES(Private_Fish_Protocol_EYE_PROPERTY, args(-1, ip, out), args(1, ip, nullptr));
    REFUSES(Private_Fish_Protocol_EYE_PROPERTY0, args(-1, text, 1, out), args(1, nullptr, 1, out),
            args(1, text, 1, nullptr));
    REFUSES(Private_Protocol_GetEncodingScope, args(-1, ip, out), args(1, ip, nullptr));
    REFUSES(Private_Protocol_GetEncodingPropert, args(-1, ip, out, out), args(1, 0, out, out),
            args(1, ip, nullptr, out), args(1, ip, out, nullptr));
    REFUSES(Prv_Get_IPC_PropertyParam, args(kChannel, nullptr));
    REFUSES(Process_EncodingType, args(nullptr, out), args(out, nullptr));
    REFUSES(Prv_SetIPCTimeAndDate, args(nullptr));
    REFUSES(Prv_TimInfoPacket, args(nullptr, 0));
    REFUSES(Private_SetPreset, args(kChannel, nullptr));
    REFUSES(Private_RecallPreset, args(kChannel, nullptr));
    REFUSES(Private_ChangeCruiseLineParam, args(0, 0, nullptr));
    REFUSES(Private_ChangeCruiseParamToDB, args(0, nullptr));
    REFUSES(Private_ChangeCruiseParamToMemory, args(0, nullptr));
    REFUSES(Private_GetPtzCruiseAllPreset, args(0, nullptr));
    REFUSES(Private_SetPtzCruiseAllPreset, args(0, nullptr, 1));
    REFUSES(Prv_IPCTriggingMtionDetetion, args(nullptr, ip), args(out, 0));
    REFUSES(Prv_CloseMD, args(kChannel, 0));
    REFUSES(cmd_packet, args(nullptr, 1, 1, 1), args(out, -1, 1, 1), args(out, 1, -1, 1),
            args(out, 1, 1, -1));
    REFUSES(prv_set_alarm_property_ex, args(nullptr, out, 20), args(text, nullptr, 20));
    REFUSES(GetFishType, args(nullptr, 1, 0, 0));
    REFUSES(GetFiashEve, args(nullptr, out, out), args(&camera, nullptr, out), args(&camera, out, nullptr));
    REFUSES(Prv_Send_Cmd, args(ip, out, out, -1), args(0, out, out, 20), args(ip, nullptr, out, 20),
            args(ip, out, nullptr, 20));
    REFUSES(Parse_EncodingResolution, args(out, nullptr), args(nullptr, "@@@H264:1x1;"));
    REFUSES(Parse_SinResolution, args(nullptr, "H264:1x1;"));
    REFUSES(Parse_DouResolution, args(out, nullptr));
    REFUSES(Parse_ThrResolution, args(nullptr, nullptr));
    REFUSES(Prv_EncScopPasVal, args(nullptr, out), args(out, nullptr));
    REFUSES(Parse_FiltRes, args(nullptr, &count, out, 1, 1, "A"), args(&count, nullptr, out, 1, 1, "A"),
            args(&count, &count, nullptr, 1, 1, "A"), args(&count, &count, out, 1, 1, nullptr));
    EXPECT_EQ(buffer, Bytes(4096));
    EXPECT_EQ(host().allocations(), allocations);
    EXPECT_FALSE(camera_was_asked());
}

// A set; its record is number x size bytes of payload as they stand.
struct Set {
    const char* name;
    int (*call)(uint32_t ip, const void* record);
    uint16_t code;
    uint32_t size;
    uint32_t number = 1;  // of them
    std::string refused = "input paramers error";
    std::string prefix = "";  // of its lines
};
#define SET(operation) #operation, operation
#define SET_OF_CHANNEL(operation) \
#operation, [](uint32_t ip, const void* record) { return operation(-1, ip, record); }

const Set kSets[] = {
    {SET(Prv_SetIPCMtionDetetionConfigure), 0x100B, 168},
    {SET(Prv_SetIPCImageProperty), 0x1005, 36},
    {SET(Prv_SetIPCOSD), 0x1022, 228},
    {SET(Prv_SetIPCTimeDate), 0x1001, 212},
    {SET_OF_CHANNEL(Prv_SetVideoCover), 0x1020, 204, 1, "input paramers error", "Prv_SetVideoCover "},
    {SET_OF_CHANNEL(Prv_SetSmartIFrame), 0x106D, 512, 1, "input paramers error", "Prv_SetSmartIFrame "},
    {SET(Private_PTZ_SET_Property), 0x1030, 24, 1, kAddress},
    {SET(Private_PTZ_OPTION), 0x20, 20, 1, kAddress},
    {SET(Private_PTZ_CRUISE), 0x25, 980, 1, kAddress},
    {SET(Private_Protocol_SetEncodingProperty), 0x1003, 32, 3, kAddress},
    {SET(Private_Fish_Protocol_SetEncodingProperty), 0x1062, 256, 3, kAddress},
};

TEST_F(Sets, SendTheRecordAsItIsOrSayWhyNot) {
    for (const bool connected : {true, false}) {
        if (!connected) loses_camera();
        for (const Set& set : kSets) {
            SCOPED_TRACE(set.name);
            const Bytes record = pattern(set.number * set.size, set.code);
            const std::string refused = line(set.name, set.prefix + set.refused);
            const std::string failed = (set.prefix.empty() ? " " : set.prefix) + "Prv_Send_Cmd failed";
            Message expected = announcing(set.code, {set.number, set.size}, record);
            expected.login_id = kLoginId;
            Capture capture;
            EXPECT_EQ(set.call(0, record.data()), -1);
            EXPECT_EQ(set.call(ip(), nullptr), -1);
            const auto [result, requests] =
                sends([&] { return set.call(ip(), record.data()); }, connected ? 1 : 0);
            EXPECT_EQ(result, connected ? 0 : -1);
            EXPECT_EQ(printed(capture),
                      refused + refused + (connected ? "" : undelivered(ip()) + line(set.name, failed)));
            for (const Message& request : requests) EXPECT_EQ(request.bytes(), expected.bytes());
        }
    }
    EXPECT_EQ(host().calls(Service::kMalloc), 0);
}

}  // namespace
}  // namespace lenswire::test
