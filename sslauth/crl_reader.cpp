// A certificate revocation list, read and verified against the root it is
// installed for before anything of it is used.
#include <openssl/err.h>
#include <openssl/pem.h>

#include "sslauth/revocation.h"

namespace bmccert::sslauth {
namespace {

uint32_t Refuse(uint32_t code, const char *reason, const char **why) {
    *why = reason;
    ERR_clear_error();
    return code;
}

UniquePtr<X509_CRL> Parse(std::string_view bytes) {
    const UniquePtr<BIO> pem(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
    UniquePtr<X509_CRL> crl(pem ? PEM_read_bio_X509_CRL(pem.get(), nullptr, nullptr, nullptr)
                                : nullptr);
    if (!crl) {
        const auto *cursor = reinterpret_cast<const unsigned char *>(bytes.data());
        crl.reset(d2i_X509_CRL(nullptr, &cursor, static_cast<long>(bytes.size())));
        if (cursor != reinterpret_cast<const unsigned char *>(bytes.data()) + bytes.size())
            crl.reset();
    }
    ERR_clear_error();
    return crl;
}

} // namespace

uint32_t CheckCrlTimes(const X509_CRL *crl, std::time_t now, const char **why) {
    int64_t issued = 0, due = 0;
    const ASN1_TIME *next = X509_CRL_get0_nextUpdate(crl);
    if (!Asn1Seconds(X509_CRL_get0_lastUpdate(crl), issued) || issued > now)
        return Refuse(SSLCERT_EXT_ERR_CRL_STALE, "not yet valid", why);
    if (next != nullptr && (!Asn1Seconds(next, due) || due <= now))
        return Refuse(SSLCERT_EXT_ERR_CRL_STALE, "past its next update", why);
    return SSLCERT_OK;
}

uint32_t ReadRootCrl(std::string_view bytes, X509 *root, std::time_t now, UniquePtr<X509_CRL> &crl,
                     const char **why) {
    if (bytes.size() > kMaxCrlBytes) return Refuse(SSLCERT_EXT_ERR_ANSWER_TOO_BIG, "too big", why);
    UniquePtr<X509_CRL> read = Parse(bytes);
    if (!read) return Refuse(SSLCERT_EXT_ERR_CRL_BAD, "not a revocation list", why);
    if (sk_X509_REVOKED_num(X509_CRL_get_REVOKED(read.get())) > kMaxCrlEntries)
        return Refuse(SSLCERT_EXT_ERR_CRL_BAD, "too many entries", why);
    if (X509_NAME_cmp(X509_CRL_get_issuer(read.get()), X509_get_subject_name(root)) != 0)
        return Refuse(SSLCERT_EXT_ERR_CRL_BAD, "issued by another CA than the root", why);
    EVP_PKEY *key = X509_get0_pubkey(root);
    if (key == nullptr || X509_CRL_verify(read.get(), key) != 1)
        return Refuse(SSLCERT_EXT_ERR_CRL_BAD, "not signed by the root", why);
    if (const uint32_t times = CheckCrlTimes(read.get(), now, why); times != SSLCERT_OK)
        return times;
    crl = std::move(read);
    ERR_clear_error();
    return SSLCERT_OK;
}

} // namespace bmccert::sslauth
