// What all exchanges with a camera have in common: requests, answers, and each way to fail.
#include <arpa/inet.h>

#include <cinttypes>
#include <regex>

#include "settings/exchanges.h"
#include "settings/settings.h"

namespace lenswire::test {
namespace {

using testing::ElementsAre;

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
    Bytes payload = get.request.payload;
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
        const Message answer = command(get.code, pattern(get.copied, get.code));
        const int allocations = host().allocations();
        EXPECT_EQ(runs([&] { return get.call(ip(), out.data()); }, {answer}).result, 0);
        EXPECT_EQ(out.content(), answer.payload);
        EXPECT_TRUE(out.guard_stands());
        EXPECT_EQ(host().allocations(), allocations + 1);
    }
}

TEST_F(Gets, LookAtTheFlagOfAnAnswerWhereTheyShould) {
    for (const Get& get : all_gets()) {
        if (get.copied == 0 && get.bad_flag.empty()) continue;
        SCOPED_TRACE(get.name);
        Out out(get.room());
        Message answer = command(get.code, pattern(get.room(), get.code));
        answer.flag = 1;
        Capture capture;
        EXPECT_EQ(runs([&] { return get.call(ip(), out.data()); }, {answer}).result,
                  get.bad_flag.empty() ? 0 : get.failure);
        EXPECT_EQ(printed(capture), get.bad_flag);
        EXPECT_EQ(out.untouched(), !get.bad_flag.empty());
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

TEST_F(Gets, SendTheirRequestAndFailAtOnceWhenTheAnswerIsAnError) {
    for (const Get& get : all_gets()) {
        SCOPED_TRACE(get.name);
        Out out(get.room());
        Capture capture;
        const auto [result, requests] =
            runs([&] { return get.call(ip(), out.data()); }, {command(get.code, pattern(get.room()), 1)});
        EXPECT_EQ(requests[0].bytes(), get.request.bytes());
        EXPECT_EQ(result, get.failure);
        EXPECT_EQ(printed(capture), get.no_answer);
        EXPECT_TRUE(out.untouched());
    }
}

TEST_F(Gets, GiveUpOnASilentCameraAfterTheirTime) {
    for (const Get& get : all_gets()) {
        SCOPED_TRACE(get.name);
        Out out(get.room());
        Capture capture;
        const Timewarp warp;
        EXPECT_EQ(get.call(ip(), out.data()), get.failure);
        EXPECT_THAT(warp.waited_s, ElementsAre(get.wait_s));
        EXPECT_EQ(printed(capture), get.no_answer);
        EXPECT_TRUE(out.untouched());
        wire_.reads_command();
    }
}

TEST_F(Gets, FailWithoutAClient) {
    loses_camera();
    for (const Get& get : all_gets()) {
        SCOPED_TRACE(get.name);
        Out out(get.room());
        Capture capture;
        EXPECT_EQ(get.call(ip(), out.data()), get.failure);
        EXPECT_EQ(printed(capture), undelivered(ip()) + get.not_sent);
        EXPECT_TRUE(out.untouched());
    }
}

TEST_F(Gets, FailWithoutMemoryAndSendNothing) {
    for (const Get& get : all_gets()) {
        SCOPED_TRACE(get.name);
        Out out(get.room());
        Capture capture;
        host().refuses_allocation(1);
        EXPECT_EQ(get.call(ip(), out.data()), get.failure);
        EXPECT_EQ(
            unnumbered(capture.out()) + unnumbered(capture.err()),
            line("Init_Cond_Msg", "MeMalloc failed \n") +
                (capture.err().empty() ? get.no_slot + kReleasedNothing : kReleasedNothing + get.no_slot));
        EXPECT_TRUE(out.untouched());
        EXPECT_FALSE(camera_was_asked());
    }
}

TEST_F(Gets, WaitForAFullTableFiveTimesASecond) {
    std::vector<RecvSendSlot*> taken;
    while (taken.size() < 128) taken.push_back(Init_Cond_Msg(0x7777, 0, ip()));
    for (const Get& get : all_gets()) {
        SCOPED_TRACE(get.name);
        Out out(get.room());
        Capture capture;
        const Timewarp warp;
        EXPECT_EQ(get.call(ip(), out.data()), get.failure);
        EXPECT_EQ(warp.slept_us, std::vector<long>(5, 1000000));
        EXPECT_THAT(printed(capture), testing::HasSubstr(get.no_slot));
        EXPECT_TRUE(out.untouched());
    }
    EXPECT_FALSE(camera_was_asked());
    for (RecvSendSlot* slot : taken) prv_destroy_msg(slot);
}

TEST_F(Gets, RefuseAMissingAddressAndSendNothing) {
    for (const Get& get : all_gets()) {
        if (get.refused.empty()) continue;
        SCOPED_TRACE(get.name);
        Out out(get.room());
        const std::string refused =
            std::regex_replace(std::regex_replace(get.refused, std::regex("OUT32"),
                                                  hex(reinterpret_cast<uintptr_t>(out.data()), 32)),
                               std::regex("OUT"), "0x" + hex(reinterpret_cast<uintptr_t>(out.data()), 64));
        Capture capture;
        EXPECT_EQ(get.call(0, out.data()), get.failure);
        EXPECT_EQ(printed(capture), refused);
        EXPECT_TRUE(out.untouched());
    }
    EXPECT_FALSE(camera_was_asked());
}

TEST_F(Gets, RefuseChannelsOutOfTheirRangeAndMissingBuffersWithoutTakingASlot) {
    Bytes buffer(4096);
    uint8_t* out = buffer.data();
    const std::vector<std::function<int()>> calls = {
        [&] { return Prv_GetIPCImageProperty(-1, ip(), out); },
        [&] { return Prv_GetIPCImageProperty(1, ip(), nullptr); },
        [&] { return Prv_GetIPCNetworkProperty(-1, ip(), out); },
        [&] { return Prv_GetIPCNetworkProperty(1, ip(), nullptr); },
        [&] { return Prv_GetIPCOSD(-1, ip(), out); },
        [&] { return Prv_GetIPCOSD(1, ip(), nullptr); },
        [&] { return Prv_GetWifiSignal(-1, ip(), out); },
        [&] { return Prv_GetWifiSignal(1, ip(), nullptr); },
        [&] { return Prv_GetTimeProperty(-1, ip(), out); },
        [&] { return Prv_GetTimeProperty(1, ip(), nullptr); },
        [&] { return Prv_GetIPCMtionDetetionConfigure(65, ip(), out); },
        [&] { return Prv_GetIPCMtionDetetionConfigure(UINT32_MAX, ip(), out); },
        [&] { return Prv_GetIPCMtionDetetionConfigure(1, ip(), nullptr); },
        [&] { return Prv_GetVideoCover(65, ip(), out); },
        [&] { return Prv_GetVideoCover(UINT32_MAX, ip(), out); },
        [&] { return Prv_GetVideoCover(1, ip(), nullptr); },
        [&] { return Private_PTZ_GET_Property(ip(), nullptr); },
        [&] { return Private_Fish_Protocol_EYE_PROPERTY(-1, ip(), out); },
        [&] { return Private_Fish_Protocol_EYE_PROPERTY(1, ip(), nullptr); },
        [&] { return Private_Protocol_GetEncodingScope(-1, ip(), out); },
        [&] { return Private_Protocol_GetEncodingScope(1, ip(), nullptr); },
        [&] { return Private_Protocol_GetEncodingPropert(-1, ip(), out, out); },
        [&] { return Private_Protocol_GetEncodingPropert(1, 0, out, out); },
        [&] { return Private_Protocol_GetEncodingPropert(1, ip(), nullptr, out); },
        [&] { return Private_Protocol_GetEncodingPropert(1, ip(), out, nullptr); },
    };
    Capture capture;
    for (size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(calls[i](), -1) << i;
    EXPECT_EQ(occurrences(capture.out(), "parameter pass error!"), static_cast<int>(calls.size()));
    EXPECT_EQ(host().calls(Service::kMalloc), 0);
    EXPECT_FALSE(camera_was_asked());
}

TEST_F(Sets, SendTheRecordAsItIs) {
    for (const Set& set : all_sets()) {
        SCOPED_TRACE(set.name);
        const Bytes record = pattern(set.number * set.size, set.code);
        const auto [result, requests] = sends([&] { return set.call(ip(), record.data()); });
        EXPECT_EQ(result, 0);
        Message expected = announcing(set.code, {set.number, set.size}, record);
        expected.login_id = kLoginId;
        EXPECT_EQ(requests[0].bytes(), expected.bytes());
    }
    EXPECT_EQ(host().calls(Service::kMalloc), 0);
}

TEST_F(Sets, RefuseBadArguments) {
    for (const Set& set : all_sets()) {
        SCOPED_TRACE(set.name);
        const Bytes record = pattern(set.number * set.size);
        Capture capture;
        EXPECT_EQ(set.call(0, record.data()), -1);
        EXPECT_EQ(set.call(ip(), nullptr), -1);
        EXPECT_EQ(printed(capture), line(set.name, set.refused) + line(set.name, set.refused));
    }
    EXPECT_FALSE(camera_was_asked());
}

TEST_F(Sets, FailWithoutAClient) {
    loses_camera();
    for (const Set& set : all_sets()) {
        SCOPED_TRACE(set.name);
        const Bytes record = pattern(set.number * set.size);
        Capture capture;
        EXPECT_EQ(set.call(ip(), record.data()), -1);
        EXPECT_EQ(printed(capture), undelivered(ip()) + line(set.name, set.not_sent));
    }
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
