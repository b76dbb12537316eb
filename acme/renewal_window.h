// When a certificate is renewed: its renewal information identifier
// (RFC 9773), the due time from the CA's suggested window or from the
// certificate's lifetime, how long a renewal-information answer holds,
// and the back-off after a failed attempt. Pure functions: times are
// seconds since 1970-01-01 UTC, randomness comes in as a uniform value in
// [0, 1) so that a fleet issued in the same hour does not renew in it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "frame/frame.h"

namespace bmccert::acme {

// base64url(authority key identifier) "." base64url(the serial's DER
// content octets); nothing for a certificate without an AKI key id.
[[nodiscard]] std::optional<std::string> RenewalCertificateId(X509 *certificate);

struct SuggestedWindow {
    int64_t start;
    int64_t end;
};

// A uniform point of the CA's window that is neither past nor after the
// certificate's expiry; without a usable window, the point where a third
// of the lifetime remains, moved earlier by up to a tenth of it. Never
// before NOW.
[[nodiscard]] int64_t RenewalDueTime(int64_t notBefore, int64_t notAfter, int64_t now,
                                     std::optional<SuggestedWindow> window, double uniform);

inline constexpr int64_t kMinRecheckSeconds = 60;
inline constexpr int64_t kMaxRecheckSeconds = 86400;
inline constexpr int64_t kDefaultRecheckSeconds = 6 * 3600;

// Seconds until renewal information is fetched again: the answer's
// Retry-After held to [60 s, 1 day]; six hours when it gave none.
[[nodiscard]] int64_t RenewalInfoRecheckSeconds(std::optional<int64_t> retryAfter);

// Seconds to wait after FAILURES failed attempts in a row: one hour,
// doubling, at most a day, shortened by up to a quarter at random; 0
// before any failure.
[[nodiscard]] int64_t FailureBackoffSeconds(unsigned failures, double uniform);

} // namespace bmccert::acme
