// Generate and restart with a certificate request: a self-signed
// certificate for the controller's real names on any of the extension's
// key types, made inside the process and put in service as a generation's.
#include <sys/stat.h>

#include <openssl/pem.h>

#include "sslcert/cert_request.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr int kSerialBits = 159; // positive and under 20 bytes, as RFC 5280 asks
constexpr long kSecondsPerDay = 86400;

UniquePtr<X509> MakeSelfSigned(const SSLCertRequest &request, EVP_PKEY *key) {
    UniquePtr<X509> cert(X509_new());
    UniquePtr<X509_NAME> subject = SubjectName(request);
    UniquePtr<BIGNUM> serial(BN_new());
    if (!cert || !subject || !serial || X509_set_version(cert.get(), 2) != 1 ||
        BN_rand(serial.get(), kSerialBits, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY) != 1 ||
        BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(cert.get())) == nullptr ||
        X509_set_subject_name(cert.get(), subject.get()) != 1 ||
        X509_set_issuer_name(cert.get(), subject.get()) != 1 ||
        X509_gmtime_adj(X509_getm_notBefore(cert.get()), 0) == nullptr ||
        X509_gmtime_adj(X509_getm_notAfter(cert.get()),
                        static_cast<long>(request.uiValidDays) * kSecondsPerDay) == nullptr ||
        X509_set_pubkey(cert.get(), key) != 1)
        return nullptr;
    const ExtensionStack extensions = ServerExtensions(request, key, cert.get());
    for (int i = 0; extensions && i < sk_X509_EXTENSION_num(extensions.get()); ++i)
        if (X509_add_ext(cert.get(), sk_X509_EXTENSION_value(extensions.get(), i), -1) != 1)
            return nullptr;
    if (!extensions || X509_sign(cert.get(), key, SigningDigest(key)) <= 0) return nullptr;
    return cert;
}

// The new pair as the generation's temporary pair, then installed.
uint32_t GenerateAndInstall(const SSLCertRequest &request) {
    const UniquePtr<EVP_PKEY> key = MakeKeyPair(request);
    const UniquePtr<X509> cert = key ? MakeSelfSigned(request, key.get()) : nullptr;
    PemText certText;
    PemText keyText;
    if (!cert || certText.bio() == nullptr || keyText.bio() == nullptr ||
        PEM_write_bio_X509(certText.bio(), cert.get()) != 1 ||
        PEM_write_bio_PrivateKey(keyText.bio(), key.get(), nullptr, nullptr, 0, nullptr,
                                 nullptr) != 1) {
        if (key) BMCCERT_DIAG(kLevelFailure, "Make the self-signed certificate failed!\n");
        ERR_clear_error();
        return SSLCERT_EXT_ERR_KEY_GENERATION;
    }
    if (!WriteSyncedFile(kGenCertPath, certText.view(), S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH) ||
        !WriteSyncedFile(kGenKeyPath, keyText.view(), S_IRUSR | S_IWUSR) ||
        SECURITY_SSL_UpdateSSLCert(kGenCertPath, kGenKeyPath) != SSLCERT_OK)
        return InstallationFailureCode();
    return SSLCERT_OK;
}

uint32_t GenerateAndRestart(const SSLCertRequest &request) {
    if (const uint32_t result = GenerateAndInstall(request); result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "Generate Cert:gen cert failed! iRet=%d\n", result);
        return result;
    }
    if (const int32_t result = RestartServiceNow(kTunnelService); result != 0) {
        BMCCERT_DIAG(kLevelFailure,
                     "Generate Cert:installed, but restart stunnel service failed! iRet=%d.\n",
                     result);
        return SSLCERT_EXT_ERR_RESTART;
    }
    if (const uint32_t result = RestartWebServerLater(); result != 0) {
        BMCCERT_DIAG(kLevelFailure,
                     "Generate Cert:installed, but restart lighttpd service failed! iRet=%d.\n",
                     result);
        return SSLCERT_EXT_ERR_RESTART;
    }
    return SSLCERT_OK;
}

} // namespace
} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t LIB_SECURITY_SSL_GenSelfSignedAndRestart(const SSLCertRequest *pstRequest,
                                                             OperateDesc *pstOperateLog) {
    BMCCERT_CHECK_NULL(pstRequest, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstOperateLog, SSLCERT_ERR_NULL_POINTER);
    uint32_t result = CheckCertRequest(*pstRequest, true);
    if (result == SSLCERT_OK) {
        // Held until the temporary pair is gone, as a generation holds it.
        const InstallationLock installing;
        if (installing.Held()) {
            result = GenerateAndRestart(*pstRequest);
            RemoveScratchFileReported(kGenCertPath);
            RemoveScratchFileReported(kGenKeyPath);
        } else {
            result = SSLCERT_EXT_ERR_LOCK;
        }
    }
    SECURITY_SetSSLCertOperateLogDes(result == SSLCERT_OK ? kOutcomeGenDone : kOutcomeGenFailed,
                                     pstOperateLog);
    return result;
}
