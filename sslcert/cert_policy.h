// The one certificate policy: when a signature is weak, when a certificate
// is valid, what makes a CA and how far it may issue, and when a key is
// strong enough. Every path that accepts a certificate decides with it, and
// the health check reports with it; each path chooses what it refuses and
// how it reports. It reads only public parts, with OpenSSL alone.
#pragma once

#include <openssl/evp.h>
#include <openssl/x509.h>

namespace bmccert::policy {

// The digest of a signature as clients judge it: MD5 is broken, SHA-1 is
// refused by current clients, everything else is sound.
enum class Digest { kSound, kSha1, kMd5 };
[[nodiscard]] Digest SignatureDigest(const X509 *cert);
// MD5 from an algorithm's name as the openssl tool prints it: a name that
// begins with "md5" in any case (md5WithRSAEncryption, MD5).
[[nodiscard]] bool NamesMd5Signature(const char *algorithmName);

// Validity against the current time. The second of the expiry itself still
// counts as valid, as does the second of the start.
enum class Validity { kValid, kNotYetValid, kExpired, kUnreadable };
[[nodiscard]] Validity ValidityNow(const X509 *cert);
// The expiry rule alone, from the seconds left until the expiry.
[[nodiscard]] constexpr bool ExpiredBy(double secondsUntilExpiry) {
    return secondsUntilExpiry < 0;
}

// A CA by its basic constraints (CA:TRUE) only: key usage alone
// (keyCertSign) or a version 1 certificate does not make one, since
// browsers refuse a chain through such an issuer.
[[nodiscard]] bool IsCa(X509 *cert);
// Whether a CA's path length constraint allows casBelow further CAs between
// it and the leaf (self-issued ones not counted; none when unconstrained).
[[nodiscard]] bool PathLengthAllows(X509 *ca, int casBelow);

// Issued by its own key: a root, whose own signature no client checks.
[[nodiscard]] bool IsSelfSigned(X509 *cert);

// RSA under 2048 bits or EC under 256 bits is weak: TLS stacks at security
// level 2 refuse it.
enum class KeyStrength { kStrong, kWeak, kUnreadable };
[[nodiscard]] KeyStrength KeyStrengthOf(const EVP_PKEY *key);

// What is wrong with a CA that follows the leaf in a chain, casBelow CAs
// after the leaf: the first fault in this order (a root's own signature
// is not judged).
enum class ChainCaFault { kNone, kNotCa, kNotValidNow, kWeakSignature, kPathLength };
[[nodiscard]] ChainCaFault CheckChainCa(X509 *ca, int casBelow);

} // namespace bmccert::policy
