// Internal pieces of the health check: the findings as they are made, the
// rules that judge one certificate, the services' ports and the probe.
#pragma once

#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "frame/frame.h"
#include "lib_security_sslcert_ext.h"

namespace bmccert::health {

struct Finding {
    uint32_t severity = SSLCERT_EXT_SEVERITY_OK;
    uint32_t kind = 0;
    std::string subject;
    std::string text;
    int32_t daysLeft = 0;
};

// Appends a finding to the record, counting it whether or not it fits.
void Add(SSLHealthRecord &record, const Finding &finding);

// ---- One certificate (public parts only) --------------------------------
// Upper-case hexadecimal, as `openssl x509 -serial` prints it.
[[nodiscard]] std::string SerialText(X509 *cert);
// SHA-256 of the DER encoding, "AB:CD:..".
[[nodiscard]] std::string Fingerprint(X509 *cert);
[[nodiscard]] bool SameCertificate(X509 *a, X509 *b);
// RSA under 2048 bits or EC under 256: warning.
[[nodiscard]] Finding KeyStrengthFinding(X509 *cert);
// MD5: fault; SHA-1: warning.
[[nodiscard]] Finding SignatureFinding(X509 *cert);
// The alternative names must list the common name, if there is one; no
// alternative names at all: warning.
[[nodiscard]] Finding NamesFinding(X509 *cert);
// The alternative names must list the host name clients reach the
// controller by; nothing when the controller has none configured.
[[nodiscard]] std::optional<Finding> HostNameFinding(X509 *cert, std::string_view hostName);
// Not yet valid or expired: fault; under 30 days left: warning.
[[nodiscard]] Finding ValidityFinding(uint32_t kind, std::string subject, X509 *cert);

// ---- The services' ports, from their configuration text ------------------
// A decimal port 1..65535, nothing else.
[[nodiscard]] std::optional<int> ParsePort(std::string_view text);
// The port of the tunnel's first service: the first "accept =" line inside
// a "[service]" section ("7582", ":::7582" or "HOST:PORT").
[[nodiscard]] std::optional<int> TunnelPort(std::string_view config);
// The port the web server serves TLS on: that of the first
// $SERVER["socket"] block that sets ssl.engine = "enable", else, when
// ssl.engine is enabled outside any block, server.port (443 when unset).
[[nodiscard]] std::optional<int> WebTlsPort(std::string_view config);

// ---- The probe --------------------------------------------------------------
struct ProbeResult {
    UniquePtr<X509> cert; // the server's certificate; empty on failure
    bool refused = false; // nothing listens on the port
    std::string reason;   // why there is no certificate
};
// A TLS client connects to 127.0.0.1 at each port, completes the handshake
// and keeps the certificate the server sent; nothing is verified. Both run
// at once and never take longer than timeout in all; a server that hangs up
// mid-handshake raises no SIGPIPE in the calling process.
[[nodiscard]] std::array<ProbeResult, 2> ProbeServedCertificates(SSL_CTX *context,
                                                                 std::array<int, 2> ports,
                                                                 std::chrono::milliseconds timeout);
// The client context of the probes (no verification, any security level),
// one for the process; null when OpenSSL cannot make one.
[[nodiscard]] SSL_CTX *ProbeContext();

} // namespace bmccert::health
