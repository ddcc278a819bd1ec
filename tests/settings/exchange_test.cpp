// Every exchange with a camera, a row each: what goes out, what comes back, and how each failure reads.
#include <atomic>
#include <thread>

#include "settings/settings.h"

namespace lenswire::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What an operation prints in its failures, line ends and all.
struct Lines {
    std::string no_slot;
    std::string not_sent;
    std::string no_answer;
};

// A get, called for channel 0x105 where it takes one; its low byte is what cameras see.
struct Get {
    const char* operation;
    std::function<int(uint32_t ip, uint8_t* out)> call;
    uint16_t code;
    uint32_t number;
    uint32_t size;
    Bytes request;    // the first payload bytes, the others are zero
    size_t out_size;  // copied from the answer
    int wait_s;
    Lines lines;
    std::string refused;  // what it prints without an address
    int failure = -1;
};

constexpr int kSome = 0x105;

std::string hex(uint16_t code) {
    char text[8];
    snprintf(text, sizeof text, "%x", code);
    return text;
}

// The usual lines, with the command code in the last or without.
[[maybe_unused]] Lines coded(const char* operation, uint16_t code) {
    return {line(operation, "cond init failed"), line(operation, " Prv_Send_Cmd failed"),
            line(operation, "get cond and property failed pCmd->usCmd =" + hex(code))};
}
Lines plain(const char* operation) {
    return {line(operation, "cond init failed"), line(operation, " Prv_Send_Cmd failed"),
            line(operation, "get cond and property failed")};
}

const Get kGets[] = {
    {"Prv_GetIPCMtionDetetionConfigure",
     [](uint32_t ip, uint8_t* out) { return Prv_GetIPCMtionDetetionConfigure(64, ip, out); },
     0x100A,
     1,
     168,
     {64},
     168,
     10,
     plain("Prv_GetIPCMtionDetetionConfigure"),
     line("Prv_GetIPCMtionDetetionConfigure", "parameter pass error! ip=0,outMotionProperty=OUT,channel=64")},
};

// A set; its record is wire_size bytes of payload as they stand.
struct Set {
    const char* operation;
    std::function<int(uint32_t ip, const uint8_t* record)> call;
    uint16_t code;
    uint32_t number;
    uint32_t size;
    std::string refused = "input paramers error";
    std::string not_sent = " Prv_Send_Cmd failed";
};

const Set kSets[] = {
    {"Prv_SetIPCMtionDetetionConfigure", Prv_SetIPCMtionDetetionConfigure, 0x100B, 1, 168},
};

const std::string kReleasedNothing = line("prv_destroy_msg", "input param error ");

std::string undelivered(uint32_t ip) {
    const Bytes octets = {static_cast<uint8_t>(ip), static_cast<uint8_t>(ip >> 8),
                          static_cast<uint8_t>(ip >> 16), static_cast<uint8_t>(ip >> 24)};
    return line("Prv_Send_Cmd", " Private_Protocol_CMDDelivery failed,\tk=0,ip=" + std::to_string(octets[0]) +
                                    "." + std::to_string(octets[1]) + "." + std::to_string(octets[2]) + "." +
                                    std::to_string(octets[3]));
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
    Bytes payload = get.request;
    payload.resize(4064);
    return payload;
}

using Gets = SettingsTest;
using Sets = SettingsTest;

TEST_F(Gets, SendTheirRequestAndCopyTheAnswer) {
    for (const Get& get : kGets) {
        SCOPED_TRACE(get.operation);
        Out out(get.out_size);
        const Message answer = command(get.code, pattern(get.out_size, get.code));
        const auto [result, requests] = runs([&] { return get.call(ip(), out.data()); }, {answer});
        EXPECT_EQ(result, 0);
        Message expected = claiming(get.code, get.number, get.size, get.request);
        expected.login_id = kLoginId;
        expected.payload.resize(get.number * get.size);
        EXPECT_EQ(requests[0].bytes(), expected.bytes());
        EXPECT_EQ(out.content(), answer.payload);
        EXPECT_TRUE(out.guard_stands());
    }
}

