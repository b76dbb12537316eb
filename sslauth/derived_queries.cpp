// Answers that need more than one record: the client certificates of a
// root certificate, a client certificate with its user, the users still
// free for a certificate, and whether a client certificate belongs to a
// root certificate. Outputs are written only after every read succeeded.

#include "sslauth/sslauth_internal.h"

namespace bmccert::sslauth {

using namespace bmccert;

uint32_t SSL_CheckRootCertValidPeriod(uint32_t uiRootCertId) {
    if (IdOutOfRange(uiRootCertId, SSL_AUTH_MAX_CERTS)) {
        BMCCERT_DIAG(kLevelHandling, "CertId=%d out of range.", static_cast<int>(uiRootCertId));
        return SSL_AUTH_ERR_ROOT_ABSENT;
    }
    auto list = ZeroedRecord<RootCertList>();
    const uint32_t result = LIB_SSL_GetRootCertList(&list);
    if (result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get RootCertList failed, iRet=%d.",
                     static_cast<int32_t>(result));
        return SSL_AUTH_ERR_ROOT_LIST_READ;
    }
    const RootCertInfo &entry = list.astRootCert[uiRootCertId - 1];
    if (SecondsUntil(entry.iExpTime) < 0.0) {
        char expDate[sizeof entry.szExpDate] = {};
        std::memcpy(expDate, entry.szExpDate, strnlen(entry.szExpDate, sizeof expDate - 1));
        BMCCERT_DIAG(kLevelHandling, "Cert ValidPeriod already pass, szExpDate=%s.", expDate);
        return SSL_AUTH_ERR_ROOT_EXPIRED;
    }
    return SSLCERT_OK;
}

} // namespace bmccert::sslauth

using namespace bmccert;
using namespace bmccert::sslauth;

extern "C" uint32_t LIB_SSL_GetClientCertListByRoot(uint32_t uiRootCertId, uint32_t *puiCliCertCnt,
                                                    CliCertInfo *pstCliCertList) {
    BMCCERT_CHECK_NULL(puiCliCertCnt, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstCliCertList, SSLCERT_ERR_NULL_POINTER);
    auto root = ZeroedRecord<RootCertInfo>();
    if (LIB_SSL_IsExistRootCert(uiRootCertId, &root) != 1) {
        BMCCERT_DIAG(kLevelHandling, "RootCert id=%d is not exist.",
                     static_cast<int>(uiRootCertId));
        return SSL_AUTH_MGMT_CERT_ABSENT;
    }
    auto list = ZeroedRecord<CliCertList>();
    if (LIB_SSL_GetClientCertList(&list) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get ClientCertList failed.\n");
        return kMgmtQueryFailed;
    }
    uint32_t count = 0;
    for (const CliCertInfo &entry : list.astCliCert) {
        if (entry.uiRootCertId == uiRootCertId) pstCliCertList[count++] = entry;
    }
    *puiCliCertCnt = count;
    return SSLCERT_OK;
}

