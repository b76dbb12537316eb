// Base64url (RFC 4648 section 5) as ACME messages carry it: no padding,
// and a decoder that refuses anything but the canonical form; plus the
// lenient reader of a MAC key an operator types in.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace bmccert::acme {

[[nodiscard]] std::string Base64UrlEncode(std::string_view bytes);

// Nothing on a character outside [A-Za-z0-9_-], on padding, on a length
// that no encoding has, or on unused trailing bits that are not zero.
[[nodiscard]] std::optional<std::string> Base64UrlDecode(std::string_view text);

// An operator's MAC key: standard Base64 (padded, as the management API
// gives it) or base64url (padding optional), one alphabet, never both.
// Nothing on an empty key or any other character, whitespace included.
[[nodiscard]] std::optional<std::string> DecodeMacKey(std::string_view text);

} // namespace bmccert::acme
