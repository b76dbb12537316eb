// Removal of root and client certificates by id. The entry is looked up
// first so that the description can name its file; the owner does the
// removal and refuses what is still in use.
#include "frame/record_file_name.h"
#include "sslauth/sslauth_internal.h"

namespace bmccert::sslauth {
namespace {

using namespace bmccert;

struct Deletion {
    OwnerCommand command;
    const char *failedText;
    const CertErrMap &map;
    uint32_t fallback;
};

constexpr Deletion kClient{OwnerCommand::DeleteClient, "Failed to delete client certificate.",
                           CliCertErrMap, SSL_AUTH_MGMT_CLIENT_DEL_FAILED};
constexpr Deletion kRoot{OwnerCommand::DeleteRoot, "Failed to delete root certificate.",
                         RootCertErrMap, SSL_AUTH_MGMT_ROOT_DEL_FAILED};

void DescribeDone(const Deletion &deletion, const char *fileName, OperateDesc &desc) {
    if (deletion.command == OwnerCommand::DeleteClient)
        (void)BMC_Scnprintf(desc.szOperateDesc, sizeof desc.szOperateDesc,
                            "Deleted client certificate successfully. Certificate: %s.", fileName);
    else
        (void)BMC_Scnprintf(desc.szOperateDesc, sizeof desc.szOperateDesc,
                            "Deleted root certificate successfully. Certificate: %s.", fileName);
}

// The owner removes the file the entry names, so an entry whose name would
// lead out of its directory (or into a log's description) is refused as
// one that does not exist.
template <size_t N>
[[nodiscard]] bool NamesPlainFile(const char *kind, uint32_t id, const char (&fileName)[N]) {
    if (IsPlainFileName(fileName)) return true;
    BMCCERT_DIAG(kLevelHandling, "Cert file name of %s id=%u is invalid.\n", kind, id);
    return false;
}

[[nodiscard]] uint32_t Delete(const Deletion &deletion, uint32_t id, const char *fileName,
                              uint32_t waitLimit, OperateDesc &desc) {
    desc.ucLogClass = SSLCERT_OPERATE_LOG_CLASS;
    uint32_t result = SSL_AUTH_ERR_CERT_ABSENT;
    if (fileName != nullptr) {
        const uint32_t request = id;
        result = deletion.command == OwnerCommand::DeleteClient
                     ? CallOwner<OwnerCommand::DeleteClient>(request, waitLimit)
                     : CallOwner<OwnerCommand::DeleteRoot>(request, waitLimit);
        if (result == 0) {
            DescribeDone(deletion, fileName, desc);
            return SSLCERT_OK;
        }
        BMCCERT_DIAG(kLevelHandling, "BMC_RPC_CallWithStruct Failed, iRet=%d.\n",
                     static_cast<int32_t>(result));
    }
    (void)BMC_Scnprintf(desc.szOperateDesc, sizeof desc.szOperateDesc, "%s", deletion.failedText);
    return CC_GetValueByErrNum(result, deletion.map, std::size(deletion.map), deletion.fallback);
}

} // namespace
} // namespace bmccert::sslauth

using namespace bmccert;
using namespace bmccert::sslauth;

extern "C" uint32_t LIB_SSL_DelClientCert(uint32_t uiCertId, uint32_t uiWaitLimit,
                                          OperateDesc *pstRespData) {
    BMCCERT_CHECK_NULL(pstRespData, SSL_AUTH_MGMT_CLIENT_DEL_FAILED);
    auto entry = ZeroedRecord<CliCertInfo>();
    const bool exists = LIB_SSL_IsExistClientCert(uiCertId, &entry) == 1;
    if (!exists) BMCCERT_DIAG(kLevelHandling, "ClientCert id=%u is not exist.\n", uiCertId);
    const bool plain = exists && NamesPlainFile("ClientCert", uiCertId, entry.szFileName);
    return Delete(kClient, uiCertId, plain ? entry.szFileName : nullptr, uiWaitLimit, *pstRespData);
}

extern "C" uint32_t LIB_SSL_DelRootCert(uint32_t uiCertId, uint32_t uiWaitLimit,
                                        OperateDesc *pstRespData) {
    BMCCERT_CHECK_NULL(pstRespData, SSL_AUTH_MGMT_ROOT_DEL_FAILED);
    auto entry = ZeroedRecord<RootCertInfo>();
    const bool exists = LIB_SSL_IsExistRootCert(uiCertId, &entry) == 1;
    if (!exists)
        BMCCERT_DIAG(kLevelHandling, "RootCert id=%d is not exist.\n", static_cast<int>(uiCertId));
    const bool plain = exists && NamesPlainFile("RootCert", uiCertId, entry.szFileName);
    return Delete(kRoot, uiCertId, plain ? entry.szFileName : nullptr, uiWaitLimit, *pstRespData);
}
