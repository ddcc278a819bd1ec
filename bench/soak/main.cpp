// lenswire-soak LIBRARY CYCLES LOADS: months of a recorder's life with bad cameras in minutes. Connects and
// is cut off so many times, most of it in parallel, then loads and unloads the library so many times; what is
// held at the end must be what was held after the first of them. 1 when something grew.
#include <unistd.h>
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "bench/host/host.h"
#include "bench/soak/cameras.h"
#include "bench/soak/holdings.h"
#include "bench/support/measure.h"
#include "recorder/session/plugin.h"

using namespace lenswire::bench;
using namespace lenswire::bench::soak;
using lenswire::recorder::Plugin;

namespace {

constexpr uint32_t kCameras = 64;
constexpr int kRefusedPort = 1;
constexpr int kShortLogin = 2;          // steps that a dead or mute camera is given
constexpr int kFullLoginEvery = 1'000;  // of these is waited out, 10 s
constexpr int kLongest_ms = 30'000;
constexpr End kEnds[] = {End::kCloses,  End::kDead, End::kResets, End::kMute,
                         End::kBabbles, End::kDead, End::kStays,  End::kMute};

template <typename Condition>
void wait_for(const char* what, Condition holds) {
    for (int ms = 0; !holds(); ++ms) {
        if (ms > kLongest_ms) give_up(what);
        sleep_ms(1);
    }
}

class Soak {
  public:
    Soak(Host& host, Cameras& cameras, const char* library, FILE* out)
        : host_(host), cameras_(cameras), library_(library), out_(out) {}

    bool cycles(int64_t count) {
        Plugin plugin(library_);
        if (plugin.PC_InitCtx() != 0) give_up("PC_InitCtx");
        run_cycles(plugin, kCameras * std::size(kEnds));
        const Holdings before = count_holdings();
        run_cycles(plugin, count);
        const bool good =
            report_growth(out_, "connections made and cut off", count, before, count_holdings());
        plugin.PC_UnInitCtx();
        return good;
    }

    bool loads(int64_t count) {
        for (int i = 0; i < 50; ++i) load();
        const Holdings before = count_holdings();
        for (int64_t i = 0; i < count; ++i) load();
        return report_growth(out_, "loads and unloads", count, before, count_holdings());
    }

  private:
    void run_cycles(Plugin& plugin, int64_t count) {
        std::vector<std::thread> workers;
        for (uint32_t camera = 0; camera < kCameras; ++camera) {
            workers.emplace_back([&, camera] {
                for (int64_t number = camera; number < count; number += kCameras)
                    cycle(plugin, camera, kEnds[number / kCameras % std::size(kEnds)],
                          number % kFullLoginEvery == 0);
            });
        }
        for (std::thread& worker : workers) worker.join();
        wait_for("the consumer is behind", [&] { return host_.consumer().is_idle(); });
    }

    void load() {
        Plugin plugin(library_);
        if (plugin.PC_InitCtx() != 0) give_up("PC_InitCtx");
        cycle(plugin, 0, End::kStays, false);
        plugin.PC_UnInitCtx();
    }

    void cycle(Plugin& plugin, uint32_t camera, End end, bool full) {
        cameras_.will_end(camera, end);
        const bool answers = end != End::kDead && end != End::kMute;
        StreamObject& object = host_.stream(camera);
        object.login_steps = answers || full ? INT_MAX : kShortLogin;
        StreamConn* unit = plugin.PC_CreateNew();
        if (unit == nullptr) give_up("PC_CreateNew");
        const LoginInfo info{"admin", "12345", {}};
        const int port = end == End::kDead ? kRefusedPort : cameras_.port(camera);
        const int result =
            plugin.PC_Login(unit, Cameras::address(camera), port, &info, static_cast<int>(camera), 0);
        if ((result == 0) != answers) give_up("a login ended otherwise than it should");
        if (answers) use(plugin, camera, unit, end);
        const int stream_socket = unit->sockFd;
        plugin.PC_Delete(unit);
        if (stream_socket >= 0) close(stream_socket);
    }

    // A get, and a stream until its end.
    void use(Plugin& plugin, uint32_t camera, StreamConn* unit, End end) {
        uint8_t image[36];
        if (plugin.Prv_GetIPCImageProperty(0, Cameras::address(camera), image) != 0) give_up("a get");
        StreamObject& object = host_.stream(camera);
        const uint32_t frames = object.inserted, restarts = object.restarts;
        uint8_t description[LENSWIRE_STREAM_ANSWER_SIZE];
        // A camera that resets may be gone before its answer has been read.
        if (plugin.PC_GetStream(unit, 0, 0, description) != 0) return;
        host_.post_open(camera, unit);
        wait_for("the end of a stream",
                 [&] { return end == End::kStays ? object.inserted > frames : object.restarts > restarts; });
        host_.post_close(camera);
        wait_for("a slot was not given back", [&] {
            const int32_t* slots = *plugin.arrayfd;
            return std::find(slots, slots + LENSWIRE_STREAM_SLOTS, unit->sockFd) ==
                   slots + LENSWIRE_STREAM_SLOTS;
        });
    }

    Host& host_;
    Cameras& cameras_;
    const char* library_;
    FILE* out_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) give_up("usage: lenswire-soak LIBRARY CYCLES LOADS");
    FILE* out = keep_output_for_figures();
    Cameras cameras(kCameras);
    Host host(kCameras);
    Soak soak(host, cameras, argv[1], out);
    bool good = soak.cycles(std::atoll(argv[2]));
    good = soak.loads(std::atoll(argv[3])) && good;
    return good ? 0 : 1;
}
