// Switching client-certificate authentication and revocation checking. The
// records change only in the daemon that owns them; these functions decide
// whether a call is needed, send it, and describe the outcome for the
// operation log.
#include "sslauth/sslauth_internal.h"

namespace bmccert::sslauth {

namespace {

using namespace bmccert;

[[nodiscard]] uint32_t AuthStateFailed(uint32_t internalCode, OperateDesc &desc) {
    BMCCERT_DIAG(kLevelHandling, "BMC_RPC_CallWithStruct Failed, iRet=%d.\n",
                 static_cast<int32_t>(internalCode));
    (void)BMC_Scnprintf(desc.szOperateDesc, sizeof desc.szOperateDesc,
                        "Failed to set certificate authentication status.");
    return CC_GetValueByErrNum(internalCode, CertAuthStateErrMap, std::size(CertAuthStateErrMap),
                               SSL_AUTH_MGMT_SET_STATE_FAILED);
}

[[nodiscard]] uint32_t Turned(const char *onOff, OperateDesc &desc) {
    (void)BMC_Scnprintf(desc.szOperateDesc, sizeof desc.szOperateDesc,
                        "Turned %s certificate authentication state successfully.", onOff);
    return SSLCERT_OK;
}

[[nodiscard]] uint32_t SendAuthState(uint8_t state, uint32_t rootCertId, uint32_t waitLimit) {
    auto request = ZeroedRecord<CertAuthStateReq>();
    request.ucState = state;
    request.uiRootCertId = rootCertId;
    return CallOwner<OwnerCommand::SetAuthState>(request, waitLimit);
}

[[nodiscard]] uint32_t SwitchOff(uint8_t ucState, uint32_t waitLimit, OperateDesc &desc) {
    if (LIB_SSL_IsEnableCertAuth() == 0) {
        BMCCERT_DIAG(kLevelNotice, "Current cert authenticate state is equal set state=%u.\n",
                     static_cast<unsigned>(ucState));
        return Turned("off", desc);
    }
    // The caller's value travels as given; the root id is 0 when switching off.
    const uint32_t result = SendAuthState(ucState, 0, waitLimit);
    return result == 0 ? Turned("off", desc) : AuthStateFailed(result, desc);
}

[[nodiscard]] uint32_t SwitchOn(uint32_t rootCertId, uint32_t waitLimit, OperateDesc &desc) {
    auto root = ZeroedRecord<RootCertInfo>();
    if (LIB_SSL_IsExistRootCert(rootCertId, &root) != 1) {
        BMCCERT_DIAG(kLevelHandling, "RootCert id=%d not exist.\n", static_cast<int>(rootCertId));
        return AuthStateFailed(SSL_AUTH_ERR_ROOT_ABSENT, desc);
    }
    if (LIB_SSL_IsEnableCertAuth() == 1) {
        uint32_t activeId = 0;
        (void)LIB_SSL_GetActiveRootCertId(&activeId);
        if (activeId == rootCertId) {
            BMCCERT_DIAG(kLevelNotice,
                         "Current cert authenticate state is equal set state, ActiveRootId=%u.",
                         activeId);
            return Turned("on", desc);
        }
    }
    uint32_t result = SSL_CheckRootCertValidPeriod(rootCertId);
    if (result == 0) result = SendAuthState(1, rootCertId, waitLimit);
    return result == 0 ? Turned("on", desc) : AuthStateFailed(result, desc);
}

} // namespace
} // namespace bmccert::sslauth

using namespace bmccert;
using namespace bmccert::sslauth;

extern "C" uint32_t LIB_SSL_SetCertAuthState(uint8_t ucState, uint32_t uiRootCertId,
                                             uint32_t uiWaitLimit, OperateDesc *pstRespData) {
    BMCCERT_CHECK_NULL(pstRespData, SSL_AUTH_MGMT_SET_STATE_FAILED);
    pstRespData->ucLogClass = SSLCERT_OPERATE_LOG_CLASS;
    return ucState == 1 ? SwitchOn(uiRootCertId, uiWaitLimit, *pstRespData)
                        : SwitchOff(ucState, uiWaitLimit, *pstRespData);
}

extern "C" uint32_t LIB_SSL_SetCertRevokeCheck(uint8_t ucState, uint32_t uiWaitLimit,
                                               OperateDesc *pstRespData) {
    BMCCERT_CHECK_NULL(pstRespData, SSL_AUTH_MGMT_SET_REVOKE_FAILED);
    pstRespData->ucLogClass = SSLCERT_OPERATE_LOG_CLASS;
    const uint8_t request[1] = {ucState};
    const uint32_t result = CallOwner<OwnerCommand::SetRevokeCheck>(request, uiWaitLimit);
    if (result != 0) {
        BMCCERT_DIAG(kLevelHandling, "BMC_RPC_CallWithStruct Failed, iRet=%d.\n",
                     static_cast<int32_t>(result));
        (void)BMC_Scnprintf(pstRespData->szOperateDesc, sizeof pstRespData->szOperateDesc,
                            "Failed to set certificate revocation check.");
        return SSL_AUTH_MGMT_SET_REVOKE_FAILED;
    }
    (void)BMC_Scnprintf(pstRespData->szOperateDesc, sizeof pstRespData->szOperateDesc,
                        "Turned %s certificate revocation check status successfully.",
                        ucState == 1 ? "on" : "off");
    return SSLCERT_OK;
}
