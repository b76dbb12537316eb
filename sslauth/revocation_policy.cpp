// The operator's choice of revocation method and failure policy, one
// record in the configuration database.
#include "sslauth/revocation.h"
#include "sslauth/sslauth_internal.h"

namespace bmccert::sslauth {
namespace {

constexpr uint32_t kDefaultMaxAgeSeconds = 7 * 24 * 3600;
constexpr uint32_t kLongestMaxAgeSeconds = 30 * 24 * 3600;
constexpr uint32_t kDefaultSkewSeconds = 300;
constexpr uint32_t kLongestSkewSeconds = 3600;

[[nodiscard]] bool InRange(const SSLRevocationPolicy &policy) {
    return policy.uiMethod <= SSLCERT_EXT_REVOCATION_OCSP_CRL &&
           policy.uiOnFailure <= SSLCERT_EXT_ON_FAILURE_ALLOW && policy.uiMaxAgeSeconds >= 1 &&
           policy.uiMaxAgeSeconds <= kLongestMaxAgeSeconds &&
           policy.uiClockSkewSeconds <= kLongestSkewSeconds;
}

} // namespace

SSLRevocationPolicy LoadRevocationPolicy() {
    SSLRevocationPolicy policy{SSLCERT_EXT_REVOCATION_COMMAND, SSLCERT_EXT_ON_FAILURE_REFUSE,
                               kDefaultMaxAgeSeconds, kDefaultSkewSeconds};
    SSLRevocationPolicy stored{};
    BMC_Db *db = DB_GetCurrentDb();
    if (db != nullptr && DB_Get(db, SSLCERT_EXT_REVOCATION_DB_KEY, sizeof stored, &stored) == 0) {
        if (InRange(stored)) return stored;
        // A damaged record must not weaken the check below what was chosen:
        // the strictest verified method, refusing.
        BMCCERT_DIAG(kLevelFailure, "Revocation setting damaged: OCSP and CRL, refusing.\n");
        return {SSLCERT_EXT_REVOCATION_OCSP_CRL, SSLCERT_EXT_ON_FAILURE_REFUSE,
                kDefaultMaxAgeSeconds, kDefaultSkewSeconds};
    }
    return policy;
}

} // namespace bmccert::sslauth

using namespace bmccert;
using namespace bmccert::sslauth;

extern "C" uint32_t LIB_SECURITY_SSL_SetRevocationPolicy(const SSLRevocationPolicy *pstPolicy) {
    BMCCERT_CHECK_NULL(pstPolicy, SSLCERT_ERR_NULL_POINTER);
    if (!InRange(*pstPolicy)) {
        BMCCERT_DIAG(kLevelHandling,
                     "Revocation setting out of range: method %u, on failure %u, "
                     "max age %u s, clock skew %u s.\n",
                     pstPolicy->uiMethod, pstPolicy->uiOnFailure, pstPolicy->uiMaxAgeSeconds,
                     pstPolicy->uiClockSkewSeconds);
        return SSLCERT_EXT_ERR_REVOCATION_SETTING;
    }
    BMC_Db *db = DB_GetCurrentDb();
    if (db == nullptr || DB_PutInternal(__FILE_NAME__, __LINE__, db, SSLCERT_EXT_REVOCATION_DB_KEY,
                                        sizeof *pstPolicy, pstPolicy) != 0) {
        BMCCERT_DIAG(kLevelFailure, "Store the revocation setting failed!\n");
        return SSLCERT_EXT_ERR_REVOCATION_SETTING;
    }
    return SSLCERT_OK;
}
