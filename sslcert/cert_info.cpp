// The information record of the server certificate in force, cached in the
// configuration database and rebuilt from the files when the cache has none.
#include <climits>
#include <cmath>
#include <cstring>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr int32_t kSecondsPerDay = 86400;

// A record read back from the database may have been damaged: every text
// of it ends inside its field before anything reads it.
void EndInfoTexts(SSLCertInfo &info) {
    SSLCertKeyFileInfo &files = info.stKeyFileInfo;
    SSLConfig &config = info.stSSLConfig;
    EndText(files.szCertFileTime);
    EndText(files.szKeyFileTime);
    for (auto *text :
         {&config.szVersion, &config.szSerialNum, &config.szSigAlgorithm, &config.szPublicKey,
          &config.szStartDate, &config.szExpDate, &config.szSSLServer})
        EndText(*text);
    EndText(config.szKeyUsage);
    EndTexts(config.stIssueFrom);
    EndTexts(config.stIssueTo);
}

// Renders the four time fields again from their stored text, so that a
// record always shows the platform's current rendering.
void RerenderTimes(SSLCertInfo &info) {
    SSLCertKeyFileInfo &files = info.stKeyFileInfo;
    SSLConfig &config = info.stSSLConfig;
    BMC_TimeStamp certTime = 0, keyTime = 0, startTime = 0, expTime = 0;
    (void)BMC_IsoTimeToTimeStamp(files.szCertFileTime, &certTime);
    (void)BMC_IsoTimeToTimeStamp(files.szKeyFileTime, &keyTime);
    (void)BMC_IsoTimeToTimeStamp(config.szStartDate, &startTime);
    (void)BMC_IsoTimeToTimeStamp(config.szExpDate, &expTime);
    (void)BMC_TimeStampToIsoTime(certTime, sizeof files.szCertFileTime, files.szCertFileTime);
    (void)BMC_TimeStampToIsoTime(keyTime, sizeof files.szKeyFileTime, files.szKeyFileTime);
    (void)BMC_TimeStampToIsoTime(startTime, sizeof config.szStartDate, config.szStartDate);
    (void)BMC_TimeStampToIsoTime(expTime, sizeof config.szExpDate, config.szExpDate);
}

// Truncates toward zero and saturates at the limits of a signed 32-bit value.
int32_t SaturatingSeconds(double seconds) {
    if (std::isnan(seconds)) return 0;
    if (seconds >= static_cast<double>(INT32_MAX)) return INT32_MAX;
    if (seconds <= static_cast<double>(INT32_MIN)) return INT32_MIN;
    return static_cast<int32_t>(seconds);
}

} // namespace

uint32_t SECURITY_PutCertInfo(const SSLCertInfo *pstSSLCertInfo) {
    BMCCERT_CHECK_NULL(pstSSLCertInfo, SSLCERT_ERR_NULL_POINTER);

    BMC_Db *pDb = DB_GetCurrentDb();
    BMCCERT_CHECK_NULL(pDb, SSLCERT_ERR_NO_DB);

    const int32_t result = DB_PutInternal(__FILE_NAME__, __LINE__, pDb, SSLCERT_INFO_DB_KEY,
                                          sizeof *pstSSLCertInfo, pstSSLCertInfo);
    if (result != 0) {
        BMCCERT_DIAG(kLevelFailure, "Filed to put data to db, iRet = %d.", result);
        return SSLCERT_ERR_DB_WRITE;
    }
    return SSLCERT_OK;
}

} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t SECURITY_GetCertInfoFromDB(SSLCertInfo *pstSSLCertInfo) {
    BMCCERT_CHECK_NULL(pstSSLCertInfo, SSLCERT_MGMT_INFO_UNAVAILABLE);

    BMC_Db *db = DB_GetCurrentDb();
    if (db == nullptr) {
        BMCCERT_DIAG(kLevelFailure, "Get db handle failed");
        return SSLCERT_MGMT_INFO_UNAVAILABLE;
    }
    const int32_t result = DB_Get(db, SSLCERT_INFO_DB_KEY, sizeof *pstSSLCertInfo, pstSSLCertInfo);
    if (result != 0) {
        BMCCERT_DIAG(kLevelFailure, "Failed to get cert config data from DB. iRet=%d.", result);
        return SSLCERT_MGMT_INFO_UNAVAILABLE;
    }
    EndInfoTexts(*pstSSLCertInfo);
    RerenderTimes(*pstSSLCertInfo);
    return SSLCERT_OK;
}

