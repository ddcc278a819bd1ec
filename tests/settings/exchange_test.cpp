// What all exchanges with a camera have in common: requests, answers, and each way to fail.
#include <arpa/inet.h>

#include <cinttypes>
#include <optional>
#include <regex>

#include "settings/exchanges.h"
#include "settings/settings.h"

namespace lenswire::test {
namespace {

using testing::HasSubstr;

const std::string kReleasedNothing = line("prv_destroy_msg", "input param error ");

std::string undelivered(uint32_t ip) {
    return line("Prv_Send_Cmd",
                std::string(" Private_Protocol_CMDDelivery failed,\tk=0,ip=") + inet_ntoa(in_addr{ip}));
}

// The low bits of a number as printf shows them.
std::string hex(uint64_t number, int bits) {
    char text[32];
    snprintf(text, sizeof text, "%" PRIx64, bits == 32 ? number & 0xFFFFFFFF : number);
    return text;
}

// Both streams: an operation writes to one or the other.
std::string printed(const Capture& capture) {
    return unnumbered(capture.out()) + unnumbered(capture.err());
}

// The caller's buffer with a guard behind it.
class Out {
  public:
    explicit Out(size_t size) : bytes_(repeated('u', size + 8)) {}
    uint8_t* data() { return bytes_.data(); }
    Bytes content() const { return slice(bytes_, 0, bytes_.size() - 8); }
    bool untouched() const { return bytes_ == repeated('u', bytes_.size()); }
    bool guard_stands() const { return slice(bytes_, bytes_.size() - 8, 8) == repeated('u', 8); }

  private:
    Bytes bytes_;
};

// What the slot's payload area holds before an answer: the request, zeros behind it.
Bytes before_an_answer(const Get& get) {
    Bytes payload = get.built_apart ? Bytes() : get.request.payload;
    payload.resize(4064);
    return payload;
}

using Gets = SettingsTest;
using Sets = SettingsTest;

TEST_F(Gets, CopyTheAnswer) {
    for (const Get& get : all_gets()) {
        if (get.copied == 0) continue;
        SCOPED_TRACE(get.name);
        Out out(get.copied);
        Message answer = command(get.code, pattern(get.copied, get.code));
        answer.flag = get.bad_flag.empty() ? 1 : 0;
        const int allocations = host().allocations();
        EXPECT_EQ(runs([&] { return get.call(ip(), out.data()); }, {answer}).result, 0);
        EXPECT_EQ(out.content(), answer.payload);
        EXPECT_TRUE(out.guard_stands());
        EXPECT_EQ(host().allocations(), allocations + 1);
    }
}

TEST_F(Gets, FillUpShortAnswersWithWhatTheBufferHeldAndCutLongOnes) {
    for (const Get& get : all_gets()) {
        if (get.copied == 0) continue;
        SCOPED_TRACE(get.name);
        for (size_t length : {size_t{0}, size_t{1}, get.copied - 1, get.copied + 1, size_t{4064}}) {
            Out out(get.copied);
            const Bytes payload = pattern(length, get.code + 1u);
            EXPECT_EQ(runs([&] { return get.call(ip(), out.data()); }, {command(get.code, payload)}).result,
                      0);
            Bytes expected = before_an_answer(get);
            std::copy(payload.begin(), payload.end(), expected.begin());
            EXPECT_EQ(out.content(), slice(expected, 0, get.copied)) << length;
            EXPECT_TRUE(out.guard_stands());
        }
    }
}

// A way for a get to fail, and what it does on the way.
struct Failure {
    const char* name;
    std::string Get::*text;   // its own line; the case is left out where there is none
    std::string before = "";  // a line of the layers below
    Message answer = {};      // if it has a payload
    size_t sends = 0;
    size_t waits = 0;
    size_t slots_tried = 0;  // a second apart
    std::function<void(Timewarp&)> comes = [](Timewarp&) {};
};

std::string expected_text(const Get& get, const Failure& failure, Out& out) {
    const auto at = reinterpret_cast<uintptr_t>(out.data());
    std::string text = std::regex_replace(get.*failure.text, std::regex("OUT32"), hex(at, 32));
    text = std::regex_replace(text, std::regex("OUT"), "0x" + hex(at, 64));
    if (failure.text != &Get::no_slot) return text.empty() ? text : failure.before + text;
    // Nothing is given back, either; the operation's line may come on standard error.
    return failure.before + (text[0] == '[' ? kReleasedNothing + text : text + kReleasedNothing);
}

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
        {"an error", &Get::no_answer, "", command(0, pattern(1728), 1), 1},
        {"a flag", &Get::bad_flag, "", flagged, 1},
        {"silence", &Get::no_answer, "", {}, 1, 1},
        {"no clock", &Get::no_answer, "", {}, 1, 0, 0, [](Timewarp& warp) { warp.clock_fails = true; }},
        {"no memory", &Get::no_slot, no_memory, {}, 0, 0, 0, [](Timewarp&) { host().refuses_allocation(1); }},
        {"no address", &Get::refused},
        {"a full table", &Get::no_slot, full, {}, 0, 0, 5, takes_all},
        {"no client", &Get::not_sent, undelivered(ip()), {}, 0, 0, 0, loses},
    };
    for (const Failure& failure : failures) {
        for (const Get& get : all_gets()) {
            SCOPED_TRACE(get.name + ": " + failure.name);
            Out out(get.room());
            const std::string expected = expected_text(get, failure, out);
            if (expected.empty()) continue;
            Capture capture;
            Timewarp warp;
            failure.comes(warp);
            const uint32_t address = failure.text == &Get::refused ? 0 : ip();
            Message answer = failure.answer;
            answer.command = get.code;
            const auto call = [&] { return get.call(address, out.data()); };
            const auto [result, requests] =
                answer.payload.empty() ? sends(call, failure.sends) : runs(call, {answer});
            for (const Message& request : requests) EXPECT_EQ(request.bytes(), get.request.bytes());
            EXPECT_EQ(result, get.failure);
            EXPECT_EQ(printed(capture), expected);
            EXPECT_EQ(warp.waited_s, std::vector<int>(failure.waits, get.wait_s));
            EXPECT_EQ(warp.slept_us, std::vector<long>(10 * failure.slots_tried, 100000));
            EXPECT_TRUE(out.untouched());
        }
    }
}