TEST_F(Gets, FillUpShortAnswersWithWhatTheBufferHeldAndCutLongOnes) {
    for (const Get& get : kGets) {
        SCOPED_TRACE(get.operation);
        for (size_t length : {size_t{0}, size_t{1}, get.out_size - 1, get.out_size + 1, size_t{4064}}) {
            Out out(get.out_size);
            const Bytes payload = pattern(length, get.code + 1u);
            EXPECT_EQ(runs([&] { return get.call(ip(), out.data()); }, {command(get.code, payload)}).result,
                      0);
            Bytes expected = before_an_answer(get);
            std::copy(payload.begin(), payload.end(), expected.begin());
            EXPECT_EQ(out.content(), slice(expected, 0, get.out_size)) << length;
            EXPECT_TRUE(out.guard_stands());
        }
    }
}

TEST_F(Gets, FailAtOnceWhenTheCameraAnswersWithAnError) {
    for (const Get& get : kGets) {
        SCOPED_TRACE(get.operation);
        Out out(get.out_size);
        Capture capture;
        const Message refusal = command(get.code, pattern(get.out_size), 1);
        EXPECT_EQ(runs([&] { return get.call(ip(), out.data()); }, {refusal}).result, get.failure);
        EXPECT_EQ(printed(capture), get.lines.no_answer);
        EXPECT_TRUE(out.untouched());
    }
}

TEST_F(Gets, GiveUpOnASilentCameraAfterTheirTime) {
    for (const Get& get : kGets) {
        SCOPED_TRACE(get.operation);
        Out out(get.out_size);
        Capture capture;
        const Timewarp warp;
        EXPECT_EQ(get.call(ip(), out.data()), get.failure);
        EXPECT_THAT(warp.waited_s, ElementsAre(get.wait_s));
        EXPECT_EQ(printed(capture), get.lines.no_answer);
        EXPECT_TRUE(out.untouched());
        wire_.reads_command();
    }
}

TEST_F(Gets, FailWithoutAClient) {
    loses_camera();
    for (const Get& get : kGets) {
        SCOPED_TRACE(get.operation);
        Out out(get.out_size);
        Capture capture;
        EXPECT_EQ(get.call(ip(), out.data()), get.failure);
        EXPECT_EQ(printed(capture), undelivered(ip()) + get.lines.not_sent);
        EXPECT_TRUE(out.untouched());
    }
}

TEST_F(Gets, FailWithoutMemoryAndSendNothing) {
    for (const Get& get : kGets) {
        SCOPED_TRACE(get.operation);
        Out out(get.out_size);
        Capture capture;
        host().refuses_allocation(1);
        EXPECT_EQ(get.call(ip(), out.data()), get.failure);
        EXPECT_EQ(unnumbered(capture.out()) + unnumbered(capture.err()),
                  line("Init_Cond_Msg", "MeMalloc failed \n") + (capture.err().empty()
                                                                     ? get.lines.no_slot + kReleasedNothing
                                                                     : kReleasedNothing + get.lines.no_slot));
        EXPECT_TRUE(out.untouched());
        EXPECT_FALSE(camera_was_asked());
    }
}

TEST_F(Gets, WaitForAFullTableFiveTimesASecond) {
    std::vector<RecvSendSlot*> taken;
    while (taken.size() < 128) taken.push_back(Init_Cond_Msg(0x7777, 0, ip()));
    for (const Get& get : kGets) {
        SCOPED_TRACE(get.operation);
        Out out(get.out_size);
        Capture capture;
        const Timewarp warp;
        EXPECT_EQ(get.call(ip(), out.data()), get.failure);
        EXPECT_EQ(warp.slept_us, std::vector<long>(5, 1000000));
        EXPECT_THAT(printed(capture), testing::HasSubstr(get.lines.no_slot));
        EXPECT_TRUE(out.untouched());
    }
    EXPECT_FALSE(camera_was_asked());
    for (RecvSendSlot* slot : taken) prv_destroy_msg(slot);
}

