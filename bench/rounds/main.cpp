// lenswire-bench: one round of one benchmark per call, its figures as a line of JSON on standard output.
// scripts/bench runs the rounds side by side and makes tables and plots of them.
#include <cstdio>
#include <string>
#include <vector>

#include "bench/rounds/round.h"
#include "bench/support/process.h"
#include "lenswire/version.h"

using namespace lenswire::bench;

namespace {

using Adder = Round (*)(CLI::App&);

struct Command {
    const char* name;
    const char* description;
    Adder add;
};

constexpr Command kCommands[] = {
    {"streams", "receive many streams", add_streams},
    {"control", "ask cameras for settings", add_control},
    {"upload", "send a firmware file to many cameras", add_upload},
    {"memory", "fill the library's tables", add_memory},
    {"prompt", "take up what happens", add_prompt},
    {"idle", "do nothing, with or without silent streams", add_idle},
};

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("One round of one benchmark of the library, as a line of JSON.");
    app.require_subcommand(1);
    app.set_version_flag("--version", "lenswire-bench " LENSWIRE_VERSION);
    std::vector<std::pair<CLI::App*, Round>> rounds;
    for (const Command& command : kCommands) {
        CLI::App* subcommand = app.add_subcommand(command.name, command.description);
        rounds.emplace_back(subcommand, command.add(*subcommand));
    }
    CLI11_PARSE(app, argc, argv);

    FILE* figures = keep_output_for_figures();
    for (const auto& [subcommand, round] : rounds) {
        if (!subcommand->parsed()) continue;
        Json result{{"bench", subcommand->get_name()}};
        result.update(round());
        std::fprintf(figures, "%s\n", result.dump().c_str());
    }
    std::fclose(figures);
    return 0;
}
