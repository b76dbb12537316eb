// Which server certificate is in force, and where each kind's files lie.
#include <unistd.h>

#include <array>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

struct CertLocation {
    uint32_t uiCertType;
    const char *pcCertPath;
    const char *pcKeyPath;
};

// Addressed by position: row = type code - 1.
constexpr std::array<CertLocation, 6> CertLocationTable = {{
    {SSL_CERT_TYPE_USER, kUserCertPath, kUserKeyPath},
    {SSL_CERT_TYPE_OEM_CUSTOM, kOemCustomCertPath, kOemCustomKeyPath},
    {SSL_CERT_TYPE_OEM_DEFAULT, kOemDefaultCertPath, kOemDefaultKeyPath},
    {SSL_CERT_TYPE_DEFAULT, kDefaultCertPath, kDefaultKeyPath},
    {SSL_CERT_TYPE_UPLOAD_TMP, kUploadCertPath, kUploadKeyPath},
    {SSL_CERT_TYPE_GEN_TMP, kGenCertPath, kGenKeyPath},
}};

static_assert([] {
    for (size_t row = 0; row < CertLocationTable.size(); ++row)
        if (CertLocationTable[row].uiCertType != row + 1) return false;
    return true;
}());

// The kinds that can be in force, in the order in which they are looked for.
struct Candidate {
    uint32_t uiCertType;
    bool bOemOnly;
    const char *pcMissingKeyReport;
};
constexpr std::array<Candidate, 4> kCandidates = {{
    {SSL_CERT_TYPE_USER, false, "No SSL actual key file found.\n"},
    {SSL_CERT_TYPE_OEM_CUSTOM, true, "No SSL OEM custom key file found.\n"},
    {SSL_CERT_TYPE_OEM_DEFAULT, true, "No SSL OEM default key file found.\n"},
    {SSL_CERT_TYPE_DEFAULT, false, "No SSL default key file found.\n"},
}};

bool Exists(const char *path) {
    return access(path, F_OK) == 0;
}

} // namespace

bool LookupCertKeyPaths(uint32_t certType, CertKeyPaths &paths, const char *callerName) {
    if (LIB_SECURITY_GetSSLCertKeyPath(certType, sizeof paths.cert, sizeof paths.key, paths.cert,
                                       paths.key) == SSLCERT_OK)
        return true;
    BMCCERT_DIAG(kLevelFailure, "Failed to get Cert and Key Path. Func:[%s]\n", callerName);
    return false;
}

} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t LIB_SECURITY_GetCertType(void) {
    // The flag is read before any file is tested.
    const bool oemLocations = HW_LIB_GetOemFlag() == SSL_CERT_OEM_FLAG_OEM;

    // The first certificate file found decides; a missing key for it does
    // not lead on to the next kind.
    for (const Candidate &candidate : kCandidates) {
        if (candidate.bOemOnly && !oemLocations) continue;
        const CertLocation &location = CertLocationTable[candidate.uiCertType - 1];
        if (!Exists(location.pcCertPath)) continue;
        if (Exists(location.pcKeyPath)) return candidate.uiCertType;
        BMCCERT_DIAG(kLevelFailure, "%s", candidate.pcMissingKeyReport);
        return SSL_CERT_TYPE_NONE;
    }
    BMCCERT_DIAG(kLevelFailure, "No SSL certificate found.\n");
    return SSL_CERT_TYPE_NONE;
}

extern "C" uint32_t LIB_SECURITY_GetSSLCertKeyPath(uint32_t uiCertType, uint32_t uiCertPathSize,
                                                   uint32_t uiKeyPathSize, char *pcCertPath,
                                                   char *pcKeyPath) {
    BMCCERT_CHECK_NULL(pcCertPath, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pcKeyPath, SSLCERT_ERR_NULL_POINTER);

    if (uiCertType < SSL_CERT_TYPE_USER || uiCertType > CertLocationTable.size()) {
        BMCCERT_DIAG(kLevelFailure, "Unknown Cert type = %d.\n", uiCertType);
        return SSLCERT_ERR_GENERAL;
    }
    const CertLocation &location = CertLocationTable[uiCertType - 1];
    (void)BMC_Strlcpy(pcCertPath, location.pcCertPath, uiCertPathSize);
    (void)BMC_Strlcpy(pcKeyPath, location.pcKeyPath, uiKeyPathSize);
    return SSLCERT_OK;
}
