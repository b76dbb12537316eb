// Fitness of a temporary certificate to serve TLS: usable as an SSL server
// certificate, not signed with MD5, not expired.
#include <strings.h>
#include <unistd.h>

#include "sslcert/cert_policy.h"
#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr size_t kComparedChars = 3;

bool StartsWithIgnoringCase(const char *text, const char *prefix) {
    return strncasecmp(text, prefix, kComparedChars) == 0;
}

} // namespace
} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t SECURITY_SSL_VerifyTmpCert(uint32_t uiCertType) {
    SSLConfig config{};
    BMC_TimeStamp expiry = 0;

    if (SECURITY_SSL_GetSSLCertCommon(uiCertType, &config) != 0) {
        BMCCERT_DIAG(kLevelFailure, "Failed in get Tmp Cert Type = %d.Func:[%s].\n", uiCertType,
                     __func__);
        return SSLCERT_ERR_TMP_CERT_UNREAD;
    }
    if (!StartsWithIgnoringCase(config.szSSLServer, "Yes")) {
        BMCCERT_DIAG(kLevelFailure, "May not be a Webserver certificate \n");
        return SSLCERT_ERR_NOT_SERVER_CERT;
    }
    BMCCERT_DIAG(kLevelNotice, "Valid SSL certificate \n");

    // Only MD5 is refused here: what the policy finds weak beyond it (SHA-1,
    // a start in the future) is the health check's to report.
    if (policy::NamesMd5Signature(config.szSigAlgorithm)) {
        BMCCERT_DIAG(kLevelFailure, "Signature algorithm should not be md5.");
        return SSLCERT_ERR_MD5_SIGNATURE;
    }
    if (BMC_IsoTimeToTimeStamp(config.szExpDate, &expiry) != 0) {
        BMCCERT_DIAG(kLevelFailure, "Get SSL server Cert Expiration date failed \n");
        return SSLCERT_ERR_GENERAL;
    }
    if (policy::ExpiredBy(SecondsUntil(expiry))) {
        BMCCERT_DIAG(kLevelFailure, "The uploaded SSL Certificate is EXPIRED \n");
        return SSLCERT_ERR_CERT_EXPIRED;
    }
    return SSLCERT_OK;
}

extern "C" uint32_t SECURITY_SSL_VerifyGENTmpCert(void) {
    const uint32_t result = SECURITY_SSL_VerifyTmpCert(SSL_CERT_TYPE_GEN_TMP);
    if (result != SSLCERT_OK)
        BMCCERT_DIAG(kLevelFailure, "Failed to verify Gen TMP certificate. iRet=%d.\n", result);
    return result;
}

extern "C" uint32_t LIB_SECURITY_VerifyCert(void) {
    if (access(kGenCertPath, F_OK) != 0) {
        BMCCERT_DIAG(kLevelFailure, "File %s is not exist!\n", kGenCertPath);
        return SSLCERT_ERR_GENERAL;
    }
    if (const uint32_t result = SECURITY_SSL_VerifyGENTmpCert(); result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "Verify Gen TMP certificate failed! iRet=%d.\n", result);
        return SSLCERT_ERR_GENERAL;
    }
    return SSLCERT_OK;
}
