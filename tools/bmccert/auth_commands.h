// The client-certificate authentication subcommands of the tool.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>

namespace bmccert::cli {

// The wait limit the management daemons use for their own calls.
inline constexpr uint32_t kAuthWaitLimitMs = 10000;

// Adds `auth`, `roots`, `root`, `clients`, `client` and `users`; the chosen
// one stores its exit status in status.
void AddAuthCommands(CLI::App &app, int &status);

} // namespace bmccert::cli
