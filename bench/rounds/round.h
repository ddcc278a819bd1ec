// One round of a benchmark: what a subcommand measures once and prints as one line of JSON.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <nlohmann/json.hpp>

namespace lenswire::bench {

using Json = nlohmann::ordered_json;
using Round = std::function<Json()>;

// Each adds its subcommand with its options and returns what to run when it was chosen.
Round add_streams(CLI::App& app);
Round add_control(CLI::App& app);
Round add_idle(CLI::App& app);
Round add_prompt(CLI::App& app);
Round add_upload(CLI::App& app);
Round add_memory(CLI::App& app);

}  // namespace lenswire::bench
