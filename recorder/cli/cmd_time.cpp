// lenswire time CAMERA [--set] [--zone GMT+08:00]
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "lenswire/clock.h"
#include "recorder/cli/command_line.h"
#include "recorder/records/camera_clock.h"
#include "recorder/records/zone_name.h"

namespace lenswire::recorder {
namespace {

constexpr long kSecondsOff = 3600;  // of a camera that has the wrong date

struct TimeOptions {
    std::string camera;
    std::string zone;
    bool set = false;
};

// The library takes the time from this process's clock and local time, so a zone other than the machine's
// must be the process's own.
void use_zone(Host& host, const std::string& name) {
    if (!name.empty()) host.store.set_current_zone(zone_name(name));
    const Zone zone = host.store.current_zone();
    const int offset = zone.hours * 60 + zone.minutes;
    char variable[16];  // the sign counts westward there
    std::snprintf(variable, sizeof variable, "LOC%c%02d:%02d", offset > 0 ? '-' : '+',
                  std::abs(offset) / 60 % 24, std::abs(offset) % 60);
    setenv("TZ", variable, 1);
    tzset();
}

IpcTimeInfo read_clock(ControlSession& session) {
    const Bytes record = read_setting(session, readable_setting("time"));
    IpcTimeInfo clock{};
    std::memcpy(&clock, record.data(), sizeof clock);
    return clock;
}

tm local_time() {
    const time_t now = time(nullptr);
    tm fields{};
    localtime_r(&now, &fields);
    return fields;
}

// The library leaves the date where the time of day passes midnight between Greenwich and a zone west of it,
// so the camera may be a day ahead. It is then told the date as well.
void correct_date(ControlSession& session) {
    IpcTimeInfo clock = read_clock(session);
    tm local = local_time();
    const time_t expected = timegm(&local);
    if (std::abs(static_cast<long>(clock_seconds(clock) - expected)) < kSecondsOff) return;
    clock.usYear = static_cast<uint16_t>(local.tm_year + 1900);
    clock.ucMonth = static_cast<uint8_t>(local.tm_mon + 1);
    clock.ucDay = static_cast<uint8_t>(local.tm_mday);
    clock.ucHour = static_cast<uint8_t>(local.tm_hour);
    clock.ucMinute = static_cast<uint8_t>(local.tm_min);
    clock.ucSecond = static_cast<uint8_t>(local.tm_sec);
    session.tell("the time", [&] { return session.library().Prv_SetIPCTimeDate(session.ip(), &clock) == 0; });
}

void set_clock(ControlSession& session, const std::string& zone) {
    use_zone(session.host(), zone);
    const HostCameraRecord camera = host_record(session, session.channel());
    session.tell("the time", [&] { return session.library().Prv_SetIPCTimeAndDate(&camera) == 0; });
    correct_date(session);
}

int show(const TimeOptions& options, const CommonOptions& common, Console& console) {
    if (!options.set && !options.zone.empty()) throw bad_input("--zone goes with --set");
    auto session = log_in(options.camera, common, console);
    if (options.set) set_clock(*session, options.zone);
    const IpcTimeInfo clock = read_clock(*session);
    if (!common.json) {
        console.line(clock_text(clock) + "  zone " + clock_zone(clock));
        return kDone;
    }
    console.print(
        document({{"camera", session->camera().name()},
                  {"time", clock_text(clock)},
                  {"zone", clock_zone(clock)},
                  {"ntp-server",
                   std::string(clock.szNtpServer, strnlen(clock.szNtpServer, sizeof clock.szNtpServer))}}));
    return kDone;
}

}  // namespace

void add_time(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<TimeOptions>();
    CLI::App* command = app.add_subcommand("time", "Show a camera's clock, or set it from this machine's");
    command->add_option("CAMERA", options->camera, kCameraHelp)->required();
    command->add_flag("--set", options->set, "Set the clock first");
    command->add_option("--zone", options->zone,
                        "The recorder's time zone instead of the machine's: GMT+08:00, +8, Asia/Shanghai");
    run_when_chosen(command, options, common, chosen, show);
}

}  // namespace lenswire::recorder
