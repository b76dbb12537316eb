// A build without ACME enrolment (no libcurl for its OpenSSL): the
// functions exist at their version node and say so.
#include "acme/acme_internal.h"
#include "frame/frame.h"
#include "lib_security_sslcert_ext.h"

using namespace bmccert::acme;

namespace {

uint32_t Absent() {
    BMCCERT_DIAG(bmccert::kLevelHandling, "ACME:this build has no ACME enrolment.\n");
    return SSLCERT_EXT_ERR_ACME_SETTING;
}

} // namespace

extern "C" uint32_t LIB_SECURITY_SSL_AcmeSetEnrollment(const SSLAcmeEnrollment *, const char *,
                                                       const char *) {
    return Absent();
}
extern "C" uint32_t LIB_SECURITY_SSL_AcmeGetEnrollment(SSLAcmeEnrollment *pstSettings,
                                                       SSLAcmeStatus *pstStatus) {
    BMCCERT_CHECK_NULL(pstSettings, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstStatus, SSLCERT_ERR_NULL_POINTER);
    *pstSettings = {};
    *pstStatus = {};
    return Absent();
}
extern "C" uint32_t LIB_SECURITY_SSL_AcmeRegister(void) {
    return Absent();
}
extern "C" uint32_t LIB_SECURITY_SSL_AcmeDeactivate(void) {
    return Absent();
}
extern "C" uint32_t LIB_SECURITY_SSL_AcmeRollKey(void) {
    return Absent();
}
extern "C" uint32_t LIB_SECURITY_SSL_AcmeEnroll(const LogOrigin *, TaskHandle *) {
    return Absent();
}
extern "C" uint32_t LIB_SECURITY_SSL_AcmeRenewIfDue(const LogOrigin *, TaskHandle *,
                                                    uint8_t *pucStarted) {
    if (pucStarted != nullptr) *pucStarted = 0;
    return Absent();
}
