// The ACME account key: an EC P-256 key, its public JWK (RFC 7517) and
// the JWK thumbprint (RFC 7638) that challenge answers carry.
#pragma once

#include <optional>
#include <string>

#include "acme/json_ref.h"
#include "frame/frame.h"

namespace bmccert::acme {

// True for an EC key on P-256, the only account key this client signs with.
[[nodiscard]] bool IsP256Key(const EVP_PKEY *key);

// A new P-256 key pair; empty when OpenSSL fails.
[[nodiscard]] UniquePtr<EVP_PKEY> GenerateAccountKey();

// The public JWK {"crv":"P-256","kty":"EC","x":..,"y":..}, each coordinate
// 32 bytes big-endian; empty for a key that is not P-256. Never holds the
// private part.
[[nodiscard]] JsonRef PublicJwk(const EVP_PKEY *key);

// base64url(SHA-256) of the JWK's required members, sorted, no spaces.
[[nodiscard]] std::optional<std::string> JwkThumbprint(const EVP_PKEY *key);

} // namespace bmccert::acme
