// The subcommands that change the certificate in force: generate, verify
// the generated temporary certificate, install an existing pair.
#pragma once

#include <string>

#include "gen_request.h"

namespace bmccert::cli {

[[nodiscard]] int RunGenerate(const GenerateOptions &options, bool json);
[[nodiscard]] int RunVerify(bool json);
[[nodiscard]] int RunInstall(const std::string &certPath, const std::string &keyPath);
// Settles an interrupted installation: the whole new set or the previous
// one, and says which; with restart the services restart after it.
[[nodiscard]] int RunRecover(bool restart);

} // namespace bmccert::cli
