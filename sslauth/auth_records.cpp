// The six client-authentication records, read whole from the configuration
// database on every call. Their owner is the daemon that receives the
// remote procedure calls; this unit only reads them.
#include "sslauth/sslauth_internal.h"

namespace bmccert::sslauth {
namespace {

using namespace bmccert;

enum class Read { Ok, NoDb, Failed };

[[nodiscard]] Read ReadRecord(uint32_t key, uint32_t size, void *buffer) {
    BMC_Db *db = DB_GetCurrentDb();
    if (db == nullptr) {
        BMCCERT_DIAG(kLevelFailure, "Get db handle failed");
        return Read::NoDb;
    }
    return DB_Get(db, key, size, buffer) == 0 ? Read::Ok : Read::Failed;
}

// The list readers tell a missing handle from a failed read.
[[nodiscard]] uint32_t ReadList(uint32_t key, uint32_t size, void *buffer,
                                const char *failureText) {
    switch (ReadRecord(key, size, buffer)) {
    case Read::Ok:
        return SSLCERT_OK;
    case Read::NoDb:
        return SSLCERT_ERR_GENERAL;
    case Read::Failed:
        break;
    }
    BMCCERT_DIAG(kLevelHandling, "%s", failureText);
    return SSLCERT_ERR_DB_READ;
}

} // namespace
} // namespace bmccert::sslauth

using namespace bmccert;
using namespace bmccert::sslauth;

extern "C" uint32_t LIB_SSL_GetCertAuthState(uint8_t *pbState) {
    BMCCERT_CHECK_NULL(pbState, kMgmtStateRead);
    const Read read = ReadRecord(SSL_AUTH_DB_KEY_STATE, sizeof *pbState, pbState);
    if (read == Read::Failed) BMCCERT_DIAG(kLevelHandling, "Failed to get CertAuthState from DB.");
    return read == Read::Ok ? SSLCERT_OK : kMgmtStateRead;
}

extern "C" uint8_t LIB_SSL_IsEnableCertAuth(void) {
    uint8_t state = 0;
    if (LIB_SSL_GetCertAuthState(&state) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Failed to get cert auth state!");
        return 0; // an unreadable state counts as off
    }
    return state;
}

extern "C" uint32_t LIB_SSL_GetCertRevokeCheck(uint8_t *pbState) {
    BMCCERT_CHECK_NULL(pbState, kMgmtRevokeRead);
    const Read read = ReadRecord(SSL_AUTH_DB_KEY_REVOKE_CHECK, sizeof *pbState, pbState);
    if (read == Read::Failed)
        BMCCERT_DIAG(kLevelHandling, "Failed to get CertRevokeCheck State from DB.");
    return read == Read::Ok ? SSLCERT_OK : kMgmtRevokeRead;
}

extern "C" uint8_t LIB_SSL_IsSupportCertAuthFunc(void) {
    uint8_t support = 0;
    const Read read = ReadRecord(SSL_AUTH_DB_KEY_SUPPORT, sizeof support, &support);
    if (read == Read::Failed)
        BMCCERT_DIAG(kLevelHandling, "Failed to get CertAuth support state from DB.");
    return read == Read::Ok ? support : 0;
}

extern "C" uint32_t LIB_SSL_GetRootCertList(RootCertList *pstRootCertList) {
    BMCCERT_CHECK_NULL(pstRootCertList, SSLCERT_ERR_NULL_POINTER);
    return ReadList(SSL_AUTH_DB_KEY_ROOT_LIST, sizeof *pstRootCertList, pstRootCertList,
                    "Failed to get RootCertList data from DB.");
}

extern "C" uint32_t LIB_SSL_GetClientCertList(CliCertList *pstCliCertList) {
    BMCCERT_CHECK_NULL(pstCliCertList, SSLCERT_ERR_NULL_POINTER);
    return ReadList(SSL_AUTH_DB_KEY_CLIENT_LIST, sizeof *pstCliCertList, pstCliCertList,
                    "Failed to get CliCertList data from DB.");
}

