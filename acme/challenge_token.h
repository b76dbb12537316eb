// A challenge's token and the key authorisation built from it (RFC 8555
// section 8.1). The token comes from the CA and later names a file under
// the http-01 directory, so it is checked before any other use.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace bmccert::acme {

inline constexpr size_t kMaxTokenBytes = 256;

// Non-empty, at most kMaxTokenBytes, only [A-Za-z0-9_-]: never a path
// separator, a dot or a control character.
[[nodiscard]] bool IsValidToken(std::string_view token);

// TOKEN "." THUMBPRINT; nothing for a token IsValidToken refuses or an
// empty thumbprint.
[[nodiscard]] std::optional<std::string> KeyAuthorization(std::string_view token,
                                                          std::string_view thumbprint);

// The dns-01 TXT record's value: base64url(SHA-256(key authorisation)).
[[nodiscard]] std::string Dns01RecordValue(std::string_view keyAuthorization);

} // namespace bmccert::acme