extern "C" uint32_t LIB_SSL_GetClientCertInfo(uint32_t uiCertId, CliCertDetail *pstCliCertInfo) {
    BMCCERT_CHECK_NULL(pstCliCertInfo, kMgmtQueryFailed);
    if (IdOutOfRange(uiCertId, SSL_AUTH_MAX_CERTS)) {
        BMCCERT_DIAG(kLevelHandling, "Cert id=%d out of range.\n", static_cast<int>(uiCertId));
        return kMgmtIdOutOfRange;
    }
    auto certs = ZeroedRecord<CliCertList>();
    if (LIB_SSL_GetClientCertList(&certs) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get ClientCertList failed.\n");
        return kMgmtQueryFailed;
    }
    const CliCertInfo &entry = certs.astCliCert[uiCertId - 1];
    if (entry.uiCertId != uiCertId) {
        BMCCERT_DIAG(kLevelHandling, "ClinetCert id=%u is not exist.\n", uiCertId);
        return SSL_AUTH_MGMT_CERT_ABSENT;
    }
    auto bindings = ZeroedRecord<CliCertUserList>();
    if (LIB_SSL_GetClientCertUserList(&bindings) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get ClientCert UserList failed.\n");
        return kMgmtQueryFailed;
    }
    UserTable pstUserInfo;
    if (!pstUserInfo.Allocated()) {
        BMCCERT_REPORT_NULL(pstUserInfo);
        return SSLCERT_ERR_GENERAL;
    }
    const int32_t userResult = LIB_USER_GetUserInfo(pstUserInfo.Data());
    if (userResult != 0) {
        BMCCERT_DIAG(kLevelHandling, "Failed to get UserList, iRet=%d.\n", userResult);
        return kMgmtQueryFailed;
    }
    pstCliCertInfo->stCliCertInfo = entry;
    for (uint32_t k = 0; k < SSL_AUTH_MAX_USERS; ++k) {
        if (bindings.astCertUser[k].uiCliCertId != uiCertId) continue;
        // Only the first user naming the certificate counts.
        if (pstUserInfo.UserId(k) != 0) pstUserInfo.FillBrief(k, pstCliCertInfo->stUser);
        break;
    }
    return SSLCERT_OK;
}

extern "C" uint32_t LIB_SSL_GetUsableUserList(UsableUserList *pstUsableUser) {
    BMCCERT_CHECK_NULL(pstUsableUser, SSLCERT_ERR_NULL_POINTER);
    auto bindings = ZeroedRecord<CliCertUserList>();
    const uint32_t listResult = LIB_SSL_GetClientCertUserList(&bindings);
    if (listResult != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get ClientCert UserList failed.\n");
        return listResult;
    }
    UserTable pstUserInfo;
    if (!pstUserInfo.Allocated()) {
        BMCCERT_REPORT_NULL(pstUserInfo);
        return SSLCERT_ERR_GENERAL;
    }
    const int32_t userResult = LIB_USER_GetUserInfo(pstUserInfo.Data());
    if (userResult != 0) {
        BMCCERT_DIAG(kLevelHandling, "Failed to get UserList, iRet=%d.\n", userResult);
        return static_cast<uint32_t>(userResult);
    }
    uint32_t count = 0;
    for (uint32_t k = 0; k < SSL_AUTH_MAX_USERS; ++k) {
        if (pstUserInfo.UserId(k) == 0 || bindings.astCertUser[k].uiCliCertId != 0) continue;
        pstUserInfo.FillBrief(k, pstUsableUser->astUser[count++]);
    }
    pstUsableUser->uiUserCnt = count;
    return SSLCERT_OK;
}

extern "C" uint8_t LIB_SSL_IsCorrectCertRelation(uint32_t uiRootCertId, uint32_t uiCliCertId) {
    auto root = ZeroedRecord<RootCertInfo>();
    if (LIB_SSL_IsExistRootCert(uiRootCertId, &root) != 1) {
        BMCCERT_DIAG(kLevelHandling, "RootCert not exist.\n");
        return 0;
    }
    if (IdOutOfRange(uiCliCertId, SSL_AUTH_MAX_CERTS)) {
        BMCCERT_DIAG(kLevelHandling, "CertId=%d out of range.\n", static_cast<int>(uiCliCertId));
        return 0;
    }
    auto certs = ZeroedRecord<CliCertList>();
    if (LIB_SSL_GetClientCertList(&certs) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get ClientCertList failed.\n");
        return 0;
    }
    const CliCertInfo &entry = certs.astCliCert[uiCliCertId - 1];
    if (entry.uiCertId != uiCliCertId) {
        BMCCERT_DIAG(kLevelHandling, "ClinetCertId=%u is Diff.\n", uiCliCertId);
        return 0;
    }
    if (entry.uiRootCertId != uiRootCertId) {
        BMCCERT_DIAG(kLevelHandling, "RootCert and ClinetCert no binding.\n");
        return 0;
    }
    return 1;
}