extern "C" uint32_t LIB_SSL_GetClientCertUserList(CliCertUserList *pstCertUserList) {
    BMCCERT_CHECK_NULL(pstCertUserList, SSLCERT_ERR_NULL_POINTER);
    return ReadList(SSL_AUTH_DB_KEY_USER_LIST, sizeof *pstCertUserList, pstCertUserList,
                    "Failed to get CliCertUserList data from DB.");
}

extern "C" uint32_t LIB_SSL_GetActiveRootCertId(uint32_t *puiRootCertId) {
    BMCCERT_CHECK_NULL(puiRootCertId, kMgmtStateRead);
    auto list = ZeroedRecord<RootCertList>();
    if (LIB_SSL_GetRootCertList(&list) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get RootCertList failed.\n");
        return kMgmtStateRead;
    }
    for (const RootCertInfo &entry : list.astRootCert) {
        if (entry.ucActive == 1) {
            *puiRootCertId = entry.uiCertId; // the lowest index wins
            break;
        }
    }
    return SSLCERT_OK;
}

extern "C" uint8_t LIB_SSL_IsExistRootCert(uint32_t uiCertId, RootCertInfo *pstRootCertInfo) {
    BMCCERT_CHECK_NULL(pstRootCertInfo, 0);
    if (IdOutOfRange(uiCertId, SSL_AUTH_MAX_CERTS)) {
        BMCCERT_DIAG(kLevelHandling, "CertId=%d out of range.\n", static_cast<int>(uiCertId));
        return 0;
    }
    auto list = ZeroedRecord<RootCertList>();
    if (LIB_SSL_GetRootCertList(&list) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get RootCertList failed.\n");
        return 0;
    }
    const RootCertInfo &entry = list.astRootCert[uiCertId - 1];
    if (entry.uiCertId != uiCertId) {
        BMCCERT_DIAG(kLevelHandling, "RootCertId is Diff.\n");
        return 0;
    }
    *pstRootCertInfo = entry;
    return 1;
}

extern "C" uint32_t LIB_SSL_GetRootCertInfo(uint32_t uiCertId, RootCertInfo *pstRootCertInfo) {
    BMCCERT_CHECK_NULL(pstRootCertInfo, kMgmtQueryFailed);
    if (IdOutOfRange(uiCertId, SSL_AUTH_MAX_CERTS)) {
        BMCCERT_DIAG(kLevelHandling, "Cert id=%d out of range.\n", static_cast<int>(uiCertId));
        return kMgmtIdOutOfRange;
    }
    auto list = ZeroedRecord<RootCertList>();
    if (LIB_SSL_GetRootCertList(&list) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get RootCertList failed.\n");
        return kMgmtQueryFailed;
    }
    const RootCertInfo &entry = list.astRootCert[uiCertId - 1];
    if (entry.uiCertId != uiCertId) {
        BMCCERT_DIAG(kLevelHandling, "RootCert id=%d is not exist.\n", static_cast<int>(uiCertId));
        return SSL_AUTH_MGMT_CERT_ABSENT;
    }
    *pstRootCertInfo = entry;
    return SSLCERT_OK;
}

extern "C" uint8_t LIB_SSL_IsExistClientCert(uint32_t uiCertId, CliCertInfo *pstCliCertInfo) {
    BMCCERT_CHECK_NULL(pstCliCertInfo, 0);
    if (IdOutOfRange(uiCertId, SSL_AUTH_MAX_CERTS)) {
        BMCCERT_DIAG(kLevelHandling, "CertId=%d out of range.\n", static_cast<int>(uiCertId));
        return 0;
    }
    auto list = ZeroedRecord<CliCertList>();
    if (LIB_SSL_GetClientCertList(&list) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get ClientCertList failed.\n");
        return 0;
    }
    const CliCertInfo &entry = list.astCliCert[uiCertId - 1];
    if (entry.uiCertId != uiCertId) {
        BMCCERT_DIAG(kLevelHandling, "ClinetCertId=%u is Diff.\n", uiCertId);
        return 0;
    }
    *pstCliCertInfo = entry;
    return 1;
}
