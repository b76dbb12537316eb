// `bmccert check`: whether the controller serves the certificate in force
// and whether that certificate, its key and the trusted and client
// certificates are fit. One finding per line (or one JSON object); the
// exit status is 1 when a finding is a fault, else 0.
#pragma once

#include <optional>

namespace bmccert::cli {

struct CheckOptions {
    std::optional<int> tunnelPort; // else from the tunnel's configuration
    std::optional<int> webPort;    // else from the web server's configuration
    bool json = false;
};

[[nodiscard]] int RunCheck(const CheckOptions &options);

} // namespace bmccert::cli
