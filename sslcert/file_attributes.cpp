// Type code and modification times of a certificate's two files.
#include "sslcert/sslcert_internal.h"

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t SECURITY_SSL_GetSSLCertAttributes(uint32_t uiCertType,
                                                      SSLCertKeyFileInfo *pstSSLCertKeyFileInfo) {
    BMCCERT_CHECK_NULL(pstSSLCertKeyFileInfo, SSLCERT_ERR_NULL_POINTER);

    // The type is recorded before anything else can fail.
    pstSSLCertKeyFileInfo->ucCertType = static_cast<uint8_t>(uiCertType);

    CertKeyPaths paths;
    if (!LookupCertKeyPaths(uiCertType, paths, "SECURITY_SSL_GetSSLCertAttributes"))
        return SSLCERT_ERR_GENERAL;

    BMC_TimeStamp certTime = 0;
    if (BMC_GetFileModifyTimeStamp(paths.cert, &certTime) != 0) {
        BMCCERT_DIAG(kLevelFailure, "Get cert file time failed!\n");
        return SSLCERT_ERR_FILE_TIME;
    }
    (void)BMC_TimeStampToIsoTime(certTime, sizeof pstSSLCertKeyFileInfo->szCertFileTime,
                                 pstSSLCertKeyFileInfo->szCertFileTime);

    BMC_TimeStamp keyTime = 0;
    if (BMC_GetFileModifyTimeStamp(paths.key, &keyTime) != 0) {
        BMCCERT_DIAG(kLevelFailure, "Get privatekey file time failed!\n");
        return SSLCERT_ERR_FILE_TIME;
    }
    (void)BMC_TimeStampToIsoTime(keyTime, sizeof pstSSLCertKeyFileInfo->szKeyFileTime,
                                 pstSSLCertKeyFileInfo->szKeyFileTime);
    return SSLCERT_OK;
}
