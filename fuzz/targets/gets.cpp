// Every operation that asks a camera something, over a logged-in client: the input is what comes back.
#include "fuzz/support/camera_end.h"
#include "fuzz/support/host.h"
#include "lenswire/lenswire.h"

namespace lenswire::fuzz {

namespace {

struct Get {
    size_t size;  // of what it fills in
    int (*ask)(void* out);
};

const Get kGets[] = {
    {LENSWIRE_IMAGE_SIZE, [](void* out) { return Prv_GetIPCImageProperty(1, kCameraAddress, out); }},
    {LENSWIRE_NETWORK_SIZE, [](void* out) { return Prv_GetIPCNetworkProperty(1, kCameraAddress, out); }},
    {LENSWIRE_OSD_SIZE, [](void* out) { return Prv_GetIPCOSD(1, kCameraAddress, out); }},
    {LENSWIRE_WIFI_SIZE, [](void* out) { return Prv_GetWifiSignal(1, kCameraAddress, out); }},
    {LENSWIRE_COVER_SIZE, [](void* out) { return Prv_GetVideoCover(1, kCameraAddress, out); }},
    {LENSWIRE_TIME_SIZE, [](void* out) { return Prv_GetTimeProperty(1, kCameraAddress, out); }},
    {LENSWIRE_MOTION_SIZE,
     [](void* out) { return Prv_GetIPCMtionDetetionConfigure(1, kCameraAddress, out); }},
    {LENSWIRE_PTZ_SIZE, [](void* out) { return Private_PTZ_GET_Property(kCameraAddress, out); }},
    {LENSWIRE_CRUISE_SIZE, [](void* out) { return Private_PTZ_CRUISE_GET(kCameraAddress, out); }},
    {sizeof(CruiseLine), [](void* out) { return Private_GetPtzCruiseAllPreset(1, out); }},
    {sizeof(EncodingScope),
     [](void* out) { return Private_Protocol_GetEncodingScope(1, kCameraAddress, out); }},
    {0, [](void*) { return static_cast<int>(Private_Protocol_GetStreamType(1)); }},
    {96, [](void* out) { return Private_Protocol_GetEncodingProperty(kCameraAddress, out); }},
    {96, [](void* out) { return Private_Protocol_GetEncodingProperty1(kCameraAddress, out); }},
    {sizeof(EncodingScope) + 96,
     [](void* out) {
         return Private_Protocol_GetEncodingPropert(1, kCameraAddress, out,
                                                    static_cast<uint8_t*>(out) + sizeof(EncodingScope));
     }},
    {768, [](void* out) { return Private_Fish_Protocol_GetEncodingProperty(1, kCameraAddress, out); }},
    {LENSWIRE_FISH_PROPERTY_SIZE,
     [](void* out) { return Private_Fish_Protocol_EYE_PROPERTY(1, kCameraAddress, out); }},
    {LENSWIRE_PROPERTY_BLOCK_SIZE, [](void* out) { return Prv_Get_IPC_PropertyParam(1, out); }},
    {0, [](void*) { return Private_Protocol_GetPlatFormType(1); }},
    {LENSWIRE_UPGRADE_PATH_SIZE,
     [](void* out) {
         std::memcpy(out, "/LW_20_BTAMC_1.bin", 19);
         return Get_IPC_upgradeParam(1, static_cast<char*>(out));
     }},
};

// The next message of the input, as long as its header says, as the answer to the oldest request that has
// none yet.
bool say_answer(CameraEnd& camera, Input& input, std::deque<uint16_t>& asked) {
    for (const uint16_t code : camera.requests()) asked.push_back(code);
    if (input.empty() || asked.empty()) return false;
    Bytes answer(ARG_HEAD_LEN);
    auto header = input.record<PrivateCmd>();
    header.usCmd = asked.front();
    if (asked.size() > 1) asked.pop_front();
    std::memcpy(answer.data(), &header, sizeof header);
    const auto payload =
        input.take(std::min<uint32_t>(header.ulBufferNum * header.ulBufferSize, MAX_CMD_SIZE - ARG_HEAD_LEN));
    answer.insert(answer.end(), payload.begin(), payload.end());
    camera.say(answer);
    return true;
}

}  // namespace

// The first byte says what is asked.
void run(Input input) {
    static CameraEnd camera;
    camera.clear();
    const Get& get = kGets[input.number<uint8_t>() % std::size(kGets)];
    std::deque<uint16_t> asked;
    g_answers = [&] { return say_answer(camera, input, asked); };
    const Bytes before(get.size, 0xEE);
    Bytes out = before;
    const int result = get.ask(out.data());
    g_answers = nullptr;
    require(g_rs_num == 0, "a request's slot is given back");
    require(result != -1 || get.size > 1000 || get.size == 96 || out == before,
            "a record that is fetched whole is written only on success");
}

}  // namespace lenswire::fuzz