extern "C" uint32_t SECURITY_GetCertInfoFromFile(SSLCertInfo *pstSSLCertInfo) {
    BMCCERT_CHECK_NULL(pstSSLCertInfo, SSLCERT_ERR_NULL_POINTER);

    const uint32_t certType = LIB_SECURITY_GetCertType();
    if (certType == SSL_CERT_TYPE_NONE) {
        BMCCERT_DIAG(kLevelFailure, "Get SSL cert type failed! Cert type = %d.", certType);
        return SSLCERT_ERR_GENERAL;
    }

    uint32_t result = SECURITY_SSL_GetSSLCertAttributes(certType, &pstSSLCertInfo->stKeyFileInfo);
    if (result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "Get SSL cert attributes info failed! Ret = %d.", result);
        return result;
    }
    result = static_cast<uint32_t>(
        SECURITY_SSL_GetSSLCertCommon(certType, &pstSSLCertInfo->stSSLConfig));
    if (result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "Get SSL cert common info failed! Ret = %d.", result);
        return result;
    }
    result = SECURITY_SSL_GetSSLCertX509_Parse(certType, &pstSSLCertInfo->stSSLConfig);
    if (result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "Get SSL cert X509_Parse info failed! Ret = %d.", result);
        return result;
    }
    return SSLCERT_OK;
}

extern "C" int32_t SECURITY_UpdateCertInfo(void) {
    SSLCertInfo info{};
    uint32_t result = SECURITY_GetCertInfoFromFile(&info);
    if (result != SSLCERT_OK) {
        // The stored record stays as it was.
        BMCCERT_DIAG(kLevelFailure, "Failed to get cert info from file, iRet = %d.", result);
        return static_cast<int32_t>(result);
    }
    result = SECURITY_PutCertInfo(&info);
    if (result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "Failed to put cert config data to db, iRet = %d.", result);
        return static_cast<int32_t>(result);
    }
    return static_cast<int32_t>(SSLCERT_OK);
}

extern "C" uint32_t LIB_SECURITY_GetCertInfo(SSLCertInfo *pstSSLCertInfo) {
    BMCCERT_CHECK_NULL(pstSSLCertInfo, SSLCERT_MGMT_INFO_UNAVAILABLE);

    // The database answers far more often than the certificate changes;
    // only a missing or unreadable record costs a run of the openssl tool.
    if (SECURITY_GetCertInfoFromDB(pstSSLCertInfo) == SSLCERT_OK) return SSLCERT_OK;

    uint32_t result = SECURITY_GetCertInfoFromFile(pstSSLCertInfo);
    if (result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "Failed to get cert config data from DB and file. iRet=%d.",
                     result);
        return SSLCERT_MGMT_INFO_UNAVAILABLE;
    }
    result = SECURITY_PutCertInfo(pstSSLCertInfo);
    if (result != SSLCERT_OK) {
        // The caller still gets the information read from the files.
        BMCCERT_DIAG(kLevelFailure, "Failed to put cert config data to DB. iRet=%d.", result);
    }
    return SSLCERT_OK;
}

extern "C" int32_t LIB_SECURITY_GetCertLeftExpires(void) {
    SSLCertInfo info{};
    BMC_TimeStamp expiry = 0;

    const uint32_t result = LIB_SECURITY_GetCertInfo(&info);
    if (result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "Get cert info fail, iRet = %d.", result);
        return 0;
    }
    const int32_t parsed = BMC_IsoTimeToTimeStamp(info.stSSLConfig.szExpDate, &expiry);
    if (parsed != 0) {
        BMCCERT_DIAG(kLevelFailure, "Failed to trans ExpDate=%s to TimeStamp. iRet: %d",
                     info.stSSLConfig.szExpDate, parsed);
        return 0;
    }
    const double secondsLeft = SecondsUntil(expiry);
    const int32_t seconds = SaturatingSeconds(secondsLeft);
    if (seconds < 0) return 0;
    return seconds / kSecondsPerDay;
}
