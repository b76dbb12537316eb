// The checks of a CA's answer to the pending request: PEM certificates
// only, a chain in order whose every further certificate is a CA, and a
// leaf for the pending key that may serve TLS now with a sound signature.
#include <openssl/pem.h>

#include "sslcert/cert_request.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr const char *kCertificateLabel = "CERTIFICATE";

// OpenSSL's parts of one PEM block, freed together.
struct PemBlock {
    char *name = nullptr;
    char *header = nullptr;
    unsigned char *data = nullptr;
    long length = 0;
    PemBlock() = default;
    PemBlock(const PemBlock &) = delete;
    PemBlock &operator=(const PemBlock &) = delete;
    ~PemBlock() {
        OPENSSL_free(name);
        OPENSSL_free(header);
        OPENSSL_free(data);
    }
};

// Reads the next block as a certificate; null at the end of the text
// (ended set) or for anything that is not one whole certificate.
UniquePtr<X509> NextCertificate(BIO *text, bool &ended) {
    PemBlock block;
    ERR_clear_error();
    if (PEM_read_bio(text, &block.name, &block.header, &block.data, &block.length) != 1) {
        ended = ERR_GET_REASON(ERR_peek_last_error()) == PEM_R_NO_START_LINE;
        ERR_clear_error();
        return nullptr;
    }
    if (std::strcmp(block.name, kCertificateLabel) != 0) return nullptr;
    const unsigned char *next = block.data;
    UniquePtr<X509> cert(d2i_X509(nullptr, &next, block.length));
    if (next != block.data + block.length) return nullptr; // bytes after the certificate
    return cert;
}

uint32_t Refuse(uint32_t code, const char *why, int index) {
    BMCCERT_DIAG(kLevelFailure, "Signed certificate verify failed! Certificate %d: %s.\n", index,
                 why);
    return code;
}

bool WeakSignature(const X509 *cert) {
    int digest = NID_undef;
    int keyType = NID_undef;
    if (OBJ_find_sigid_algs(X509_get_signature_nid(cert), &digest, &keyType) != 1) return false;
    return digest == NID_md5 || digest == NID_sha1 || digest == NID_md5_sha1;
}

} // namespace

uint32_t ReadSignedChain(std::string_view pem, CertChain &chain) {
    if (pem.size() > SSLCERT_EXT_SIGNED_MAX_BYTES) {
        BMCCERT_DIAG(kLevelFailure, "Signed certificate verify failed! %zu bytes, at most %u.\n",
                     pem.size(), SSLCERT_EXT_SIGNED_MAX_BYTES);
        return SSLCERT_EXT_ERR_SIGNED_TOO_BIG;
    }
    const UniquePtr<BIO> text(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    CertChain certs(sk_X509_new_null());
    if (!text || !certs) return Refuse(SSLCERT_EXT_ERR_SIGNED_NOT_PEM, "out of memory", 0);
    for (int index = 0;; ++index) {
        bool ended = false;
        UniquePtr<X509> cert = NextCertificate(text.get(), ended);
        if (ended && index > 0) break;
        if (!cert) return Refuse(SSLCERT_EXT_ERR_SIGNED_NOT_PEM, "not a whole PEM certificate", index);
        if (index == static_cast<int>(SSLCERT_EXT_SIGNED_MAX_CERTS))
            return Refuse(SSLCERT_EXT_ERR_CHAIN_TOO_LONG, "more than 8 certificates", index);
        if (sk_X509_push(certs.get(), cert.get()) == 0)
            return Refuse(SSLCERT_EXT_ERR_SIGNED_NOT_PEM, "out of memory", index);
        (void)cert.release(); // the chain owns it now
    }
    for (int index = 1; index < sk_X509_num(certs.get()); ++index) {
        X509 *issued = sk_X509_value(certs.get(), index - 1);
        X509 *issuer = sk_X509_value(certs.get(), index);
        if (X509_NAME_cmp(X509_get_issuer_name(issued), X509_get_subject_name(issuer)) != 0 ||
            X509_verify(issued, X509_get0_pubkey(issuer)) != 1) {
            ERR_clear_error();
            return Refuse(SSLCERT_EXT_ERR_CHAIN_ORDER, "not the issuer of the one before it",
                          index);
        }
        if (X509_check_ca(issuer) == 0)
            return Refuse(SSLCERT_EXT_ERR_CHAIN_NOT_CA, "not a CA", index);
    }
    chain = std::move(certs);
    return SSLCERT_OK;
}

uint32_t CheckLeafForPendingKey(X509 *leaf, const EVP_PKEY *pendingKey) {
    if (pendingKey == nullptr) {
        BMCCERT_DIAG(kLevelFailure, "Signed certificate verify failed! No signing request is "
                                    "pending.\n");
        return SSLCERT_EXT_ERR_NO_PENDING_KEY;
    }
    if (!SameKey(X509_get0_pubkey(leaf), pendingKey))
        return Refuse(SSLCERT_EXT_ERR_KEY_MISMATCH, "its key is not the pending key", 0);
    if (X509_check_purpose(leaf, X509_PURPOSE_SSL_SERVER, 0) != 1)
        return Refuse(SSLCERT_EXT_ERR_NOT_SERVER_CERT, "it may not serve TLS servers", 0);
    if (X509_cmp_current_time(X509_get0_notBefore(leaf)) >= 0 ||
        X509_cmp_current_time(X509_get0_notAfter(leaf)) <= 0)
        return Refuse(SSLCERT_EXT_ERR_NOT_VALID_NOW, "it is not valid now", 0);
    if (WeakSignature(leaf))
        return Refuse(SSLCERT_EXT_ERR_WEAK_SIGNATURE, "it is signed with MD5 or SHA-1", 0);
    ERR_clear_error();
    return SSLCERT_OK;
}

} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t LIB_SECURITY_SSL_CheckSignedCert(const char *pcPem, uint32_t uiPemLength) {
    BMCCERT_CHECK_NULL(pcPem, SSLCERT_ERR_NULL_POINTER);
    CertChain chain;
    if (const uint32_t result = ReadSignedChain({pcPem, uiPemLength}, chain); result != SSLCERT_OK)
        return result;
    const PendingRequest pending = LoadPendingRequest();
    return CheckLeafForPendingKey(sk_X509_value(chain.get(), 0), pending.key.get());
}
