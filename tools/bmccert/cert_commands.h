// The subcommands that change client-certificate authentication's
// certificates and bindings, and the login by certificate.
#pragma once

#include <CLI/CLI.hpp>

namespace bmccert::cli {

// Adds `roots import|delete`, `clients import|delete` (to the listing
// subcommands that AddAuthCommands made), `bind`, `unbind`, `login`,
// `ocsp` and `forget-user`; the chosen one stores its exit status in status.
void AddCertCommands(CLI::App &app, int &status);

} // namespace bmccert::cli
