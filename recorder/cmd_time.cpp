// lenswire time CAMERA [--set] [--zone GMT+08:00]
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "command_line.h"
#include "lenswire/clock.h"

namespace lenswire::recorder {
namespace {

struct TimeOptions {
    std::string camera;
    std::string zone;
    bool set = false;
};

// The library takes the time from this process's clock and local time, so a zone other than the machine's
// must be the process's own.
void use_zone(Host& host, const std::string& name) {
    if (!name.empty()) host.store.set_current_zone(name);
    const Zone zone = host.store.current_zone();
    const int offset = zone.hours * 60 + zone.minutes;
    char variable[64];  // the sign counts westward there
    std::snprintf(variable, sizeof variable, "<%s>%c%02d:%02d", zone.name.c_str(), offset > 0 ? '-' : '+',
                  std::abs(offset) / 60, std::abs(offset) % 60);
    setenv("TZ", variable, 1);
    tzset();
}

void set_clock(ControlSession& session, const std::string& zone) {
    use_zone(session.host(), zone);
    HostCameraRecord camera{};
    camera.ucChannelNo = static_cast<uint8_t>(session.channel());
    const std::string ip = session.camera().dotted_ip();
    std::memcpy(camera.szIpAddr, ip.data(), ip.size());
    camera.ulPort = static_cast<uint32_t>(session.camera().port);
    session.tell("the time", [&] { return session.library().Prv_SetIPCTimeAndDate(&camera) == 0; });
}

// Hours and minutes may go beyond their range; the normal form is what a clock shows.
std::string clock_text(const IpcTimeInfo& clock) {
    tm fields{};
    fields.tm_year = clock.usYear - 1900;
    fields.tm_mon = clock.ucMonth - 1;
    fields.tm_mday = clock.ucDay;
    fields.tm_hour = clock.ucHour;
    fields.tm_min = clock.ucMinute;
    fields.tm_sec = clock.ucSecond;
    timegm(&fields);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &fields);
    return text;
}

int show(const TimeOptions& options, const CommonOptions& common, Console& console) {
    if (!options.set && !options.zone.empty()) throw bad_input("--zone goes with --set");
    auto session = log_in(options.camera, common, console);
    if (options.set) set_clock(*session, options.zone);
    const Setting& setting = readable_setting("time");
    const Bytes record = read_setting(*session, setting);
    IpcTimeInfo clock{};
    std::memcpy(&clock, record.data(), sizeof clock);
    if (!common.json) {
        console.line(clock_text(clock) + "  zone " + std::to_string(clock.ucTimeZone));
        return kDone;
    }
    console.print(document({{"camera", session->camera().name()},
                            {"time", clock_text(clock)},
                            {"zone", clock.ucTimeZone},
                            {"fields", record_json(*setting.layout, record)}}));
    return kDone;
}

}  // namespace

void add_time(CLI::App& app, CommonOptions& common, Command& chosen) {
    auto options = std::make_shared<TimeOptions>();
    CLI::App* command = app.add_subcommand("time", "Show a camera's clock, or set it from this machine's");
    command->add_option("CAMERA", options->camera, kCameraHelp)->required();
    command->add_flag("--set", options->set, "Set the clock first");
    command->add_option("--zone", options->zone,
                        "The recorder's time zone, e.g. GMT+08:00, instead of the machine's");
    run_when_chosen(command, options, common, chosen, show);
}

}  // namespace lenswire::recorder
