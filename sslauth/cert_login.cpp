// Login by client certificate: the presented certificate's serial number
// leads to the certificate's entry, the revocation check when it is on, the
// bound user, and that user's name and clear-text password. Also the
// clean-up that unbinds a user who goes away.
#include <openssl/crypto.h>

#include "sslauth/sslauth_internal.h"

namespace bmccert::sslauth {
namespace {

using namespace bmccert;

// Passed to the user library as it expects them; their meaning is its own.
constexpr const char *kDecryptKeyText = "q7m";
constexpr uint32_t kDecryptNumber = 41;
constexpr size_t kDecryptWorkSize = 41;
constexpr uint32_t kCleanUpWaitLimit = 10000;

// The id of the certificate whose serial number is exactly the given text.
[[nodiscard]] uint32_t FindCertBySerial(const char *serial, uint32_t &certId) {
    auto list = ZeroedRecord<CliCertList>();
    if (LIB_SSL_GetClientCertList(&list) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get ClientCertList failed.\n");
        return SSL_AUTH_MGMT_LOGIN_READ;
    }
    certId = 0;
    for (const CliCertInfo &entry : list.astCliCert) {
        // The field is read only up to its own end, terminated or not.
        if (strnlen(entry.szSerialNum, sizeof entry.szSerialNum) == sizeof entry.szSerialNum)
            continue;
        if (std::strcmp(entry.szSerialNum, serial) == 0) {
            certId = entry.uiCertId;
            break;
        }
    }
    if (certId == 0) {
        BMCCERT_DIAG(kLevelHandling, "ClientCert not exist.\n");
        return SSL_AUTH_MGMT_LOGIN_NO_CERT;
    }
    return SSLCERT_OK;
}

[[nodiscard]] uint32_t CheckRevocation(uint32_t certId) {
    uint8_t revokeCheck = 0;
    if (LIB_SSL_GetCertRevokeCheck(&revokeCheck) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get CertRevokeCheck State failed.\n");
        return SSL_AUTH_MGMT_LOGIN_READ;
    }
    if (revokeCheck != 1) return SSLCERT_OK;
    const uint32_t result = LIB_SSL_CertRevokeCheck(certId);
    if (result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Cert Revoke Check error, iRet=%d.\n",
                     static_cast<int32_t>(result));
        return SSL_AUTH_MGMT_LOGIN_REVOKED;
    }
    return SSLCERT_OK;
}

// The lowest user id bound to the certificate.
[[nodiscard]] uint32_t FindUserOf(uint32_t certId, uint8_t &userId) {
    auto bindings = ZeroedRecord<CliCertUserList>();
    if (LIB_SSL_GetClientCertUserList(&bindings) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get ClientCert UserList failed.\n");
        return SSL_AUTH_MGMT_LOGIN_READ;
    }
    for (uint32_t k = 0; k < SSL_AUTH_MAX_USERS; ++k) {
        if (bindings.astCertUser[k].uiCliCertId == certId) {
            userId = static_cast<uint8_t>(k + 1);
            return SSLCERT_OK;
        }
    }
    BMCCERT_DIAG(kLevelHandling, "CertUserInfo not found.\n");
    return SSL_AUTH_MGMT_LOGIN_NO_USER;
}

} // namespace
} // namespace bmccert::sslauth

using namespace bmccert;
using namespace bmccert::sslauth;

extern "C" uint32_t LIB_SSL_GetNamePwdById(uint8_t ucUserId, uint32_t uiNameSize, char *pcUserName,
                                           uint32_t uiPwdSize, char *pcPassword) {
    BMCCERT_CHECK_NULL(pcUserName, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pcPassword, SSLCERT_ERR_NULL_POINTER);
    // The table has records for ids 1 to 16 only; nothing past it is read.
    if (IdOutOfRange(ucUserId, SSL_AUTH_MAX_USERS)) {
        BMCCERT_DIAG(kLevelHandling, "User id=%u out of range.\n", ucUserId);
        return SSLCERT_ERR_GENERAL;
    }
    UserTable table; // every user's enciphered password: wiped when it goes
    if (!table.Allocated()) {
        BMCCERT_REPORT_NULL(pstUserInfo);
        return SSLCERT_ERR_GENERAL;
    }
    const int32_t read = LIB_USER_GetUserInfo(table.Data());
    if (read != 0) {
        BMCCERT_DIAG(kLevelHandling, "Failed to get UserList, iRet=%d.\n", read);
        return static_cast<uint32_t>(read);
    }
    const uint32_t k = ucUserId - 1u;
    const uint8_t *secret = table.SealedPassword(k);
    uint8_t work[kDecryptWorkSize] = {};
    const int32_t opened = LIB_USER_DecryptPassword(secret, kDecryptKeyText, kDecryptNumber, work,
                                                    static_cast<uint8_t>(uiPwdSize), pcPassword);
    OPENSSL_cleanse(work, sizeof work);
    if (opened != 0) {
        BMCCERT_DIAG(kLevelHandling, "Failed to decrypt Secret password, iRet=%d.\n", opened);
        return static_cast<uint32_t>(opened);
    }
    table.CopyName(k, pcUserName, uiNameSize);
    return SSLCERT_OK;
}

extern "C" uint32_t LIB_SSL_GetNamePwdBySerial(const char *pcSerialNum, uint32_t uiNameSize,
                                               char *pcUserName, uint32_t uiPwdSize,
                                               char *pcPassword) {
    BMCCERT_CHECK_NULL(pcSerialNum, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pcUserName, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pcPassword, SSLCERT_ERR_NULL_POINTER);
    uint32_t certId = 0;
    uint8_t userId = 0;
    uint32_t result = FindCertBySerial(pcSerialNum, certId);
    if (result == SSLCERT_OK) result = CheckRevocation(certId);
    if (result == SSLCERT_OK) result = FindUserOf(certId, userId);
    if (result != SSLCERT_OK) return result;
    result = LIB_SSL_GetNamePwdById(userId, uiNameSize, pcUserName, uiPwdSize, pcPassword);
    if (result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Failed to get user name password by id, iRet=%d.\n",
                     static_cast<int32_t>(result));
        return SSL_AUTH_MGMT_LOGIN_READ;
    }
    return SSLCERT_OK;
}

extern "C" void LIB_SSL_ClearCertUserInfo(uint8_t ucUserId) {
    if (IdOutOfRange(ucUserId, SSL_AUTH_MAX_USERS)) {
        BMCCERT_DIAG(kLevelHandling, "User id=%u out of range.\n", ucUserId);
        return;
    }
    auto bindings = ZeroedRecord<CliCertUserList>();
    if (LIB_SSL_GetClientCertUserList(&bindings) != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get ClientCert UserList failed.\n");
        return;
    }
    const uint32_t certId = bindings.astCertUser[ucUserId - 1].uiCliCertId;
    if (certId == 0) return;                 // the user holds no certificate
    auto desc = ZeroedRecord<OperateDesc>(); // the unbinding's text is not logged here
    const uint32_t result = LIB_SSL_ClientCertUntieUser(certId, ucUserId, kCleanUpWaitLimit, &desc);
    if (result != SSLCERT_OK)
        BMCCERT_DIAG(kLevelHandling, "Failed to ClientCert Untie User, iRet=%d.\n",
                     static_cast<int32_t>(result));
}
