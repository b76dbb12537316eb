#include "acme/renewal_window.h"

#include <openssl/x509v3.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "acme/base64url.h"

namespace bmccert::acme {
namespace {

constexpr int64_t kFirstBackoffSeconds = 3600;
constexpr int64_t kMaxBackoffSeconds = 86400;

// A random source that strays out of [0, 1) must not move a due time out
// of its window.
double UnitInterval(double uniform) {
    if (!(uniform >= 0.0)) return 0.0;
    return uniform < 1.0 ? uniform : std::nextafter(1.0, 0.0);
}

int64_t PointIn(int64_t start, int64_t end, double uniform) {
    const double span = static_cast<double>(end - start);
    return start + static_cast<int64_t>(std::floor(span * UnitInterval(uniform)));
}

// The content octets of the serial's DER encoding: the sign byte 0x00
// that a serial with its high bit set needs is part of the identifier.
std::optional<std::string> SerialContentOctets(const ASN1_INTEGER *serial) {
    const int length = i2d_ASN1_INTEGER(serial, nullptr);
    if (length < 3) return std::nullopt;
    std::vector<unsigned char> der(static_cast<size_t>(length));
    unsigned char *cursor = der.data();
    if (i2d_ASN1_INTEGER(serial, &cursor) != length || der[0] != V_ASN1_INTEGER)
        return std::nullopt;
    size_t header = 2;
    if (der[1] & 0x80) header += der[1] & 0x7F;
    if (header >= der.size()) return std::nullopt;
    return std::string(reinterpret_cast<const char *>(der.data()) + header, der.size() - header);
}

} // namespace

std::optional<std::string> RenewalCertificateId(X509 *certificate) {
    if (certificate == nullptr) return std::nullopt;
    const ASN1_OCTET_STRING *keyId = X509_get0_authority_key_id(certificate);
    if (keyId == nullptr || ASN1_STRING_length(keyId) <= 0) return std::nullopt;
    const auto serial = SerialContentOctets(X509_get0_serialNumber(certificate));
    if (!serial) return std::nullopt;
    const std::string_view keyIdBytes(reinterpret_cast<const char *>(ASN1_STRING_get0_data(keyId)),
                                      static_cast<size_t>(ASN1_STRING_length(keyId)));
    return Base64UrlEncode(keyIdBytes) + "." + Base64UrlEncode(*serial);
}

int64_t RenewalDueTime(int64_t notBefore, int64_t notAfter, int64_t now,
                       std::optional<SuggestedWindow> window, double uniform) {
    if (window) {
        // A renewal after expiry is never what a CA means; what is left of
        // the window once the past is cut off is where the fleet spreads.
        const int64_t start = std::max(window->start, now);
        const int64_t end = std::min(window->end, notAfter);
        if (end > start) return PointIn(start, end, uniform);
        // A real window that opened before expiry and is over: renew now.
        if (window->end > window->start && window->start < notAfter) return now;
    }
    if (notAfter <= notBefore) return now;
    const int64_t lifetime = notAfter - notBefore;
    const int64_t latest = notAfter - lifetime / 3;
    return std::max(now, PointIn(latest - lifetime / 10, latest, uniform));
}

int64_t RenewalInfoRecheckSeconds(std::optional<int64_t> retryAfter) {
    if (!retryAfter) return kDefaultRecheckSeconds;
    return std::clamp(*retryAfter, kMinRecheckSeconds, kMaxRecheckSeconds);
}

int64_t FailureBackoffSeconds(unsigned failures, double uniform) {
    if (failures == 0) return 0;
    const unsigned doublings = std::min(failures - 1, 5U);
    const int64_t full = std::min(kFirstBackoffSeconds << doublings, kMaxBackoffSeconds);
    return full -
           static_cast<int64_t>(std::floor(static_cast<double>(full / 4) * UnitInterval(uniform)));
}

} // namespace bmccert::acme
