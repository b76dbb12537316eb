// Type code and modification times of a certificate's two files.
#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

// Writes a file's modification time as ISO time text into the field.
[[nodiscard]] bool WriteFileTime(const char *path, char *field, size_t fieldSize) {
    BMC_TimeStamp modified = 0;
    if (BMC_GetFileModifyTimeStamp(path, &modified) != 0) return false;
    (void)BMC_TimeStampToIsoTime(modified, static_cast<uint32_t>(fieldSize), field);
    return true;
}

} // namespace
} // namespace bmccert::sslcert

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

    if (!WriteFileTime(paths.cert, pstSSLCertKeyFileInfo->szCertFileTime,
                       sizeof pstSSLCertKeyFileInfo->szCertFileTime)) {
        BMCCERT_DIAG(kLevelFailure, "Get cert file time failed!\n");
        return SSLCERT_ERR_FILE_TIME;
    }
    if (!WriteFileTime(paths.key, pstSSLCertKeyFileInfo->szKeyFileTime,
                       sizeof pstSSLCertKeyFileInfo->szKeyFileTime)) {
        BMCCERT_DIAG(kLevelFailure, "Get privatekey file time failed!\n");
        return SSLCERT_ERR_FILE_TIME;
    }
    return SSLCERT_OK;
}
