// Where an ACME request may go: an absolute https URL of bounded length,
// and its origin (scheme, host, port), which every URL the CA names and
// every redirect must share with the directory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace bmccert::acme {

inline constexpr size_t kMaxUrlLength = 2048;

struct HttpsOrigin {
    std::string host; // lower case
    uint16_t port = 443;
    bool operator==(const HttpsOrigin &) const = default;
};

// The origin of an absolute https URL of at most kMaxUrlLength printable
// ASCII bytes, without user information; nullopt for anything else. The
// URL is read by libcurl's own parser, so that the origin compared here is
// the one the transfer connects to.
[[nodiscard]] std::optional<HttpsOrigin> HttpsUrlOrigin(std::string_view url);

// True when url is such a URL on that origin.
[[nodiscard]] bool OnOrigin(std::string_view url, const HttpsOrigin &origin);

} // namespace bmccert::acme
