// The verified revocation methods of client certificates: the stored
// policy, OCSP asked and verified in process, and the revocation lists
// installed per trusted root.
#pragma once

#include <openssl/ocsp.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

#include "frame/frame.h"
#include "lib_security_sslcert_ext.h"
#include "lib_ssl_auth.h"

namespace bmccert::sslauth {

// Sizes past which an answer is refused unread.
inline constexpr size_t kMaxOcspAnswerBytes = 64 * 1024;
inline constexpr size_t kMaxCrlBytes = 4 * 1024 * 1024;
inline constexpr int kMaxCrlEntries = 50000;
// Addresses longer than the published check's 63 bytes are refused, not cut.
inline constexpr size_t kMaxAddressLength = 63;
inline constexpr uint32_t kRevocationTimeoutMs = 2000;

// The stored policy, or the defaults while none is stored (or it cannot be
// read: the published method is what a controller without a setting has).
[[nodiscard]] SSLRevocationPolicy LoadRevocationPolicy();

// One OCSP question: the request with its nonce, and the identifier of the
// certificate asked about (kept to find it in the answer).
struct OcspQuestion {
    UniquePtr<OCSP_REQUEST> request;
    UniquePtr<OCSP_CERTID> id;
};
[[nodiscard]] bool MakeOcspQuestion(X509 *cert, X509 *issuer, OcspQuestion &question);
[[nodiscard]] std::string EncodeOcspRequest(OCSP_REQUEST *request);

// Every check of a DER answer to the question, in order; 0 for "good" or
// the refusal's code (SSLCERT_EXT_ERR_*), with *why naming the cause for
// the diagnostic. now is the time the answer is judged at.
[[nodiscard]] uint32_t VerifyOcspAnswer(std::string_view der, const OcspQuestion &question,
                                        X509 *issuer, const SSLRevocationPolicy &policy,
                                        std::time_t now, const char **why);

// A list read from PEM or DER and verified against its root: signed by it,
// issued by it by name, at most kMaxCrlEntries entries, and not past its
// next update at now. 0 or the refusal's code, *why naming the cause.
[[nodiscard]] uint32_t ReadRootCrl(std::string_view bytes, X509 *root, std::time_t now,
                                   UniquePtr<X509_CRL> &crl, const char **why);
// Only the list's times at now: SSLCERT_EXT_ERR_CRL_STALE or 0.
[[nodiscard]] uint32_t CheckCrlTimes(const X509_CRL *crl, std::time_t now, const char **why);

} // namespace bmccert::sslauth

namespace bmccert::sslauth {

// A trusted root by its record id, with its certificate read from its
// confined file. 0, the root list's code, or SSL_AUTH_ERR_NO_ISSUER.
struct TrustedRoot {
    RootCertInfo entry{};
    UniquePtr<X509> cert;
};
[[nodiscard]] uint32_t LoadTrustedRoot(uint32_t rootId, TrustedRoot &root);

// The list installed for a root, verified again at now (it may have gone
// stale since). SSLCERT_EXT_ERR_CRL_MISSING when none is installed.
[[nodiscard]] uint32_t LoadRootCrl(const TrustedRoot &root, std::time_t now,
                                   UniquePtr<X509_CRL> &crl, const char **why);

// The check of LIB_SSL_CertRevokeCheck under a verified method, for the
// record of a client certificate.
[[nodiscard]] uint32_t CheckRevocationVerified(uint32_t certId, const CliCertInfo &record,
                                               const SSLRevocationPolicy &policy);

} // namespace bmccert::sslauth
