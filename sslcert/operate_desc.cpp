// How the two management entries of the server certificate tell their
// outcome: the operation-log description and the management result code.
#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {

const std::array<BMC_ErrCodeMap, 3> SSLCertErrMap = {{
    {SSLCERT_ERR_GEN_REQUEST, SSLCERT_MGMT_GEN_BAD_REQUEST},
    {BMC_PLATFORM_ERR_1, SSLCERT_MGMT_PLATFORM_BUSY},
    {BMC_PLATFORM_ERR_2, SSLCERT_MGMT_PLATFORM_BUSY},
}};

uint32_t ToManagementCode(uint32_t internalCode, uint32_t defaultCode) {
    if (internalCode == SSLCERT_OK) return SSLCERT_OK;
    return CC_GetValueByErrNum(internalCode, SSLCertErrMap.data(),
                               static_cast<uint32_t>(SSLCertErrMap.size()), defaultCode);
}

void SECURITY_SetSSLCertOperateLogDes(uint32_t uiOutcome, OperateDesc *pstOperateDesc) {
    if (pstOperateDesc == nullptr) {
        BMCCERT_REPORT_NULL(pstOperateDesc);
        return;
    }
    pstOperateDesc->ucLogClass = SSLCERT_OPERATE_LOG_CLASS;

    const char *text = "Imported SSL certificate successfully.";
    if (uiOutcome == kOutcomeGenFailed)
        text = "Failed to generate SSL certificate.";
    else if (uiOutcome == kOutcomeGenDone)
        text = "Generated SSL certificate successfully.";
    else if (uiOutcome == kOutcomeImportFailed)
        text = "Failed to import SSL certificate.";
    (void)BMC_Strlcpy(pstOperateDesc->szOperateDesc, text, sizeof pstOperateDesc->szOperateDesc);
}

} // namespace bmccert::sslcert
