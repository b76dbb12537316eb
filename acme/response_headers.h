// What an ACME client keeps of an answer's headers, each read strictly and
// bounded: a value that does not fit its form is not carried at all.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace bmccert::acme {

inline constexpr size_t kMaxNonceLength = 256;
inline constexpr size_t kMaxContentTypeLength = 256;
inline constexpr size_t kMaxAlternateLinks = 8;
// A Retry-After beyond this is not a delay anybody means: ignored.
inline constexpr int64_t kMaxRetryAfterSeconds = 30 * 86400;

struct HttpResponse {
    long status = 0;
    std::string body;
    std::string url;         // where the answer came from, after redirects
    std::string replayNonce; // base64url, at most kMaxNonceLength
    std::string location;    // at most kMaxUrlLength printable bytes
    std::string contentType;
    std::optional<int64_t> retryAfterSeconds; // from now
    std::string linkUp;                       // rel="up": the issuer's chain
    std::vector<std::string> linkAlternates;  // rel="alternate": other chains
};

// Retry-After as delta-seconds or an HTTP date, in seconds from now (a
// past date is 0); nullopt for garbage or past kMaxRetryAfterSeconds.
[[nodiscard]] std::optional<int64_t> ParseRetryAfter(std::string_view value, int64_t now);

// Adds the targets of a Link header's entries whose relation is "up" or
// "alternate" to the response; false, and nothing added, when the header
// is malformed, a target is too long, or the alternates exceed their bound.
[[nodiscard]] bool ReadLinkHeader(std::string_view value, HttpResponse &response);

// One header line as libcurl hands it over ("Name: value\r\n"), kept in
// the response when it is one of the headers above. A status line starts
// a new answer's headers (an interim answer's are dropped).
void CaptureHeaderLine(std::string_view line, int64_t now, HttpResponse &response);

} // namespace bmccert::acme
