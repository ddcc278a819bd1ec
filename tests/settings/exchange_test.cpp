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
    std::string bad_flag;  // empty: the flag of an answer is not looked at
};

// A get, called for channel 0x105 where it takes one; its low byte is what cameras see. Those that find
// the camera by themselves do so through kChannel.
struct Get {
    const char* operation;
    std::function<int(uint32_t ip, uint8_t* out)> call;
    uint16_t code;
    uint32_t number;
    uint32_t size;
    Bytes request;    // the first payload bytes, the others are zero
    size_t out_size;  // copied from the answer as they stand; 0 when more is done with it
    int wait_s;
    Lines lines;
    std::string refused = "";  // what it prints without an address; empty: it looks the address up
    int failure = -1;
};

constexpr int kSome = 0x105;

std::string hex(uint16_t code) {
    char text[8];
    snprintf(text, sizeof text, "%x", code);
    return text;
}

// The usual lines, with the command code in the third or without.
Lines plain(const char* operation) {
    return {line(operation, "cond init failed"), line(operation, " Prv_Send_Cmd failed"),
            line(operation, "get cond and property failed"), ""};
}
Lines coded(const char* operation, uint16_t code) {
    Lines lines = plain(operation);
    lines.no_answer = line(operation, "get cond and property failed pCmd->usCmd =" + hex(code));
    return lines;
}
Lines naming_channel(const char* operation, uint16_t code) {
    Lines lines = coded(operation, code);
    lines.not_sent = line(operation, " Prv_Send_Cmd failed channel : 261\n");
    return lines;
}
Lines checking(const char* operation, uint16_t code) {
    Lines lines = coded(operation, code);
    lines.bad_flag = line(operation, "ulBufferNum =1 ulFlag=1  ERROR");
    return lines;
}
Lines with_blank_lines(Lines lines) {
    for (std::string* each : {&lines.no_slot, &lines.not_sent, &lines.no_answer, &lines.bad_flag})
        *each += "\n";
    return lines;
}
Lines on_error_output(const char* operation, uint16_t code) {
    return {error(operation, "cond init failed"), error(operation, "Prv_Send_Cmd failed"),
            error(operation, "get cond and property failed pCmd->usCmd =" + hex(code)),
            error(operation, "ulBufferNum =1 ulFlag=1\tERROR")};
}

std::string pass_error(const char* operation) {
    return line(operation, "parameter pass error!");
}

