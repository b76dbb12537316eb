// How client certificates' revocation is checked: `bmccert revocation`
// (show), `revocation set`, and the lists of the trusted roots:
// `crl add ROOT-ID FILE`, `crl fetch ROOT-ID`, `crl show`.
#pragma once

#include <CLI/CLI.hpp>

namespace bmccert::cli {

// Adds the `revocation` and `crl` commands; their callbacks set status.
void AddRevocationCommands(CLI::App &app, int &status);

} // namespace bmccert::cli
