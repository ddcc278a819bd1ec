// The subcommands of the program, a file each. Each adds itself to the command line and names what runs when
// it was chosen; its result is the exit code.
#pragma once

#include <functional>
#include <string>

#include "recorder/cli/console.h"
#include "recorder/host/camera_address.h"
#include "recorder/session/session_options.h"

namespace CLI {
class App;
}

namespace lenswire::recorder {

// What every subcommand takes.
struct CommonOptions : SessionOptions {
    std::string password_file;
    std::string passwords;
    std::string log;
    bool verbose = false;
    bool json = false;
    bool quiet = false;

    PasswordFiles password_files() const { return {password_file, passwords}; }
};

using Command = std::function<int(Console&)>;

// `chosen` gets the command's body when the user picked it.
void add_record(CLI::App& app, CommonOptions& common, Command& chosen);
void add_stream(CLI::App& app, CommonOptions& common, Command& chosen);
void add_snapshot(CLI::App& app, CommonOptions& common, Command& chosen);
void add_probe(CLI::App& app, CommonOptions& common, Command& chosen);
void add_footage(CLI::App& app, CommonOptions& common, Command& chosen);
void add_verify(CLI::App& app, CommonOptions& common, Command& chosen);
void add_get(CLI::App& app, CommonOptions& common, Command& chosen);
void add_set(CLI::App& app, CommonOptions& common, Command& chosen);
void add_settings_file(CLI::App& app, CommonOptions& common, Command& chosen);
void add_ptz(CLI::App& app, CommonOptions& common, Command& chosen);
void add_cruise(CLI::App& app, CommonOptions& common, Command& chosen);
void add_time(CLI::App& app, CommonOptions& common, Command& chosen);
void add_info(CLI::App& app, CommonOptions& common, Command& chosen);
void add_firmware(CLI::App& app, CommonOptions& common, Command& chosen);
void add_upgrade(CLI::App& app, CommonOptions& common, Command& chosen);
void add_hostcheck(CLI::App& app, CommonOptions& common, Command& chosen);

// Reads the command line, runs the subcommand and reports a Failure in one line. The exit code.
int run_program(int argc, char** argv);

}  // namespace lenswire::recorder