const Get kGets[] = {
    {"Prv_GetIPCImageProperty",
     [](uint32_t ip, uint8_t* out) { return Prv_GetIPCImageProperty(kSome, ip, out); },
     0x1004,
     1,
     36,
     {5, 0x33},
     36,
     10,
     coded("Prv_GetIPCImageProperty", 0x1004),
     pass_error("Prv_GetIPCImageProperty")},
    {"Prv_GetIPCNetworkProperty",
     [](uint32_t ip, uint8_t* out) { return Prv_GetIPCNetworkProperty(kSome, ip, out); },
     0x1006,
     1,
     118,
     {5},
     118,
     10,
     plain("Prv_GetIPCNetworkProperty"),
     pass_error("Prv_GetIPCNetworkProperty")},
    {"Prv_GetIPCOSD",
     [](uint32_t ip, uint8_t* out) { return Prv_GetIPCOSD(kSome, ip, out); },
     0x1023,
     1,
     228,
     {5},
     228,
     10,
     plain("Prv_GetIPCOSD"),
     pass_error("Prv_GetIPCOSD")},
    {"Prv_GetWifiSignal",
     [](uint32_t ip, uint8_t* out) { return Prv_GetWifiSignal(kSome, ip, out); },
     0x0035,
     1,
     626,
     {},
     626,
     10,
     coded("Prv_GetWifiSignal", 0x35),
     line("Prv_GetWifiSignal", "ip : 0 , channel : 261,inWifi : OUT32 parameter pass error!")},
    {"Prv_GetTimeProperty",
     [](uint32_t ip, uint8_t* out) { return Prv_GetTimeProperty(kSome, ip, out); },
     0x1000,
     0,
     212,
     {},
     212,
     10,
     plain("Prv_GetTimeProperty"),
     pass_error("Prv_GetTimeProperty")},
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
    {"Prv_GetVideoCover",
     [](uint32_t ip, uint8_t* out) { return Prv_GetVideoCover(64, ip, out); },
     0x1021,
     1,
     204,
     {64},
     204,
     10,
     plain("Prv_GetVideoCover"),
     line("Prv_GetVideoCover",
          "Prv_GetVideoCover parameter pass error! ip=0,outCoverProperty=OUT,channel=64")},
    {"Private_PTZ_GET_Property",
     Private_PTZ_GET_Property,
     0x1031,
     0,
     0,
     {},
     24,
     10,
     plain("Private_PTZ_GET_Property"),
     pass_error("Private_PTZ_GET_Property")},
    {"Private_Fish_Protocol_EYE_PROPERTY",
     [](uint32_t ip, uint8_t* out) { return Private_Fish_Protocol_EYE_PROPERTY(kSome, ip, out); },
     0x1063,
     1,
     64,
     {5},
     64,
     10,
     naming_channel("Private_Fish_Protocol_EYE_PROPERTY", 0x1063),
     pass_error("Private_Fish_Protocol_EYE_PROPERTY")},
    // The caller's record goes out; the guarded buffer is full of 'u'.
    {"Private_PTZ_CRUISE_GET",
     Private_PTZ_CRUISE_GET,
     0x0026,
     1,
     980,
     repeated('u', 980),
     980,
     10,
     {"cond init failed", " Prv_Send_Cmd failed", "get cond and property failed pCmd->usCmd =26", ""},
     "IP  error"},
    {"Prv_Get_IPC_PropertyParam",
     [](uint32_t, uint8_t* out) { return Prv_Get_IPC_PropertyParam(kChannel, out); },
     0x2012,
     1,
     1024,
     {},
     1024,
     3,
     on_error_output("Prv_Get_IPC_PropertyParam", 0x2012)},
    // Those that look into the answer.
    {"Private_Protocol_GetEncodingScope",
     [](uint32_t ip, uint8_t* out) { return Private_Protocol_GetEncodingScope(kSome, ip, out); },
     0x1102,
     1,
     1027,
     {5},
     0,
     4,
     naming_channel("Private_Protocol_GetEncodingScope", 0x1102),
     pass_error("Private_Protocol_GetEncodingScope")},
    {"Private_Protocol_GetStreamType",
     [](uint32_t, uint8_t*) { return static_cast<int>(Private_Protocol_GetStreamType(kChannel)); },
     0x1002,
     1,
     32,
     {0, 0x33},
     0,
     10,
     checking("Private_Protocol_GetStreamType", 0x1002),
     "",
     0},
    {"Private_Protocol_GetEncodingProperty",
     Private_Protocol_GetEncodingProperty,
     0x1002,
     1,
     32,
     {0, 0x33},
     0,
     4,
     checking("Private_Protocol_GetEncodingProperty", 0x1002),
     line("Private_Protocol_GetEncodingProperty", "IP  error")},
    {"Private_Protocol_GetEncodingProperty1",
     Private_Protocol_GetEncodingProperty1,
     0x1002,
     1,
     32,
     {0, 0x33},
     0,
     10,
     checking("Private_Protocol_GetEncodingProperty1", 0x1002),
     line("Prv_Send_Cmd", "input paramer error") +
         line("Private_Protocol_GetEncodingProperty1", " Prv_Send_Cmd failed")},
    {"Private_Fish_Protocol_GetEncodingProperty",
     [](uint32_t ip, uint8_t* out) { return Private_Fish_Protocol_GetEncodingProperty(kSome, ip, out); },
     0x1061,
     1,
     256,
     {5},
     0,
     4,
     checking("Private_Fish_Protocol_GetEncodingProperty", 0x1061),
     line("Private_Fish_Protocol_GetEncodingProperty", "IP  error")},
    {"Private_Protocol_GetPlatFormType",
     [](uint32_t, uint8_t*) { return Private_Protocol_GetPlatFormType(kChannel); },
     0x2003,
     1,
     464,
     {},
     0,
     10,
     with_blank_lines(checking("Private_Protocol_GetPlatFormType", 0x2003)),
     "",
     0},
};

// Room for whatever a get writes.
size_t room(const Get& get) {
    return get.out_size != 0 ? get.out_size : 1728;
}

// A set; its record is number x size bytes of payload as they stand.
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
    {"Prv_SetIPCImageProperty", Prv_SetIPCImageProperty, 0x1005, 1, 36},
    {"Prv_SetIPCOSD", Prv_SetIPCOSD, 0x1022, 1, 228},
    {"Prv_SetIPCTimeDate", Prv_SetIPCTimeDate, 0x1001, 1, 212},
    {"Prv_SetVideoCover",
     [](uint32_t ip, const uint8_t* record) { return Prv_SetVideoCover(-1, ip, record); }, 0x1020, 1, 204,
     "Prv_SetVideoCover input paramers error", "Prv_SetVideoCover Prv_Send_Cmd failed"},
    {"Prv_SetSmartIFrame",
     [](uint32_t ip, const uint8_t* record) { return Prv_SetSmartIFrame(-1, ip, record); }, 0x106D, 1, 512,
     "Prv_SetSmartIFrame input paramers error", "Prv_SetSmartIFrame Prv_Send_Cmd failed"},
    {"Private_PTZ_SET_Property", Private_PTZ_SET_Property, 0x1030, 1, 24, "IP  error"},
    {"Private_PTZ_OPTION", Private_PTZ_OPTION, 0x0020, 1, 20, "IP  error"},
    {"Private_PTZ_CRUISE", Private_PTZ_CRUISE, 0x0025, 1, 980, "IP  error"},
    {"Private_Protocol_SetEncodingProperty", Private_Protocol_SetEncodingProperty, 0x1003, 3, 32,
     "IP  error"},
    {"Private_Fish_Protocol_SetEncodingProperty", Private_Fish_Protocol_SetEncodingProperty, 0x1062, 3, 256,
     "IP  error"},
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
    Bytes payload = get.number == 0 ? Bytes() : get.request;
    payload.resize(4064);
    return payload;
}

