// OCSP in process: the question with a nonce, and every check of the
// answer before its status counts. The order matters: nothing of an
// answer is believed before its signature and signer are.
#include <openssl/err.h>
#include <openssl/x509v3.h>

#include "sslauth/revocation.h"

namespace bmccert {
// Holds the stack only: its certificates belong to others.
template <> struct OpenSslDeleter<STACK_OF(X509)> {
    void operator()(STACK_OF(X509) * stack) const noexcept { sk_X509_free(stack); }
};
} // namespace bmccert

namespace bmccert::sslauth {
namespace {

// The one trust anchor of the verification: the root that issued the
// client certificate. The answer's own certificates are untrusted helpers.
UniquePtr<X509_STORE> StoreOf(X509 *issuer) {
    UniquePtr<X509_STORE> store(X509_STORE_new());
    if (store && X509_STORE_add_cert(store.get(), issuer) != 1) store.reset();
    return store;
}

uint32_t Refuse(uint32_t code, const char *reason, const char **why) {
    *why = reason;
    ERR_clear_error();
    return code;
}

// A signature that does not verify is told from a signer the root never
// authorised (self-signed, another CA's, or lacking OCSP signing).
uint32_t SignerFault(const char **why) {
    const unsigned long error = ERR_peek_last_error();
    if (ERR_GET_LIB(error) == ERR_LIB_OCSP && ERR_GET_REASON(error) == OCSP_R_SIGNATURE_FAILURE)
        return Refuse(SSLCERT_EXT_ERR_OCSP_SIGNATURE, "its signature does not verify", why);
    if (ERR_GET_LIB(error) == ERR_LIB_OCSP &&
        ERR_GET_REASON(error) == OCSP_R_MISSING_OCSPSIGNING_USAGE)
        return Refuse(SSLCERT_EXT_ERR_OCSP_SIGNER,
                      "its signer was not certified by the root for OCSP signing", why);
    return Refuse(SSLCERT_EXT_ERR_OCSP_SIGNER, "its signer is neither the root nor certified by it",
                  why);
}

// thisUpdate not ahead of now by more than the skew, not older than the
// maximum age; nextUpdate, where given, not passed and not before
// thisUpdate.
bool Fresh(ASN1_GENERALIZEDTIME *thisUpdate, ASN1_GENERALIZEDTIME *nextUpdate,
           const SSLRevocationPolicy &policy, std::time_t now) {
    const int64_t skew = policy.uiClockSkewSeconds;
    int64_t issued = 0, next = 0;
    if (!Asn1Seconds(thisUpdate, issued) || issued > now + skew ||
        issued < now - skew - static_cast<int64_t>(policy.uiMaxAgeSeconds))
        return false;
    return nextUpdate == nullptr ||
           (Asn1Seconds(nextUpdate, next) && next >= issued && next > now - skew);
}

} // namespace

bool MakeOcspQuestion(X509 *cert, X509 *issuer, OcspQuestion &question) {
    question.request.reset(OCSP_REQUEST_new());
    UniquePtr<OCSP_CERTID> asked(OCSP_cert_to_id(nullptr, cert, issuer));
    question.id.reset(asked ? OCSP_CERTID_dup(asked.get()) : nullptr);
    const bool made = question.request && question.id &&
                      OCSP_request_add0_id(question.request.get(), asked.get()) != nullptr &&
                      OCSP_request_add1_nonce(question.request.get(), nullptr, -1) == 1;
    if (made) (void)asked.release(); // the request owns it now
    ERR_clear_error();
    return made;
}

std::string EncodeOcspRequest(OCSP_REQUEST *request) {
    unsigned char *der = nullptr;
    const int length = i2d_OCSP_REQUEST(request, &der);
    std::string encoded;
    if (length > 0)
        encoded.assign(reinterpret_cast<const char *>(der), static_cast<size_t>(length));
    OPENSSL_free(der);
    return encoded;
}

uint32_t VerifyOcspAnswer(std::string_view der, const OcspQuestion &question, X509 *issuer,
                          const SSLRevocationPolicy &policy, std::time_t now, const char **why) {
    if (der.size() > kMaxOcspAnswerBytes)
        return Refuse(SSLCERT_EXT_ERR_ANSWER_TOO_BIG, "the answer is too big", why);
    const auto *cursor = reinterpret_cast<const unsigned char *>(der.data());
    const UniquePtr<OCSP_RESPONSE> response(
        d2i_OCSP_RESPONSE(nullptr, &cursor, static_cast<long>(der.size())));
    if (!response || cursor != reinterpret_cast<const unsigned char *>(der.data()) + der.size())
        return Refuse(SSLCERT_EXT_ERR_ANSWER_MALFORMED, "the answer is no OCSP answer", why);
    if (OCSP_response_status(response.get()) != OCSP_RESPONSE_STATUS_SUCCESSFUL)
        return Refuse(SSLCERT_EXT_ERR_ANSWER_MALFORMED, "the responder reports an error", why);
    const UniquePtr<OCSP_BASICRESP> basic(OCSP_response_get1_basic(response.get()));
    if (!basic) return Refuse(SSLCERT_EXT_ERR_ANSWER_MALFORMED, "the answer holds no status", why);

    const UniquePtr<X509_STORE> store = StoreOf(issuer);
    if (!store) return Refuse(SSLCERT_EXT_ERR_ANSWER_MALFORMED, "no memory to verify it", why);
    // No flag that trusts the signer unchecked: the signer is the root
    // itself or a certificate it issued with the OCSP-signing purpose.
    // The root is offered as a signer too: a root that signs its answers
    // itself need not include its certificate in them.
    const UniquePtr<STACK_OF(X509)> roots(sk_X509_new_null());
    if (!roots || sk_X509_push(roots.get(), issuer) <= 0)
        return Refuse(SSLCERT_EXT_ERR_ANSWER_MALFORMED, "no memory to verify it", why);
    if (OCSP_basic_verify(basic.get(), roots.get(), store.get(), 0) != 1) return SignerFault(why);
    // 1: echoed; -1: the responder does not echo nonces (many cache their
    // answers); 0: another nonce, a replayed answer.
    const int nonce = OCSP_check_nonce(question.request.get(), basic.get());
    if (nonce == 0)
        return Refuse(SSLCERT_EXT_ERR_OCSP_NONCE, "it echoes another nonce: a replay", why);

    int status = -1, reason = -1;
    ASN1_GENERALIZEDTIME *revokedAt = nullptr, *thisUpdate = nullptr, *nextUpdate = nullptr;
    if (OCSP_resp_find_status(basic.get(), question.id.get(), &status, &reason, &revokedAt,
                              &thisUpdate, &nextUpdate) != 1)
        return Refuse(SSLCERT_EXT_ERR_OCSP_WRONG_CERT,
                      "it holds no status of the certificate asked about", why);
    if (!Fresh(thisUpdate, nextUpdate, policy, now))
        return Refuse(SSLCERT_EXT_ERR_OCSP_STALE, "it is stale or not yet valid", why);
    switch (status) {
    case V_OCSP_CERTSTATUS_GOOD:
        ERR_clear_error();
        return SSLCERT_OK;
    case V_OCSP_CERTSTATUS_REVOKED:
        return Refuse(SSLCERT_EXT_ERR_REVOKED, "the certificate is revoked", why);
    default:
        return Refuse(SSLCERT_EXT_ERR_STATUS_UNKNOWN, "the responder does not know it", why);
    }
}

} // namespace bmccert::sslauth
