// The management entry that makes a new self-signed server certificate and
// puts it in service: generation and installation, tunnel restart, delayed
// web server restart, removal of the temporary pair, description and
// management code.

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

// Generation, then the restarts; the first failure ends the sequence.
uint32_t GenerateAndRestart(const SSLCertGenParam &request) {
    if (const uint32_t result = LIB_SECURITY_GenCert(&request); result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "Generate Cert:gen cert failed! iRet=%d\n", result);
        return result;
    }
    if (const int32_t result = RestartServiceNow(kTunnelService); result != 0) {
        BMCCERT_DIAG(kLevelFailure,
                     "Generate Cert:Restart stunnel service failed! iRet=%d. ERR:%s.\n", result,
                     kRestartErrorText);
        return static_cast<uint32_t>(result);
    }
    if (const uint32_t result = RestartWebServerLater(); result != 0) {
        BMCCERT_DIAG(kLevelFailure,
                     "Generate Cert:Restart lighttpd service failed! iRet=%d. ERR:%s.\n", result,
                     kRestartErrorText);
        return result;
    }
    return SSLCERT_OK;
}

} // namespace
} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t LIB_SECURITY_GenAndRestartService(const SSLCertGenParam *pstSSLCert,
                                                      OperateDesc *pstOperateLog) {
    BMCCERT_CHECK_NULL(pstSSLCert, SSLCERT_MGMT_GEN_FAILED);
    BMCCERT_CHECK_NULL(pstOperateLog, SSLCERT_MGMT_GEN_FAILED);
    // Held until the temporary pair is gone, so that another installation
    // neither overwrites it nor has its own removed.
    const InstallationLock installing;
    if (!installing.Held()) {
        // The temporary pair, if any, belongs to whoever holds the lock.
        SECURITY_SetSSLCertOperateLogDes(kOutcomeGenFailed, pstOperateLog);
        return SSLCERT_MGMT_GEN_FAILED;
    }

    const uint32_t result = GenerateAndRestart(*pstSSLCert);

    // The temporary pair goes on success and on every failure alike.
    RemoveScratchFileReported(kGenCertPath);
    RemoveScratchFileReported(kGenKeyPath);

    if (result == SSLCERT_OK) {
        SECURITY_SetSSLCertOperateLogDes(kOutcomeGenDone, pstOperateLog);
        return SSLCERT_OK;
    }
    SECURITY_SetSSLCertOperateLogDes(kOutcomeGenFailed, pstOperateLog);
    return ToManagementCode(result, SSLCERT_MGMT_GEN_FAILED);
}
