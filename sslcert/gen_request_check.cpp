// Field-by-field check of a certificate generation request, before any file
// is written or any key is made.
#include <cstring>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr uint32_t kMinValidDays = 1;
constexpr uint32_t kInclusiveRange = 1;
constexpr int32_t kMatched = 1;
constexpr int32_t kNoMatch = 0;

constexpr const char *kEmailPattern =
    "^[a-zA-Z0-9]+([_\\.-]?[a-zA-Z0-9]+)*@([a-zA-Z0-9]+([\\-_]?[a-zA-Z0-9]+)*\\.)+"
    "([a-zA-Z0-9]{1,128})$";
constexpr const char *kCountryPattern = "^[a-zA-Z]{2}$";
// Rejection patterns: a name fails when it is all digits, blank, or holds
// a character outside the allowed set.
constexpr const char *kNameRejectPattern = "^(([0-9]+)|(\\s*)|(.*[^0-9a-zA-Z _.-]+.*))$";
constexpr const char *kOrganisationRejectPattern = "^(([0-9]+)|(\\s*)|(.*[^0-9a-zA-Z _.,-]+.*))$";

// Both fail closed: an engine that gives no answer (an error, a limit)
// neither accepts a field nor clears it of a rejection pattern.
bool Matches(const char *text, const char *pattern) {
    return BMC_RegularJudge(text, pattern) == kMatched;
}
bool ClearlyMisses(const char *text, const char *pattern) {
    return BMC_RegularJudge(text, pattern) == kNoMatch;
}

template <size_t N> bool Terminated(const char (&field)[N]) {
    return std::memchr(field, '\0', N) != nullptr;
}

// A name field, its rejection pattern and its failure report, in the order
// in which they are checked after the e-mail address and the country.
struct NameRule {
    bool terminated;
    const char *value;
    const char *pattern;
    const char *report;
};

} // namespace

void EndTexts(SSLCertGenParam &request) {
    EndText(request.szCommonName);
    EndText(request.szOrganisation);
    EndText(request.szOrganisationUnit);
    EndText(request.szLocalityName);
    EndText(request.szStateName);
    EndText(request.szCountryCode);
    EndText(request.szEmailAddress);
}

} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t SECURITY_SSL_GenSSLCert_Check(const SSLCertGenParam *pstSSLCert) {
    BMCCERT_CHECK_NULL(pstSSLCert, SSLCERT_ERR_NULL_POINTER);

    if (pstSSLCert->uiKeyLength != SSLCERT_GEN_KEYLEN_1024 &&
        pstSSLCert->uiKeyLength != SSLCERT_GEN_KEYLEN_2048) {
        BMCCERT_DIAG(kLevelFailure, "SSL cert Gen Keylength verify failed! Keylength = %d.\n",
                     pstSSLCert->uiKeyLength);
        return SSLCERT_ERR_GENERAL;
    }
    if (CFGM_CheckContinueNum(pstSSLCert->uiValidDays, kMinValidDays, SSLCERT_GEN_MAX_DAYS,
                              kInclusiveRange) != 0) {
        BMCCERT_DIAG(kLevelFailure, "SSL cert Gen ValidDays verify failed! ValidDays = %d.\n",
                     pstSSLCert->uiValidDays);
        return SSLCERT_ERR_GENERAL;
    }
    // The patterns and the reports read a copy whose every text ends inside
    // its field; a field that the caller filled to its last byte fails its
    // own rule.
    const SSLCertGenParam &given = *pstSSLCert;
    SSLCertGenParam request = given;
    EndTexts(request);
    if (!Terminated(given.szEmailAddress) || !Matches(request.szEmailAddress, kEmailPattern)) {
        BMCCERT_DIAG(kLevelFailure,
                     "SSL cert Gen Email Address verify failed! EmailAddress = %s.\n",
                     request.szEmailAddress);
        return SSLCERT_ERR_GENERAL;
    }
    if (!Terminated(given.szCountryCode) || !Matches(request.szCountryCode, kCountryPattern)) {
        BMCCERT_DIAG(kLevelFailure, "SSL cert Gen Country Code verify failed! CountryCode = %s.\n",
                     request.szCountryCode);
        return SSLCERT_ERR_GENERAL;
    }

    const NameRule rules[] = {
        {Terminated(given.szCommonName), request.szCommonName, kNameRejectPattern,
         "SSL cert Gen Common Name verify failed! CommonName = %s.\n"},
        {Terminated(given.szOrganisation), request.szOrganisation, kOrganisationRejectPattern,
         "SSL cert Gen Organisation verify failed! Organisation = %s.\n"},
        {Terminated(given.szOrganisationUnit), request.szOrganisationUnit, kNameRejectPattern,
         "SSL cert Gen Organisation Unit verify failed! OrganisationUnit = %s.\n"},
        {Terminated(given.szLocalityName), request.szLocalityName, kNameRejectPattern,
         "SSL cert Gen Locality Name verify failed! LocalityName = %s.\n"},
        {Terminated(given.szStateName), request.szStateName, kNameRejectPattern,
         "SSL cert Gen State Name verify failed! StateName = %s.\n"},
    };
    for (const NameRule &rule : rules) {
        if (!rule.terminated || !ClearlyMisses(rule.value, rule.pattern)) {
            // Each report is a constant of the table above with one %s.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
            BMCCERT_DIAG(kLevelFailure, rule.report, rule.value);
#pragma GCC diagnostic pop
            return SSLCERT_ERR_GENERAL;
        }
    }
    return SSLCERT_OK;
}
