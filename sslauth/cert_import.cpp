// Import of root and client certificates: the library checks the uploaded
// file's name and hands the path to the records' owner, which imports it as
// a task. A failed import is written to the operation log here, since the
// caller gets only a management code back.
#include "sslauth/sslauth_internal.h"

namespace bmccert::sslauth {

namespace {

using namespace bmccert;

// Characters a certificate file name may not hold, in the order tested.
constexpr char kForbidden[] = {'`', '&', '(', ')', ';', '\'', ' '};
constexpr const char *kExtensions[] = {".cer", ".crt", ".pem"};

template <size_t N>
[[nodiscard]] uint32_t MapCode(uint32_t code, const BMC_ErrCodeMap (&map)[N], uint32_t fallback) {
    return CC_GetValueByErrNum(code, map, N, fallback);
}

// The one operation-log entry of a failed import.
[[nodiscard]] uint32_t ImportFailed(const LogOrigin &origin, const char *text, uint32_t code,
                                    const CertErrMap &map, uint32_t fallback) {
    const uint32_t mapped = MapCode(code, map, fallback);
    (void)OPERATELOG_AddLogComm(origin.uiInterface, 67, text, FieldText(origin.szUserName).c_str(),
                                FieldText(origin.szClientAddr).c_str(), __LINE__,
                                SSLCERT_OPERATE_LOG_CLASS);
    return mapped;
}

template <OwnerCommand Command, typename Request>
[[nodiscard]] uint32_t SendImport(const Request &request, uint32_t waitLimit, TaskHandle &task) {
    const uint32_t result = CallOwner<Command>(request, waitLimit, &task);
    if (result != 0)
        BMCCERT_DIAG(kLevelHandling, "BMC_RPC_CallWithStruct Failed, iRet=%d.\n",
                     static_cast<int32_t>(result));
    return result;
}

[[nodiscard]] uint32_t CheckPath(const char *pcFilePath) {
    const uint32_t result = SSL_IsValidFileName(pcFilePath);
    if (result != 0) BMCCERT_DIAG(kLevelHandling, "Check cert file path=%s invalid.\n", pcFilePath);
    return result;
}

} // namespace

uint32_t SSL_IsValidFileName(const char *pcFilePath) {
    BMCCERT_CHECK_NULL(pcFilePath, SSLCERT_ERR_NULL_POINTER);
    const char *slash = std::strrchr(pcFilePath, '/');
    if (slash == nullptr) {
        BMCCERT_DIAG(kLevelHandling, "Failed to strrchr, CertFilePath=%s.", pcFilePath);
        return SSLCERT_ERR_GENERAL;
    }
    const char *name = slash + 1;
    if (std::strlen(name) > SSL_AUTH_FILE_NAME_MAX) {
        BMCCERT_DIAG(kLevelHandling, "Cert file name=%s is too long.\n", name);
        return SSL_AUTH_ERR_FILE_NAME_LONG;
    }
    const char *dot = std::strrchr(name, '.');
    bool accepted = false;
    for (const char *extension : kExtensions)
        accepted = accepted || (dot != nullptr && std::strcmp(dot, extension) == 0);
    if (!accepted) {
        BMCCERT_DIAG(kLevelHandling, "Cert file name=%s format error.\n", name);
        return SSL_AUTH_ERR_FILE_NAME_EXT;
    }
    for (const char forbidden : kForbidden) {
        if (std::strchr(name, forbidden) != nullptr) {
            BMCCERT_DIAG(kLevelHandling, "Invalid cert file name=%s.\n", name);
            return SSL_AUTH_ERR_FILE_NAME_CHAR;
        }
    }
    return SSLCERT_OK;
}

} // namespace bmccert::sslauth

using namespace bmccert;
using namespace bmccert::sslauth;

extern "C" uint32_t LIB_SSL_ImportRootCert(const LogOrigin *pstLogOrigin, const char *pcFilePath,
                                           uint32_t uiWaitLimit, TaskHandle *pstTask) {
    BMCCERT_CHECK_NULL(pstLogOrigin, SSL_AUTH_MGMT_ROOT_IMPORT_FAILED);
    BMCCERT_CHECK_NULL(pcFilePath, SSL_AUTH_MGMT_ROOT_IMPORT_FAILED);
    BMCCERT_CHECK_NULL(pstTask, SSL_AUTH_MGMT_ROOT_IMPORT_FAILED);
    uint32_t result = CheckPath(pcFilePath);
    if (result == 0) {
        auto request = ZeroedRecord<RootCertImportReq>();
        std::memcpy(&request.stLogOrigin, pstLogOrigin, sizeof request.stLogOrigin);
        (void)BMC_Strlcpy(request.szFilePath, pcFilePath, sizeof request.szFilePath);
        result = SendImport<OwnerCommand::ImportRoot>(request, uiWaitLimit, *pstTask);
    }
    if (result == 0) return SSLCERT_OK;
    return ImportFailed(*pstLogOrigin, "Failed to import root certificate.", result, RootCertErrMap,
                        SSL_AUTH_MGMT_ROOT_IMPORT_FAILED);
}

extern "C" uint32_t LIB_SSL_ImportClientCert(const LogOrigin *pstLogOrigin, const char *pcFilePath,
                                             uint32_t uiRootCertId, uint32_t uiWaitLimit,
                                             TaskHandle *pstTask) {
    BMCCERT_CHECK_NULL(pstLogOrigin, SSL_AUTH_MGMT_CLIENT_IMPORT_FAILED);
    BMCCERT_CHECK_NULL(pcFilePath, SSL_AUTH_MGMT_CLIENT_IMPORT_FAILED);
    BMCCERT_CHECK_NULL(pstTask, SSL_AUTH_MGMT_CLIENT_IMPORT_FAILED);
    uint32_t result = SSLCERT_OK;
    auto root = ZeroedRecord<RootCertInfo>();
    if (LIB_SSL_IsExistRootCert(uiRootCertId, &root) != 1) {
        BMCCERT_DIAG(kLevelHandling, "RootCert id=%u not exist.\n", uiRootCertId);
        result = SSL_AUTH_ERR_CERT_ABSENT;
    }
    if (result == 0) result = CheckPath(pcFilePath);
    if (result == 0) {
        auto request = ZeroedRecord<CliCertImportReq>();
        std::memcpy(&request.stLogOrigin, pstLogOrigin, sizeof request.stLogOrigin);
        (void)BMC_Strlcpy(request.szFilePath, pcFilePath, sizeof request.szFilePath);
        request.uiRootCertId = uiRootCertId;
        result = SendImport<OwnerCommand::ImportClient>(request, uiWaitLimit, *pstTask);
    }
    if (result == 0) return SSLCERT_OK;
    return ImportFailed(*pstLogOrigin, "Failed to import client certificate.", result,
                        CliCertErrMap, SSL_AUTH_MGMT_CLIENT_IMPORT_FAILED);
}
