// A certificate request of the extension (a signing request, or a
// self-signed certificate with names) from the command line: key types,
// the request with its fixed fields.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gen_request.h"
#include "lib_security_sslcert_ext.h"

namespace bmccert::cli {

struct KeyType {
    uint32_t algorithm; // SSLCERT_EXT_KEY_RSA or _EC
    uint32_t bitLength; // 2048, 3072, 4096; the curve's size for EC
    uint32_t curve;     // SSLCERT_EXT_CURVE_*
};

inline constexpr std::string_view kKeyTypeNames = "rsa2048, rsa3072, rsa4096, p256, p384";

// "rsa2048", "rsa3072", "rsa4096", "p256", "p384"; nothing for anything else.
[[nodiscard]] std::optional<KeyType> ParseKeyType(std::string_view text);

// The name of a key as the library reports it (an EC key's bit length may
// be 0); "unknown" for a combination the library does not make.
[[nodiscard]] std::string_view KeyTypeName(uint32_t algorithm, uint32_t bitLength, uint32_t curve);

struct AltNameOptions {
    std::vector<std::string> dns; // --dns, in the order given
    std::vector<std::string> ip;  // --ip, after the host names
};

// Fills request from the options. A text or a name that does not fit its
// field, or more names than the request holds, is refused naming the
// option and the limit (the request is then not to be used): nothing is
// ever cut. validDays is taken from subject for a self-signed certificate.
[[nodiscard]] std::optional<RefusedField> FillCertRequest(const GenerateOptions &subject,
                                                          const KeyType &key,
                                                          const AltNameOptions &names,
                                                          SSLCertRequest &request);

} // namespace bmccert::cli