// -- Channels out of their range and missing arguments: one line in the name of the operation, nothing else.

struct Refusal {
    const char* operation;
    std::function<int()> call;
};
#define REFUSES(operation, ...)                            \
    {                                                      \
#operation, [&] { return operation(__VA_ARGS__); } \
    }

TEST_F(Gets, RefuseChannelsOutOfTheirRangeAndMissingArgumentsWithoutTakingASlot) {
    Bytes buffer(4096);
    uint8_t* out = buffer.data();
    const HostCameraRecord camera{};
    const uint32_t ip = this->ip();
    const Refusal refusals[] = {
        REFUSES(Prv_GetIPCImageProperty, -1, ip, out),
        REFUSES(Prv_GetIPCImageProperty, 1, ip, nullptr),
        REFUSES(Prv_GetIPCNetworkProperty, -1, ip, out),
        REFUSES(Prv_GetIPCNetworkProperty, 1, ip, nullptr),
        REFUSES(Prv_GetIPCOSD, -1, ip, out),
        REFUSES(Prv_GetIPCOSD, 1, ip, nullptr),
        REFUSES(Prv_GetWifiSignal, -1, ip, out),
        REFUSES(Prv_GetWifiSignal, 1, ip, nullptr),
        REFUSES(Prv_GetTimeProperty, -1, ip, out),
        REFUSES(Prv_GetTimeProperty, 1, ip, nullptr),
        REFUSES(Prv_GetIPCMtionDetetionConfigure, 65, ip, out),
        REFUSES(Prv_GetIPCMtionDetetionConfigure, UINT32_MAX, ip, out),
        REFUSES(Prv_GetIPCMtionDetetionConfigure, 1, ip, nullptr),
        REFUSES(Prv_GetVideoCover, 65, ip, out),
        REFUSES(Prv_GetVideoCover, UINT32_MAX, ip, out),
        REFUSES(Prv_GetVideoCover, 1, ip, nullptr),
        REFUSES(Private_PTZ_GET_Property, ip, nullptr),
        REFUSES(Private_Fish_Protocol_EYE_PROPERTY, -1, ip, out),
        REFUSES(Private_Fish_Protocol_EYE_PROPERTY, 1, ip, nullptr),
        REFUSES(Private_Fish_Protocol_EYE_PROPERTY0, -1, "127.0.0.1", 1, out),
        REFUSES(Private_Fish_Protocol_EYE_PROPERTY0, 1, nullptr, 1, out),
        REFUSES(Private_Fish_Protocol_EYE_PROPERTY0, 1, "127.0.0.1", 1, nullptr),
        REFUSES(Private_Protocol_GetEncodingScope, -1, ip, out),
        REFUSES(Private_Protocol_GetEncodingScope, 1, ip, nullptr),
        REFUSES(Private_Protocol_GetEncodingPropert, -1, ip, out, out),
        REFUSES(Private_Protocol_GetEncodingPropert, 1, 0, out, out),
        REFUSES(Private_Protocol_GetEncodingPropert, 1, ip, nullptr, out),
        REFUSES(Private_Protocol_GetEncodingPropert, 1, ip, out, nullptr),
        REFUSES(Prv_Get_IPC_PropertyParam, kChannel, nullptr),
        REFUSES(Process_EncodingType, nullptr, out),
        REFUSES(Process_EncodingType, out, nullptr),
        REFUSES(Prv_SetIPCTimeAndDate, nullptr),
        REFUSES(Prv_TimInfoPacket, nullptr, 0),
        REFUSES(Private_SetPreset, kChannel, nullptr),
        REFUSES(Private_RecallPreset, kChannel, nullptr),
        REFUSES(Private_ChangeCruiseLineParam, 0, 0, nullptr),
        REFUSES(Private_ChangeCruiseParamToDB, 0, nullptr),
        REFUSES(Private_ChangeCruiseParamToMemory, 0, nullptr),
        REFUSES(Private_GetPtzCruiseAllPreset, 0, nullptr),
        REFUSES(Private_SetPtzCruiseAllPreset, 0, nullptr, 1),
        REFUSES(Prv_IPCTriggingMtionDetetion, nullptr, ip),
        REFUSES(Prv_IPCTriggingMtionDetetion, out, 0),
        REFUSES(Prv_CloseMD, kChannel, 0),
        REFUSES(cmd_packet, nullptr, 1, 1, 1),
        REFUSES(cmd_packet, out, -1, 1, 1),
        REFUSES(cmd_packet, out, 1, -1, 1),
        REFUSES(cmd_packet, out, 1, 1, -1),
        REFUSES(prv_set_alarm_property_ex, nullptr, out, 20),
        REFUSES(prv_set_alarm_property_ex, "127.0.0.1", nullptr, 20),
        REFUSES(GetFishType, nullptr, 1, 0, 0),
        REFUSES(GetFiashEve, nullptr, out, out),
        REFUSES(GetFiashEve, &camera, nullptr, out),
        REFUSES(GetFiashEve, &camera, out, nullptr),
    };
    const int allocations = host().allocations();
    for (const Refusal& refusal : refusals) {
        Capture capture;
        EXPECT_EQ(refusal.call(), -1);
        const std::string text = printed(capture);
        EXPECT_THAT(text, testing::AllOf(HasSubstr(refusal.operation), HasSubstr("error")));
        EXPECT_EQ(occurrences(text, "PRI_LOG ") + occurrences(text, "[src"), 1) << text;
    }
    EXPECT_EQ(buffer, Bytes(4096));
    EXPECT_EQ(host().allocations(), allocations);
    EXPECT_FALSE(camera_was_asked());
}