Message request_of(const Get& get) {
    Message request = claiming(get.code, get.number, get.size, get.request);
    request.login_id = kLoginId;
    request.payload.resize(get.number * get.size);
    return request;
}

using Gets = SettingsTest;
using Sets = SettingsTest;

TEST_F(Gets, SendTheirRequest) {
    for (const Get& get : kGets) {
        SCOPED_TRACE(get.operation);
        Out out(room(get));
        Capture quiet;
        const auto requests =
            runs([&] { return get.call(ip(), out.data()); }, {command(get.code, {}, 1)}).requests;
        EXPECT_EQ(requests[0].bytes(), request_of(get).bytes());
    }
}

TEST_F(Gets, CopyTheAnswer) {
    for (const Get& get : kGets) {
        if (get.out_size == 0) continue;
        SCOPED_TRACE(get.operation);
        Out out(get.out_size);
        const Message answer = command(get.code, pattern(get.out_size, get.code));
        const int allocations = host().allocations();
        EXPECT_EQ(runs([&] { return get.call(ip(), out.data()); }, {answer}).result, 0);
        EXPECT_EQ(out.content(), answer.payload);
        EXPECT_TRUE(out.guard_stands());
        EXPECT_EQ(host().allocations(), allocations + 1);
    }
}

TEST_F(Gets, LookAtTheFlagOfAnAnswerWhereTheyShould) {
    for (const Get& get : kGets) {
        if (get.out_size == 0 && get.lines.bad_flag.empty()) continue;
        SCOPED_TRACE(get.operation);
        Out out(room(get));
        Message answer = command(get.code, pattern(room(get), get.code));
        answer.flag = 1;
        Capture capture;
        EXPECT_EQ(runs([&] { return get.call(ip(), out.data()); }, {answer}).result,
                  get.lines.bad_flag.empty() ? 0 : get.failure);
        EXPECT_EQ(printed(capture), get.lines.bad_flag);
        EXPECT_EQ(out.untouched(), !get.lines.bad_flag.empty());
    }
}

TEST_F(Gets, FillUpShortAnswersWithWhatTheBufferHeldAndCutLongOnes) {
    for (const Get& get : kGets) {
        if (get.out_size == 0) continue;
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
        Out out(room(get));
        Capture capture;
        const Message refusal = command(get.code, pattern(room(get)), 1);
        EXPECT_EQ(runs([&] { return get.call(ip(), out.data()); }, {refusal}).result, get.failure);
        EXPECT_EQ(printed(capture), get.lines.no_answer);
        EXPECT_TRUE(out.untouched());
    }
}

TEST_F(Gets, GiveUpOnASilentCameraAfterTheirTime) {
    for (const Get& get : kGets) {
        SCOPED_TRACE(get.operation);
        Out out(room(get));
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
        Out out(room(get));
        Capture capture;
        EXPECT_EQ(get.call(ip(), out.data()), get.failure);
        EXPECT_EQ(printed(capture), undelivered(ip()) + get.lines.not_sent);
        EXPECT_TRUE(out.untouched());
    }
}

TEST_F(Gets, FailWithoutMemoryAndSendNothing) {
    for (const Get& get : kGets) {
        SCOPED_TRACE(get.operation);
        Out out(room(get));
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
        Out out(room(get));
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

TEST_F(Gets, RefuseAMissingAddressAndSendNothing) {
    for (const Get& get : kGets) {
        if (get.refused.empty()) continue;
        SCOPED_TRACE(get.operation);
        Out out(room(get));
        char pointer[32];
        std::string refused = get.refused;
        snprintf(pointer, sizeof pointer, "%x",
                 static_cast<unsigned>(reinterpret_cast<uintptr_t>(out.data())));
        if (const size_t at = refused.find("OUT32"); at != std::string::npos) refused.replace(at, 5, pointer);
        snprintf(pointer, sizeof pointer, "%p", static_cast<void*>(out.data()));
        if (const size_t at = refused.find("OUT"); at != std::string::npos) refused.replace(at, 3, pointer);
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
    const Bytes expected = request_of(get).bytes();
    int torn = 0;
    for (int i = 0; i < kRounds; ++i) torn += wire_.reads_command().bytes() != expected;
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
