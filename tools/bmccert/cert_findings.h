// What the health check says about one certificate: its serial number and
// fingerprint as the operator compares them, and the findings on its key,
// signature, names and validity. Only public parts are ever read.
#pragma once

#include <openssl/x509.h>

#include <string>

#include "findings.h"

namespace bmccert::cli {

// Upper-case hexadecimal, as `openssl x509 -serial` prints it.
[[nodiscard]] std::string SerialText(X509 *cert);
// SHA-256 of the DER encoding, "AB:CD:..".
[[nodiscard]] std::string Fingerprint(X509 *cert);
[[nodiscard]] bool SameCertificate(X509 *a, X509 *b);

// RSA under 2048 bits or EC under 256: warning.
[[nodiscard]] Finding KeyStrengthFinding(X509 *cert);
// MD5: fault; SHA-1: warning.
[[nodiscard]] Finding SignatureFinding(X509 *cert);
// The alternative names (DNS names, or addresses for an address) must
// list the common name, if there is one; no alternative names at all:
// warning.
[[nodiscard]] Finding NamesFinding(X509 *cert);
// Not yet valid or expired: fault; under 30 days left: warning.
[[nodiscard]] Finding ValidityFinding(std::string subject, X509 *cert);

} // namespace bmccert::cli
