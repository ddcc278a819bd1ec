#include "bench/receivers/library_clients.h"

#include <algorithm>
#include <atomic>
#include <iterator>
#include <set>
#include <thread>

#include "bench/support/measure.h"
#include "lenswire/connection.h"
#include "lenswire/stream.h"

namespace lenswire::bench {

namespace {

StreamConn* new_unit() {
    StreamConn* unit = PC_CreateNew();
    if (unit == nullptr) give_up("PC_CreateNew");
    return unit;
}

uint32_t open_slots() {
    const auto is_open = [](int32_t& fd) { return std::atomic_ref(fd).load() > 0; };
    return static_cast<uint32_t>(std::count_if(std::begin(arrayfd), std::end(arrayfd), is_open));
}

}  // namespace

std::vector<Role> start_library() {
    const std::set<pid_t> before = threads();
    if (PC_InitCtx() != 0) give_up("PC_InitCtx");
    const std::set<pid_t> after = threads();
    std::vector<pid_t> started;
    std::set_difference(after.begin(), after.end(), before.begin(), before.end(),
                        std::back_inserter(started));
    if (started.size() != 3) give_up("the library did not start three threads");
    // In the order in which the context starts them.
    return {{"event_loop", started[0]}, {"receive_loop", started[1]}, {"queue", started[2]}};
}

std::vector<StreamConn*> log_in(Host& host, const CameraProcess& cameras) {
    std::vector<StreamConn*> units;
    std::vector<std::thread> logins;
    for (uint32_t camera = 0; camera < cameras.cameras(); ++camera) {
        host.channels.push_back({CameraProcess::address_text(camera), cameras.port(camera)});
        StreamConn* unit = units.emplace_back(new_unit());
        logins.emplace_back([unit, camera, port = cameras.port(camera)] {
            const LoginInfo info{"admin", "12345", {}};
            const uint32_t address = CameraProcess::address(camera);
            if (PC_Login(unit, address, port, &info, 0, 0) != 0) give_up("PC_Login");
        });
    }
    for (std::thread& login : logins) login.join();
    return units;
}

void open_streams(Host& host, int port, std::vector<StreamConn*> units) {
    while (units.size() < host.streams()) units.push_back(new_unit());
    for (uint32_t stream = 0; stream < host.streams(); ++stream) {
        units[stream]->sockFd = connect_to(kLoopback, port);
        host.post_open(stream, units[stream]);
    }
    while (open_slots() < host.streams()) sleep_ms(1);
}

}  // namespace lenswire::bench
