#include "sslcert/cert_policy.h"

#include <strings.h>

#include <openssl/err.h>
#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include "frame/openssl_no_time_t.h"

namespace bmccert::policy {
namespace {

constexpr int kMinRsaBits = 2048;
constexpr int kMinEcBits = 256;

Digest DigestOfSignature(int signatureNid) {
    int digest = NID_undef;
    if (OBJ_find_sigid_algs(signatureNid, &digest, nullptr) != 1) return Digest::kSound;
    if (digest == NID_md5 || digest == NID_md5_sha1) return Digest::kMd5;
    if (digest == NID_sha1) return Digest::kSha1;
    return Digest::kSound;
}

// Seconds from now to a time, by the sign of ASN1_TIME_diff's two parts;
// false when the time is unreadable.
bool SignFromNow(const ASN1_TIME *when, int &sign) {
    int days = 0;
    int seconds = 0;
    if (when == nullptr || ASN1_TIME_diff(&days, &seconds, nullptr, when) != 1) return false;
    sign = days > 0 || seconds > 0 ? 1 : (days < 0 || seconds < 0 ? -1 : 0);
    return true;
}

} // namespace

Digest SignatureDigest(const X509 *cert) {
    return DigestOfSignature(X509_get_signature_nid(cert));
}

bool NamesMd5Signature(const char *algorithmName) {
    return strncasecmp(algorithmName, "md5", 3) == 0;
}

Validity ValidityNow(const X509 *cert) {
    int start = 0;
    int end = 0;
    if (!SignFromNow(X509_get0_notBefore(cert), start) ||
        !SignFromNow(X509_get0_notAfter(cert), end))
        return Validity::kUnreadable;
    if (start > 0) return Validity::kNotYetValid;
    if (end < 0) return Validity::kExpired;
    return Validity::kValid;
}

bool IsCa(X509 *cert) {
    // The flags are OpenSSL's reading of the extensions; EXFLAG_CA comes
    // from basicConstraints CA:TRUE alone.
    const uint32_t flags = X509_get_extension_flags(cert);
    return (flags & EXFLAG_INVALID) == 0 && (flags & EXFLAG_BCONS) != 0 && (flags & EXFLAG_CA) != 0;
}

bool PathLengthAllows(X509 *ca, int casBelow) {
    const long limit = X509_get_pathlen(ca);
    return limit < 0 || casBelow <= limit;
}

KeyStrength KeyStrengthOf(const EVP_PKEY *key) {
    if (key == nullptr) return KeyStrength::kUnreadable;
    const int type = EVP_PKEY_base_id(key);
    const int bits = EVP_PKEY_bits(key);
    if ((type == EVP_PKEY_RSA && bits < kMinRsaBits) || (type == EVP_PKEY_EC && bits < kMinEcBits))
        return KeyStrength::kWeak;
    return KeyStrength::kStrong;
}

bool IsSelfSigned(X509 *cert) {
    const bool selfSigned = X509_check_issued(cert, cert) == X509_V_OK &&
                            X509_verify(cert, X509_get0_pubkey(cert)) == 1;
    ERR_clear_error();
    return selfSigned;
}

ChainCaFault CheckChainCa(X509 *ca, int casBelow) {
    if (!IsCa(ca)) return ChainCaFault::kNotCa;
    if (ValidityNow(ca) != Validity::kValid) return ChainCaFault::kNotValidNow;
    // A root's own signature is never checked by clients: an old root
    // signed with SHA-1 still anchors sound chains.
    if (SignatureDigest(ca) != Digest::kSound && !IsSelfSigned(ca))
        return ChainCaFault::kWeakSignature;
    if (!PathLengthAllows(ca, casBelow)) return ChainCaFault::kPathLength;
    return ChainCaFault::kNone;
}

} // namespace bmccert::policy
