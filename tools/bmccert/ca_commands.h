// The CA pinned for signed answers: `bmccert ca pin FILE`, `ca show`,
// `ca unpin`.
#pragma once

#include <CLI/CLI.hpp>

namespace bmccert::cli {

// Adds the `ca` command; its callbacks set status.
void AddCaCommands(CLI::App &app, int &status);

} // namespace bmccert::cli
