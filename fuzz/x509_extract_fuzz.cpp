// The X.509 extraction over arbitrary DER and PEM input: the five
// extractors and the name record, each on its own zero-filled record.
#include <cstdint>

#include <openssl/pem.h>
#include <openssl/x509.h>

#include "fuzz/fuzz_support.h"
#include "lib_security_sslcert.h"

namespace {

using Extractor = uint32_t (*)(X509 *, SSLConfig *);
constexpr Extractor kExtractors[] = {SECURITY_SSL_GetIssueFrom, SECURITY_SSL_GetIssueTo,
                                     SECURITY_SSL_ParseKeyUsage, SECURITY_SSL_GetCertVersion,
                                     SECURITY_SSL_GetPublicKeyLength};

X509 *ReadCert(const uint8_t *data, size_t size) {
    const unsigned char *der = data;
    if (X509 *cert = d2i_X509(nullptr, &der, static_cast<long>(size))) return cert;
    BIO *bio = BIO_new_mem_buf(data, static_cast<int>(size));
    if (bio == nullptr) return nullptr;
    X509 *cert = PEM_read_bio_X509(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    return cert;
}

bool NameTerminated(const SSLCertGenParam &name) {
    using bmcfuzz::Terminated;
    return Terminated(name.szCommonName) && Terminated(name.szOrganisation) &&
           Terminated(name.szOrganisationUnit) && Terminated(name.szLocalityName) &&
           Terminated(name.szStateName) && Terminated(name.szCountryCode) &&
           Terminated(name.szEmailAddress);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    bmcfuzz::RequireSandbox();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    bmcfuzz::KeepDiagLogSmall();
    X509 *cert = ReadCert(data, size);
    if (cert == nullptr) return 0;
    for (Extractor extract : kExtractors) {
        SSLConfig config{};
        const uint32_t result = extract(cert, &config);
        BMCFUZZ_CHECK(bmcfuzz::OneOf(result, {SSLCERT_OK, SSLCERT_ERR_GENERAL,
                                              SSLCERT_ERR_CERT_PARSE}));
        BMCFUZZ_CHECK(bmcfuzz::Terminated(config.szVersion) &&
                      bmcfuzz::Terminated(config.szKeyUsage));
        BMCFUZZ_CHECK(NameTerminated(config.stIssueFrom) && NameTerminated(config.stIssueTo));
    }
    SSLCertGenParam subject{};
    const uint32_t result = SECURITY_SSL_ParseSSLCert(X509_get_subject_name(cert), &subject);
    BMCFUZZ_CHECK(bmcfuzz::OneOf(result, {SSLCERT_OK, SSLCERT_ERR_GENERAL,
                                          SSLCERT_ERR_CERT_PARSE}));
    BMCFUZZ_CHECK(NameTerminated(subject));
    X509_free(cert);
    return 0;
}
