#include <signal.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstring>
#include <iostream>
#include <sstream>

#include "recorder/cli/commands.h"
#include "recorder/session/plugin.h"
#include "recorder/support/failure.h"

namespace lenswire::recorder {
namespace {

// A process list shows the command line; what stands before an '@' there may be a password.
void hide_credentials(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        char* at = std::strrchr(argv[i], '@');
        if (at != nullptr) std::memset(argv[i], '*', static_cast<size_t>(at - argv[i]));
    }
}

// What CLI11 says spans lines and may repeat arguments; the user gets the first line, and of a text with an
// '@' nothing.
std::string one_line(const std::string& text) {
    std::string line = text.substr(0, text.find('\n'));
    return line.find('@') == std::string::npos ? line : "bad arguments, see --help";
}

void add_common(CLI::App& app, CommonOptions& common) {
    common.library = Plugin::default_path();
    app.add_option("--library", common.library, "The library to load")->capture_default_str();
    app.add_option("--password-file", common.password_file,
                   "Password for cameras given without one; LENSWIRE_PASSWORD is the other way");
    app.add_option(
        "--passwords", common.passwords,
        "File of lines HOST[:PORT] PASSWORD for cameras given without one; * is every other HOST.\n"
        "LENSWIRE_PASSWORD_10_0_0_7 is the other way, for the camera 10.0.0.7");
    app.add_option("--timeout", common.timeout_s,
                   "Seconds that a camera has for the connection, for the login and for each answer")
        ->check(CLI::Range(0.05, 10.0))
        ->capture_default_str();
    app.add_option("--db", common.database, "Database file; OUT/lenswire.db for recordings, else in memory");
    app.add_option("--log", common.log, "File for the library's diagnostics");
    app.add_flag("--verbose", common.verbose, "Show the library's diagnostics on standard error");
    app.add_flag("--json", common.json,
                 "Print the result as JSON, and each error as an object on standard error");
    app.add_flag("--quiet", common.quiet, "Print errors and what was asked for, but no progress");
    app.fallthrough();
}

std::string footer_text() {
    std::string text = "CAMERA is user:password@host:port/channel/stream. Without a user it is " +
                       std::string(kDefaultUser) + ", without a port " + std::to_string(kDefaultPort) +
                       ", without channel and stream 0.\nA password there can be seen by others for a "
                       "moment; in a file or the environment it cannot.\n\nExit codes:\n";
    for (const ExitCodeRow& row : kExitCodes)
        text += "  " + std::to_string(row.code) + "  " + std::string(row.text) + "\n";
    return text;
}

int run_command(const Command& command, Console& console) {
    try {
        return command(console);
    } catch (const Failure& failure) {
        console.error_line(failure.what(), failure.code());
        return failure.code();
    } catch (const std::exception& error) {
        console.error_line(one_line(error.what()), kFailed);
        return kFailed;
    }
}

}  // namespace

int run_program(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    Console console;
    CLI::App app("Records cameras and reads and writes their settings through the lenswire library.",
                 "lenswire");
    CommonOptions common;
    Command chosen;
    add_common(app, common);
    for (const auto add : {add_record, add_stream, add_snapshot, add_probe, add_footage, add_verify, add_get,
                           add_set, add_settings_file, add_ptz, add_cruise, add_time, add_info, add_firmware,
                           add_upgrade, add_hostcheck}) {
        add(app, common, chosen);
    }
    app.require_subcommand(1);
    app.set_version_flag("--version", "lenswire " LENSWIRE_VERSION);
    app.footer(footer_text());
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& help) {  // or version
        return app.exit(help, std::cout, std::cerr);
    } catch (const CLI::ParseError& error) {
        // Parsing may have ended before it came to it.
        console.speak(std::find(argv, argv + argc, std::string_view("--json")) != argv + argc, false);
        console.error_line(one_line(error.what()), kBadInput);
        return kBadInput;
    }
    hide_credentials(argc, argv);
    console.speak(common.json, common.quiet);
    return run_command(chosen, console);
}

}  // namespace lenswire::recorder
