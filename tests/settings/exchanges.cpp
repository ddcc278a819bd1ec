#include "settings/exchanges.h"

#include "settings/settings.h"

namespace lenswire::test {

namespace {

constexpr char kNoSlot[] = "cond init failed";
constexpr char kNotSent[] = " Prv_Send_Cmd failed";
constexpr char kNoAnswer[] = "get cond and property failed";

std::string command_named(uint16_t code) {
    char text[32];
    snprintf(text, sizeof text, " pCmd->usCmd =%x", code);
    return text;
}

}  // namespace

Get::Get(std::string its_name, uint16_t its_code, uint32_t size, Bytes bytes, Call its_call)
    : name(std::move(its_name)), code(its_code), call(std::move(its_call)), copied(size) {
    bytes.resize(size);
    request = command(code, std::move(bytes), 0, kLoginId);
    no_slot = line(name, kNoSlot);
    not_sent = line(name, kNotSent);
    no_answer = line(name, kNoAnswer + command_named(code));
}

Get& Get::refusing(const std::string& text) {
    refused = line(name, text);
    return *this;
}

Get& Get::header_only(uint32_t size) {
    request = announcing(code, {0, size}, {});
    request.login_id = kLoginId;
    return *this;
}

Get& Get::naming_no_command() {
    no_answer = line(name, kNoAnswer);
    return *this;
}

Get& Get::naming_the_channel() {
    not_sent = line(name, std::string(kNotSent).append(" channel : 261\n"));
    return *this;
}

Get& Get::checking_the_flag() {
    bad_flag = line(name, "ulBufferNum =1 ulFlag=1  ERROR");
    return *this;
}

Get& Get::with_blank_lines() {
    for (std::string* text : {&no_slot, &not_sent, &no_answer, &bad_flag}) *text += "\n";
    return *this;
}

Get& Get::on_error_output() {
    no_slot = error(name, kNoSlot);
    not_sent = error(name, kNotSent + 1);  // without the space
    no_answer = error(name, kNoAnswer + command_named(code));
    bad_flag = error(name, "ulBufferNum =1 ulFlag=1\tERROR");
    return *this;
}

Get& Get::without_prefix() {
    refused = "IP  error";
    no_slot = kNoSlot;
    not_sent = kNotSent;
    no_answer = kNoAnswer + command_named(code);
    return *this;
}

#define CALL(expression) \
    [](uint32_t ip [[maybe_unused]], uint8_t* out [[maybe_unused]]) { return static_cast<int>(expression); }

const std::vector<Get>& all_gets() {
    constexpr int kSome = 0x105;
    static const std::vector<Get> gets = {
        Get("Prv_GetIPCImageProperty", 0x1004, 36, {5, 0x33}, CALL(Prv_GetIPCImageProperty(kSome, ip, out)))
            .refusing(),
        Get("Prv_GetIPCNetworkProperty", 0x1006, 118, {5}, CALL(Prv_GetIPCNetworkProperty(kSome, ip, out)))
            .refusing()
            .naming_no_command(),
        Get("Prv_GetIPCOSD", 0x1023, 228, {5}, CALL(Prv_GetIPCOSD(kSome, ip, out)))
            .refusing()
            .naming_no_command(),
        Get("Prv_GetWifiSignal", 0x35, 626, {}, CALL(Prv_GetWifiSignal(kSome, ip, out)))
            .refusing("ip : 0 , channel : 261,inWifi : OUT32 parameter pass error!"),
        Get("Prv_GetTimeProperty", 0x1000, 212, {}, CALL(Prv_GetTimeProperty(kSome, ip, out)))
            .header_only(212)
            .refusing()
            .naming_no_command(),
        Get("Prv_GetIPCMtionDetetionConfigure", 0x100A, 168, {64},
            CALL(Prv_GetIPCMtionDetetionConfigure(64, ip, out)))
            .refusing("parameter pass error! ip=0,outMotionProperty=OUT,channel=64")
            .naming_no_command(),
        Get("Prv_GetVideoCover", 0x1021, 204, {64}, CALL(Prv_GetVideoCover(64, ip, out)))
            .refusing("Prv_GetVideoCover parameter pass error! ip=0,outCoverProperty=OUT,channel=64")
            .naming_no_command(),
        Get("Private_PTZ_GET_Property", 0x1031, 24, {}, CALL(Private_PTZ_GET_Property(ip, out)))
            .header_only(0)
            .refusing()
            .naming_no_command(),
        Get("Private_Fish_Protocol_EYE_PROPERTY", 0x1063, 64, {5},
            CALL(Private_Fish_Protocol_EYE_PROPERTY(kSome, ip, out)))
            .refusing()
            .naming_the_channel(),
        // The caller's record goes out; in these tests it is full of 'u'.
        Get("Private_PTZ_CRUISE_GET", 0x26, 980, repeated('u', 980), CALL(Private_PTZ_CRUISE_GET(ip, out)))
            .without_prefix()
            .apart(),
        Get("Prv_Get_IPC_PropertyParam", 0x2012, 1024, {}, CALL(Prv_Get_IPC_PropertyParam(kChannel, out)))
            .on_error_output()
            .waiting(3),
        Get("Private_Protocol_GetEncodingScope", 0x1102, 1027, {5},
            CALL(Private_Protocol_GetEncodingScope(kSome, ip, out)))
            .looking_inside()
            .refusing()
            .naming_the_channel()
            .waiting(4),
        Get("Private_Protocol_GetStreamType", 0x1002, 32, {0, 0x33},
            CALL(Private_Protocol_GetStreamType(kChannel)))
            .looking_inside(0)
            .checking_the_flag(),
        Get("Private_Protocol_GetEncodingProperty", 0x1002, 32, {0, 0x33},
            CALL(Private_Protocol_GetEncodingProperty(ip, out)))
            .looking_inside()
            .refusing("IP  error")
            .checking_the_flag()
            .waiting(4),
        Get("Private_Protocol_GetEncodingProperty1", 0x1002, 32, {0, 0x33},
            CALL(Private_Protocol_GetEncodingProperty1(ip, out)))
            .looking_inside()
            .checking_the_flag(),
        Get("Private_Fish_Protocol_GetEncodingProperty", 0x1061, 256, {5},
            CALL(Private_Fish_Protocol_GetEncodingProperty(kSome, ip, out)))
            .looking_inside()
            .refusing("IP  error")
            .checking_the_flag()
            .waiting(4),
        Get("Private_Protocol_GetPlatFormType", 0x2003, 464, {},
            CALL(Private_Protocol_GetPlatFormType(kChannel)))
            .looking_inside(0)
            .checking_the_flag()
            .with_blank_lines(),
    };
    return gets;
}

const std::vector<Set>& all_sets() {
    static const std::vector<Set> sets = {
        {"Prv_SetIPCMtionDetetionConfigure", Prv_SetIPCMtionDetetionConfigure, 0x100B, 168},
        {"Prv_SetIPCImageProperty", Prv_SetIPCImageProperty, 0x1005, 36},
        {"Prv_SetIPCOSD", Prv_SetIPCOSD, 0x1022, 228},
        {"Prv_SetIPCTimeDate", Prv_SetIPCTimeDate, 0x1001, 212},
        {"Prv_SetVideoCover",
         [](uint32_t ip, const uint8_t* record) { return Prv_SetVideoCover(-1, ip, record); }, 0x1020, 204, 1,
         "Prv_SetVideoCover input paramers error", "Prv_SetVideoCover Prv_Send_Cmd failed"},
        {"Prv_SetSmartIFrame",
         [](uint32_t ip, const uint8_t* record) { return Prv_SetSmartIFrame(-1, ip, record); }, 0x106D, 512,
         1, "Prv_SetSmartIFrame input paramers error", "Prv_SetSmartIFrame Prv_Send_Cmd failed"},
        {"Private_PTZ_SET_Property", Private_PTZ_SET_Property, 0x1030, 24, 1, "IP  error"},
        {"Private_PTZ_OPTION", Private_PTZ_OPTION, 0x20, 20, 1, "IP  error"},
        {"Private_PTZ_CRUISE", Private_PTZ_CRUISE, 0x25, 980, 1, "IP  error"},
        {"Private_Protocol_SetEncodingProperty", Private_Protocol_SetEncodingProperty, 0x1003, 32, 3,
         "IP  error"},
        {"Private_Fish_Protocol_SetEncodingProperty", Private_Fish_Protocol_SetEncodingProperty, 0x1062, 256,
         3, "IP  error"},
    };
    return sets;
}

}  // namespace lenswire::test