TEST_F(Gets, RefuseBadArgumentsBeforeTheyTakeASlot) {
    for (const Get& get : kGets) {
        SCOPED_TRACE(get.operation);
        Out out(get.out_size);
        char where[32];
        snprintf(where, sizeof where, "%p", static_cast<void*>(out.data()));
        std::string refused = get.refused;
        if (const size_t at = refused.find("OUT"); at != std::string::npos) refused.replace(at, 3, where);
        if (refused.empty()) continue;
        Capture capture;
        EXPECT_EQ(get.call(0, out.data()), get.failure);
        EXPECT_EQ(printed(capture), refused);
        EXPECT_TRUE(out.untouched());
    }
    EXPECT_EQ(host().calls(Service::kMalloc), 0);
    EXPECT_FALSE(camera_was_asked());
}

TEST_F(Gets, RefuseChannelsOutOfTheirRangeAndAMissingBuffer) {
    Bytes buffer(4096);
    uint8_t* out = buffer.data();
    Capture capture;
    EXPECT_EQ(Prv_GetIPCMtionDetetionConfigure(65, ip(), out), -1);
    EXPECT_EQ(Prv_GetIPCMtionDetetionConfigure(UINT32_MAX, ip(), out), -1);
    EXPECT_EQ(Prv_GetIPCMtionDetetionConfigure(1, ip(), nullptr), -1);
    EXPECT_EQ(occurrences(capture.out(), "parameter pass error!"), 3);
    EXPECT_EQ(host().calls(Service::kMalloc), 0);
    EXPECT_FALSE(camera_was_asked());
}

// Late answers to requests that nobody waits for any more land in whatever slot is taken for the same
// command; none may show in what goes out.
TEST_F(Gets, SendRequestsThatLateAnswersCannotTear) {
    constexpr int kRounds = 200;
    const Get& get = kGets[0];
    std::atomic<bool> over{false};
    Capture quiet;
    const std::future<void> late = std::async(std::launch::async, [&] {
        Bytes answer = command(get.code, repeated(0xEE, 4064)).bytes();
        while (!over) Private_Protocol_RecvProcess(answer.data(), ip());
    });
    const std::future<int> asking = starts([&] {
        int done = 0;
        for (int i = 0; i < kRounds; ++i) {
            Out out(get.out_size);
            done += get.call(ip(), out.data()) == 0;
        }
        return done;
    });
    Message expected = claiming(get.code, get.number, get.size, get.request);
    expected.login_id = kLoginId;
    expected.payload.resize(get.number * get.size);
    int torn = 0;
    for (int i = 0; i < kRounds; ++i) torn += wire_.reads_command().bytes() != expected.bytes();
    asking.wait();
    over = true;
    late.wait();
    EXPECT_EQ(torn, 0);
}

TEST_F(Sets, SendTheRecordAsItIs) {
    for (const Set& set : kSets) {
        SCOPED_TRACE(set.operation);
        const Bytes record = pattern(set.number * set.size, set.code);
        const auto [result, requests] = sends([&] { return set.call(ip(), record.data()); });
        EXPECT_EQ(result, 0);
        Message expected = claiming(set.code, set.number, set.size, record);
        expected.login_id = kLoginId;
        EXPECT_EQ(requests[0].bytes(), expected.bytes());
    }
    EXPECT_EQ(host().calls(Service::kMalloc), 0);
}

TEST_F(Sets, RefuseBadArguments) {
    for (const Set& set : kSets) {
        SCOPED_TRACE(set.operation);
        const Bytes record = pattern(set.number * set.size);
        Capture capture;
        EXPECT_EQ(set.call(0, record.data()), -1);
        EXPECT_EQ(set.call(ip(), nullptr), -1);
        EXPECT_EQ(printed(capture), line(set.operation, set.refused) + line(set.operation, set.refused));
    }
    EXPECT_FALSE(camera_was_asked());
}

TEST_F(Sets, FailWithoutAClient) {
    loses_camera();
    for (const Set& set : kSets) {
        SCOPED_TRACE(set.operation);
        const Bytes record = pattern(set.number * set.size);
        Capture capture;
        EXPECT_EQ(set.call(ip(), record.data()), -1);
        EXPECT_EQ(printed(capture), undelivered(ip()) + line(set.operation, set.not_sent));
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
