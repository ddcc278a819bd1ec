#include "bench/library_clients.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <thread>

#include "bench/measure.h"
#include "lenswire/connection.h"

namespace lenswire::bench {

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
        StreamConn* unit = PC_CreateNew();
        if (unit == nullptr) give_up("PC_CreateNew");
        units.push_back(unit);
        logins.emplace_back([unit, camera, port = cameras.port(camera)] {
            const LoginInfo info{"admin", "12345", {}};
            const uint32_t address = CameraProcess::address(camera);
            if (PC_Login(unit, address, port, &info, 0, 0) != 0) give_up("PC_Login");
        });
    }
    for (std::thread& login : logins) login.join();
    return units;
}

}  // namespace lenswire::bench
