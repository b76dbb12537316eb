// What a TLS service on this controller presents: a TLS client connects to
// 127.0.0.1:PORT, completes the handshake and keeps the certificate the
// server sent. Nothing is verified; the caller compares.
#pragma once

#include <chrono>
#include <string>

#include "openssl_owners.h"

namespace bmccert::cli {

struct ProbeResult {
    X509Owner cert;     // the server's certificate; empty on failure
    bool refused;       // nothing listens on the port
    std::string reason; // why there is no certificate
};

// Never waits longer than timeout in all, connection and handshake
// together. Ignores SIGPIPE for the rest of the process: a server that
// hangs up during the handshake must end the probe, not the tool.
[[nodiscard]] ProbeResult ProbeServedCertificate(int port, std::chrono::milliseconds timeout);

} // namespace bmccert::cli
