// The signed bodies of ACME requests (RFC 8555 section 6.2): flattened
// JSON JWS with ES256, and the two inner JWS that a request payload
// carries, external account binding (HS256) and key change.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "acme/json_ref.h"
#include "frame/frame.h"

namespace bmccert::acme {

struct RequestHeader {
    std::string_view nonce; // the last Replay-Nonce the server gave
    std::string_view url;   // the exact URL the request goes to
    std::string_view kid;   // the account URL; empty: the key's JWK instead
};

// The request body {"protected","payload","signature"} as compact JSON
// text, signed with ACCOUNT_KEY (P-256). PAYLOAD is JSON text, or empty
// for POST-as-GET. Nothing when the key is not P-256, the nonce is not
// base64url, the URL is empty or signing fails.
[[nodiscard]] std::optional<std::string>
SignRequest(EVP_PKEY *accountKey, const RequestHeader &header, std::string_view payload);

// The externalAccountBinding member of a newAccount payload: the account
// key's JWK signed with HMAC-SHA256 under MAC_KEY (the decoded bytes) for
// KEY_ID at NEW_ACCOUNT_URL. Empty when any of them is empty or the key
// is longer than 4096 bytes.
[[nodiscard]] JsonRef ExternalAccountBinding(const EVP_PKEY *accountKey, std::string_view keyId,
                                             std::string_view macKey,
                                             std::string_view newAccountUrl);

// The payload of a keyChange request: {"account","oldKey"} signed with
// NEW_KEY, whose JWK the header carries. Empty when a key is not P-256.
[[nodiscard]] JsonRef KeyChangeInner(EVP_PKEY *newKey, const EVP_PKEY *oldKey,
                                     std::string_view accountUrl, std::string_view keyChangeUrl);

} // namespace bmccert::acme