TEST_F(Sets, SendTheRecordAsItIsOrSayWhyNot) {
    for (const bool connected : {true, false}) {
        if (!connected) loses_camera();
        for (const Set& set : all_sets()) {
            SCOPED_TRACE(set.name);
            const Bytes record = pattern(set.number * set.size, set.code);
            const std::string refused = line(set.name, set.refused);
            const std::string not_sent = undelivered(ip()) + line(set.name, set.not_sent);
            Message expected = announcing(set.code, {set.number, set.size}, record);
            expected.login_id = kLoginId;
            Capture capture;
            EXPECT_EQ(set.call(0, record.data()), -1);
            EXPECT_EQ(set.call(ip(), nullptr), -1);
            const auto [result, requests] =
                sends([&] { return set.call(ip(), record.data()); }, connected ? 1 : 0);
            EXPECT_EQ(result, connected ? 0 : -1);
            EXPECT_EQ(printed(capture), refused + refused + (connected ? "" : not_sent));
            for (const Message& request : requests) EXPECT_EQ(request.bytes(), expected.bytes());
        }
    }
    EXPECT_EQ(host().calls(Service::kMalloc), 0);
}

// -- Delivery with the configuration layer's attempts.

TEST_F(Sets, DeliveryCountsItsAttempts) {
    Bytes message = command(0x1005, pattern(36)).bytes();
    const struct {
        uint32_t ip;
        void* data;
        int attempts;
        int result;
        bool sent;
        std::string line;
    } cases[] = {
        {ip(), message.data(), 20, 0, true, ""},
        {ip(), message.data(), 1, 0, true, ""},
        {ip(), message.data(), 0, -1, true, undelivered(ip())},
        {ip(), message.data(), -1, -1, false, line("Prv_Send_Cmd", "input paramer error")},
        {0, message.data(), 20, -1, false, line("Prv_Send_Cmd", "input paramer error")},
        {ip(), nullptr, 20, -1, false, line("Prv_Send_Cmd", "input paramer error")},
        {0x0909097F, message.data(), 20, -1, false, undelivered(0x0909097F)},
    };
    for (const auto& row : cases) {
        Capture capture;
        EXPECT_EQ(Prv_Send_Cmd(row.ip, row.data, row.data, row.attempts), row.result);
        EXPECT_EQ(printed(capture), row.line);
        if (row.sent) {
            EXPECT_EQ(wire_.reads_command().payload, pattern(36));
        }
        EXPECT_FALSE(camera_was_asked());
    }
}

}  // namespace
}  // namespace lenswire::test
