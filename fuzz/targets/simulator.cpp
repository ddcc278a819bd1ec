// The simulated camera's side: any bytes on its control connection, cut, logged and carried out.
#include "camera/device/layouts.h"
#include "camera/device/settings.h"
#include "camera/wire/login.h"
#include "camera/wire/message.h"
#include "fuzz/support/target.h"
#include "lenswire/protocol.h"

namespace lenswire::fuzz {

namespace {

void carry_out(camera::Settings& settings, const camera::Command& command) {
    const camera::DesBlock serial{1, 2, 3, 4, 5, 6, 7, 8};
    camera::describe(command);
    if (command.code == LENSWIRE_CMD_LOGIN) camera::check_login(command.payload, serial, "admin", "12345");
    const auto outcome = settings.handle(command);
    if (!outcome.answer) return;
    require(to_bytes(*outcome.answer).size() <= MAX_CMD_SIZE, "an answer is no longer than a message");
    require(outcome.answer->code == command.code, "an answer has its request's code");
}

}  // namespace

// The first byte says how large the pieces are. The clock goes on by some seconds at each look.
void run(Input input) {
    static int64_t now_us;
    now_us = 1'700'000'000'000'000;
    static const camera::Settings fresh({.device = {}, .address = "127.0.0.1", .port = 9, .streams = {}},
                                        [] { return now_us += 3'700'000; });
    camera::Settings settings = fresh;  // to make one takes much longer
    camera::CommandReader reader;
    const size_t piece = 1 + size_t{input.number<uint8_t>()} * 16;
    while (!input.empty()) {
        reader.add(input.take(piece));
        while (const auto header = reader.header()) {
            if (announced_length(*header) > MAX_CMD_SIZE - ARG_HEAD_LEN) return;  // the camera hangs up
            const auto command = reader.take();
            if (!command) break;
            carry_out(settings, *command);
        }
    }
}

}  // namespace lenswire::fuzz
