// The client-certificate authentication subcommands of the tool.
#pragma once

#include <CLI/CLI.hpp>

namespace bmccert::cli {

// Adds `auth`, `roots`, `root`, `clients`, `client` and `users`; the chosen
// one stores its exit status in status.
void AddAuthCommands(CLI::App &app, int &status);

} // namespace bmccert::cli
