// What a responder or distribution point sends, as the revocation check
// reads it: the address a certificate names, the HTTP answer, the OCSP answer to a fixed question,
// and a revocation list for a fixed root. Refused or accepted, never a crash, a leak or an accepted
// answer that a forger could make (no input can carry the root's signature, so nothing here may
// pass as good).
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <openssl/ec.h>
#include <openssl/x509v3.h>

#include "sslauth/http_exchange.h"
#include "sslauth/revocation.h"

namespace {

using namespace bmccert;

struct Fixture {
    UniquePtr<EVP_PKEY> key;
    UniquePtr<X509> root, client;
    sslauth::OcspQuestion question;
};

UniquePtr<X509> Issue(EVP_PKEY *key, const char *name, long serial) {
    UniquePtr<X509> cert(X509_new());
    (void)X509_set_version(cert.get(), 2);
    (void)ASN1_INTEGER_set(X509_get_serialNumber(cert.get()), serial);
    X509_NAME *subject = X509_get_subject_name(cert.get());
    (void)X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                                     reinterpret_cast<const unsigned char *>(name), -1, -1, 0);
    X509_NAME *issuer = X509_get_issuer_name(cert.get());
    (void)X509_NAME_add_entry_by_txt(issuer, "CN", MBSTRING_ASC,
                                     reinterpret_cast<const unsigned char *>("Fuzz Root"), -1, -1,
                                     0);
    (void)ASN1_TIME_set_string_X509(X509_getm_notBefore(cert.get()), "20240101000000Z");
    (void)ASN1_TIME_set_string_X509(X509_getm_notAfter(cert.get()), "20440101000000Z");
    (void)X509_set_pubkey(cert.get(), key);
    (void)X509_sign(cert.get(), key, EVP_sha256());
    return cert;
}

const Fixture &TheFixture() {
    static const Fixture *const fixture = [] {
        auto *made = new Fixture;
        made->key.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
        made->root = Issue(made->key.get(), "Fuzz Root", 1);
        made->client = Issue(made->key.get(), "client", 2);
        if (!sslauth::MakeOcspQuestion(made->client.get(), made->root.get(), made->question))
            std::abort();
        return made;
    }();
    return *fixture;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::string_view bytes(reinterpret_cast<const char *>(data) + 1, size - 1);
    const Fixture &fixture = TheFixture();
    const char *why = "";
    switch (data[0] % 3) {
    case 0: {
        const auto answer = sslauth::ParseHttpAnswer(bytes, sslauth::kMaxOcspAnswerBytes);
        if (answer.body.size() > sslauth::kMaxOcspAnswerBytes) std::abort();
        // The address a certificate names: never a host or path that could
        // break the request line or add a header.
        sslauth::HttpTarget target;
        if (sslauth::ParseHttpUrl(bytes, sslauth::kMaxAddressLength, target) &&
            (target.host.empty() ||
             (target.host + target.path).find_first_of(" \r\n") != std::string::npos))
            std::abort();
        break;
    }
    case 1: {
        const SSLRevocationPolicy policy{SSLCERT_EXT_REVOCATION_OCSP, 0, 604800, 300};
        if (sslauth::VerifyOcspAnswer(bytes, fixture.question, fixture.root.get(), policy,
                                      1800000000, &why) == SSLCERT_OK)
            std::abort();
        break;
    }
    default: {
        UniquePtr<X509_CRL> crl;
        if (sslauth::ReadRootCrl(bytes, fixture.root.get(), 1800000000, crl, &why) == SSLCERT_OK)
            std::abort();
        break;
    }
    }
    ERR_clear_error();
    return 0;
}
