// Binding a client certificate to a user and unbinding it. The library
// refuses the anonymous user and tests that both sides exist; what the
// current bindings allow is the owner's decision, reported by the call.
#include "sslauth/sslauth_internal.h"

namespace bmccert::sslauth {
namespace {

using namespace bmccert;

// The user service's record of one user; its first 81 bytes are the
// caller's UserBasicInfo.
constexpr size_t kUserRecordSize = 224;
static_assert(sizeof(UserBasicInfo) == SSL_AUTH_USER_BASIC_INFO_SIZE);

struct BindingKind {
    OwnerCommand command;
    uint32_t failedCode;
    uint32_t anonymousCode;
    const char *failedText;
};

constexpr BindingKind kBind{OwnerCommand::BindUser, SSL_AUTH_MGMT_BIND_FAILED,
                            SSL_AUTH_MGMT_BIND_ANONYMOUS,
                            "Failed to bind client certificate to user."};
constexpr BindingKind kUntie{OwnerCommand::UntieUser, SSL_AUTH_MGMT_UNTIE_FAILED,
                             SSL_AUTH_MGMT_UNTIE_ANONYMOUS,
                             "Failed to unbind client certificate from user."};

void DescribeDone(const BindingKind &kind, const char *fileName, const char *userName,
                  OperateDesc &desc) {
    if (kind.command == OwnerCommand::BindUser)
        (void)BMC_Scnprintf(desc.szOperateDesc, sizeof desc.szOperateDesc,
                            "Bound client certificate to user successfully. Certificate: %s, "
                            "user: %s.",
                            fileName, userName);
    else
        (void)BMC_Scnprintf(desc.szOperateDesc, sizeof desc.szOperateDesc,
                            "Unbound client certificate from user successfully. Certificate: %s, "
                            "user: %s.",
                            fileName, userName);
}

[[nodiscard]] uint32_t Failed(const BindingKind &kind, uint32_t code, OperateDesc &desc) {
    (void)BMC_Scnprintf(desc.szOperateDesc, sizeof desc.szOperateDesc, "%s", kind.failedText);
    return code;
}

[[nodiscard]] uint32_t ChangeBinding(const BindingKind &kind, uint32_t certId, uint32_t userId,
                                     uint32_t waitLimit, OperateDesc &desc) {
    desc.ucLogClass = SSLCERT_OPERATE_LOG_CLASS;
    if (LIB_USER_CheckAnonymousByUserID(userId) == 1) {
        BMCCERT_DIAG(kLevelHandling, "Anonymous user should not be set, UserId=%u.", userId);
        return Failed(kind, kind.anonymousCode, desc);
    }
    auto cert = ZeroedRecord<CliCertInfo>();
    auto user = ZeroedRecord<UserBasicInfo>();
    const uint32_t checked = LIB_SSL_CheckClientCertOperUser(certId, userId, &cert, &user);
    if (checked != 0) {
        BMCCERT_DIAG(kLevelHandling, "Failed to check CertId=%u UserId=%u failed, iRet=%d.\n",
                     certId, userId, static_cast<int32_t>(checked));
        return Failed(kind, checked, desc);
    }
    auto request = ZeroedRecord<CertUserReq>();
    request.uiCertId = certId;
    request.ucUserId = static_cast<uint8_t>(userId); // one byte on the wire
    const uint32_t result = kind.command == OwnerCommand::BindUser
                                ? CallOwner<OwnerCommand::BindUser>(request, waitLimit)
                                : CallOwner<OwnerCommand::UntieUser>(request, waitLimit);
    if (result != 0) {
        BMCCERT_DIAG(kLevelHandling, "BMC_RPC_CallWithStruct Failed, iRet=%d.\n",
                     static_cast<int32_t>(result));
        return Failed(kind, kind.failedCode, desc);
    }
    EndText(user.szUserName);
    DescribeDone(kind, FieldText(cert.szFileName).c_str(), user.szUserName, desc);
    return SSLCERT_OK;
}

} // namespace
} // namespace bmccert::sslauth

using namespace bmccert;
using namespace bmccert::sslauth;

extern "C" uint32_t LIB_SSL_CheckClientCertOperUser(uint32_t uiCertId, uint32_t uiUserId,
                                                    CliCertInfo *pstCliCertInfo,
                                                    UserBasicInfo *pstUserBasicInfo) {
    BMCCERT_CHECK_NULL(pstCliCertInfo, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstUserBasicInfo, SSLCERT_ERR_NULL_POINTER);
    if (LIB_SSL_IsExistClientCert(uiCertId, pstCliCertInfo) != 1) {
        BMCCERT_DIAG(kLevelHandling, "ClientCert id=%u is not exist.\n", uiCertId);
        return SSL_AUTH_MGMT_CERT_ABSENT;
    }
    uint8_t record[kUserRecordSize] = {};
    const int32_t result = LIB_USER_GetInsUser(uiUserId, record);
    if (result != 0) {
        BMCCERT_DIAG(kLevelHandling, "Get UserInfo failed, iRet=%d. UserId=%u is not exist.\n",
                     result, uiUserId);
        return SSL_AUTH_MGMT_USER_ABSENT;
    }
    std::memcpy(pstUserBasicInfo, record, sizeof *pstUserBasicInfo);
    return SSLCERT_OK;
}

extern "C" uint32_t LIB_SSL_ClientCertBindUser(uint32_t uiCertId, uint32_t uiUserId,
                                               uint32_t uiWaitLimit, OperateDesc *pstRespData) {
    BMCCERT_CHECK_NULL(pstRespData, SSL_AUTH_MGMT_BIND_FAILED);
    return ChangeBinding(kBind, uiCertId, uiUserId, uiWaitLimit, *pstRespData);
}

extern "C" uint32_t LIB_SSL_ClientCertUntieUser(uint32_t uiCertId, uint32_t uiUserId,
                                                uint32_t uiWaitLimit, OperateDesc *pstRespData) {
    BMCCERT_CHECK_NULL(pstRespData, SSL_AUTH_MGMT_UNTIE_FAILED);
    return ChangeBinding(kUntie, uiCertId, uiUserId, uiWaitLimit, *pstRespData);
}
