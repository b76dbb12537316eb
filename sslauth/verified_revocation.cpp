// The revocation check of a client certificate under a verified method:
// the file must be the certificate its record describes, the answer must
// come from its root, and a failure to get one obeys the operator's
// failure policy.
#include <openssl/x509v3.h>

#include <memory>

#include "frame/bounded_file.h"
#include "frame/record_file_name.h"
#include "sslauth/http_exchange.h"
#include "sslauth/revocation.h"
#include "sslauth/sslauth_internal.h"

namespace bmccert {
template <> struct OpenSslDeleter<STACK_OF(OPENSSL_STRING)> {
    void operator()(STACK_OF(OPENSSL_STRING) * addresses) const noexcept {
        X509_email_free(addresses);
    }
};
} // namespace bmccert

namespace bmccert::sslauth {
namespace {

constexpr int32_t kResultKindFailed = 1;
constexpr uint32_t kLogInterface = 0;

// The serial exactly as the record's owner wrote it at the import.
std::string SerialText(X509 *cert) {
    const UniquePtr<BIO> bio(BIO_new(BIO_s_mem()));
    char *data = nullptr;
    if (!bio || i2a_ASN1_INTEGER(bio.get(), X509_get0_serialNumber(cert)) <= 0) return {};
    const long length = BIO_get_mem_data(bio.get(), &data);
    return length > 0 ? std::string(data, static_cast<size_t>(length)) : std::string();
}

// Its serial, and a signature of its root: a record that names another
// file, good or not, does not get that file's answer.
bool IsRecordsCertificate(X509 *cert, const CliCertInfo &record, const TrustedRoot &root) {
    EVP_PKEY *rootKey = X509_get0_pubkey(root.cert.get());
    const bool matches = SerialText(cert) == FieldView(record.szSerialNum) &&
                         X509_check_issued(root.cert.get(), cert) == X509_V_OK &&
                         rootKey != nullptr && X509_verify(cert, rootKey) == 1;
    ERR_clear_error();
    return matches;
}

uint32_t AskOcsp(X509 *cert, const TrustedRoot &root, const SSLRevocationPolicy &policy,
                 const char **why) {
    const UniquePtr<STACK_OF(OPENSSL_STRING)> addresses(X509_get1_ocsp(cert));
    HttpTarget target;
    const char *address = sk_OPENSSL_STRING_num(addresses.get()) > 0
                              ? sk_OPENSSL_STRING_value(addresses.get(), 0)
                              : nullptr;
    if (address == nullptr || !ParseHttpUrl(address, kMaxAddressLength, target)) {
        *why = "the certificate names no http:// responder of at most 63 bytes";
        return SSLCERT_EXT_ERR_NO_RESPONDER;
    }
    OcspQuestion question;
    if (!MakeOcspQuestion(cert, root.cert.get(), question)) {
        *why = "the question could not be made";
        return SSLCERT_EXT_ERR_ANSWER_MALFORMED;
    }
    const HttpAnswer answer =
        HttpExchange(target, "application/ocsp-request", EncodeOcspRequest(question.request.get()),
                     kMaxOcspAnswerBytes, kRevocationTimeoutMs);
    switch (answer.outcome) {
    case HttpOutcome::kOk:
        return VerifyOcspAnswer(answer.body, question, root.cert.get(), policy, std::time(nullptr),
                                why);
    case HttpOutcome::kTooBig:
        *why = "the answer is too big";
        return SSLCERT_EXT_ERR_ANSWER_TOO_BIG;
    case HttpOutcome::kMalformed:
        *why = "the answer is not HTTP";
        return SSLCERT_EXT_ERR_ANSWER_MALFORMED;
    case HttpOutcome::kRefused:
        *why = "the responder answered with another status than 200 (a redirect is not followed)";
        return SSLCERT_EXT_ERR_UNREACHABLE;
    case HttpOutcome::kUnreachable:
        break;
    }
    *why = "no answer within 2 seconds";
    return SSLCERT_EXT_ERR_UNREACHABLE;
}

uint32_t CheckCrl(X509 *cert, const TrustedRoot &root, const char **why) {
    UniquePtr<X509_CRL> crl;
    uint32_t loaded = LoadRootCrl(root, std::time(nullptr), crl, why);
    if (loaded == SSLCERT_EXT_ERR_CRL_STALE) {
        // Renewed from the distribution point before it is used; where it
        // cannot be, the failure policy decides on the stale list.
        const uint32_t fetched = LIB_SECURITY_SSL_FetchRootCRL(root.entry.uiCertId);
        if (fetched == SSLCERT_OK || fetched == SSLCERT_EXT_ERR_CRL_NOT_SERVED)
            loaded = LoadRootCrl(root, std::time(nullptr), crl, why);
    }
    if (loaded != 0) return loaded;
    // The list was verified against the root, and the certificate was
    // found signed by that same root: a lookup by serial is the whole
    // decision (what X509_V_FLAG_CRL_CHECK decides for this one-level
    // chain, without verifying both signatures again at every login).
    X509_REVOKED *entry = nullptr;
    const int listed = X509_CRL_get0_by_cert(crl.get(), &entry, cert);
    ERR_clear_error();
    if (listed == 0) return SSLCERT_OK;
    // 2 is an entry that removes a certificate from hold: not revoked.
    if (listed == 2) return SSLCERT_OK;
    *why = "the list names it";
    return SSLCERT_EXT_ERR_REVOKED;
}

// No usable answer: the failure policy decides. An answer that says
// revoked or unknown, or one that fails its verification, is a usable
// answer that refuses.
bool IsNoAnswer(uint32_t code) {
    switch (code) {
    case SSLCERT_EXT_ERR_NO_RESPONDER:
    case SSLCERT_EXT_ERR_UNREACHABLE:
    case SSLCERT_EXT_ERR_ANSWER_TOO_BIG:
    case SSLCERT_EXT_ERR_ANSWER_MALFORMED:
    case SSLCERT_EXT_ERR_OCSP_STALE:
    case SSLCERT_EXT_ERR_CRL_MISSING:
    case SSLCERT_EXT_ERR_CRL_STALE:
        return true;
    default:
        return false;
    }
}

} // namespace

uint32_t LoadTrustedRoot(uint32_t rootId, TrustedRoot &root) {
    if (IdOutOfRange(rootId, SSL_AUTH_MAX_CERTS)) return SSL_AUTH_ERR_NO_ISSUER;
    auto roots = std::make_unique<RootCertList>();
    if (const uint32_t read = LIB_SSL_GetRootCertList(roots.get()); read != SSLCERT_OK) return read;
    root.entry = roots->astRootCert[rootId - 1];
    if (root.entry.uiCertId != rootId) return SSL_AUTH_ERR_NO_ISSUER;
    root.cert = ReadCertificateFile(OpenPlainFileIn(kRootCertDir, root.entry.szFileName));
    return root.cert ? SSLCERT_OK : SSL_AUTH_ERR_NO_ISSUER;
}

uint32_t CheckRevocationVerified(uint32_t certId, const CliCertInfo &record,
                                 const SSLRevocationPolicy &policy) {
    const UniquePtr<X509> cert =
        ReadCertificateFile(OpenPlainFileIn(kClientCertDir, record.szFileName));
    TrustedRoot root;
    if (const uint32_t loaded = LoadTrustedRoot(record.uiRootCertId, root); loaded != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "ClientCert id=%u: its root id=%u cannot be read.\n", certId,
                     record.uiRootCertId);
        return loaded;
    }
    if (!cert || !IsRecordsCertificate(cert.get(), record, root)) {
        BMCCERT_DIAG(kLevelHandling,
                     "ClientCert id=%u: the file is not the certificate its record describes.\n",
                     certId);
        return SSLCERT_EXT_ERR_CERT_NOT_RECORD;
    }
    const char *why = "";
    const char *method = "CRL";
    uint32_t result = SSLCERT_EXT_ERR_CRL_MISSING;
    if (policy.uiMethod != SSLCERT_EXT_REVOCATION_CRL) {
        method = "OCSP";
        result = AskOcsp(cert.get(), root, policy, &why);
        // A stale answer is an answer: only silence falls back to the list.
        if (policy.uiMethod == SSLCERT_EXT_REVOCATION_OCSP_CRL && IsNoAnswer(result) &&
            result != SSLCERT_EXT_ERR_OCSP_STALE) {
            BMCCERT_DIAG(kLevelNotice, "ClientCert id=%u: OCSP gave no answer (%s): the list.\n",
                         certId, why);
            method = "CRL";
            result = CheckCrl(cert.get(), root, &why);
        }
    } else {
        result = CheckCrl(cert.get(), root, &why);
    }
    if (result == SSLCERT_OK) return SSLCERT_OK;
    BMCCERT_DIAG(kLevelHandling, "ClientCert id=%u refused by %s: %s.\n", certId, method, why);
    if (policy.uiOnFailure == SSLCERT_EXT_ON_FAILURE_ALLOW && IsNoAnswer(result)) {
        const std::string text = "Client certificate " + std::to_string(certId) +
                                 " let in without a revocation answer (" + method + ": " + why +
                                 ").";
        (void)OPERATELOG_AddLogComm(kLogInterface, kResultKindFailed, text.c_str(), "", "",
                                    __LINE__, SSLCERT_OPERATE_LOG_CLASS);
        return SSLCERT_OK;
    }
    return result;
}

} // namespace bmccert::sslauth
