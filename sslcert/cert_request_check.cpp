// Field-by-field check of a certificate request of the extension, before
// any key is made or any file written.
#include <cstring>

#include "frame/alt_name_rules.h"
#include "sslcert/cert_request.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr uint32_t kP256Bits = 256;
constexpr uint32_t kP384Bits = 384;

// A generation request that passes every rule of its check.
SSLCertGenParam PassingGenRequest() {
    SSLCertGenParam request{};
    request.uiKeyLength = SSLCERT_GEN_KEYLEN_2048;
    request.uiValidDays = 1;
    request.szCommonName[0] = 'a';
    request.szOrganisation[0] = 'a';
    request.szOrganisationUnit[0] = 'a';
    request.szLocalityName[0] = 'a';
    request.szStateName[0] = 'a';
    std::memcpy(request.szCountryCode, "aa", sizeof "aa");
    std::memcpy(request.szEmailAddress, "a@a.a", sizeof "a@a.a");
    return request;
}

template <auto Member> void TakeField(SSLCertGenParam &to, const SSLCertGenParam &from) {
    std::memcpy(&(to.*Member), &(from.*Member), sizeof(to.*Member));
}

struct GenField {
    uint32_t field;
    void (*take)(SSLCertGenParam &, const SSLCertGenParam &);
};

// The fields in the order the generation request's check takes them, so
// that the first one refused alone is the one the whole check refuses.
constexpr GenField kGenCheckOrder[] = {
    {SSLCERT_EXT_FIELD_KEY_TYPE, TakeField<&SSLCertGenParam::uiKeyLength>},
    {SSLCERT_EXT_FIELD_VALID_DAYS, TakeField<&SSLCertGenParam::uiValidDays>},
    {SSLCERT_EXT_FIELD_EMAIL, TakeField<&SSLCertGenParam::szEmailAddress>},
    {SSLCERT_EXT_FIELD_COUNTRY, TakeField<&SSLCertGenParam::szCountryCode>},
    {SSLCERT_EXT_FIELD_COMMON_NAME, TakeField<&SSLCertGenParam::szCommonName>},
    {SSLCERT_EXT_FIELD_ORGANISATION, TakeField<&SSLCertGenParam::szOrganisation>},
    {SSLCERT_EXT_FIELD_UNIT, TakeField<&SSLCertGenParam::szOrganisationUnit>},
    {SSLCERT_EXT_FIELD_LOCALITY, TakeField<&SSLCertGenParam::szLocalityName>},
    {SSLCERT_EXT_FIELD_STATE, TakeField<&SSLCertGenParam::szStateName>},
};

// The subject through the generation request's own check, so that every
// text is refused with the same rule and the same report.
uint32_t CheckSubject(const SSLCertRequest &request, bool selfSigned, uint32_t &field) {
    SSLCertGenParam subject{};
    subject.uiKeyLength = SSLCERT_GEN_KEYLEN_2048; // the key is checked on its own
    subject.uiValidDays = selfSigned ? request.uiValidDays : 1;
    std::memcpy(subject.szCommonName, request.szCommonName, sizeof subject.szCommonName);
    std::memcpy(subject.szOrganisation, request.szOrganisation, sizeof subject.szOrganisation);
    std::memcpy(subject.szOrganisationUnit, request.szOrganisationUnit,
                sizeof subject.szOrganisationUnit);
    std::memcpy(subject.szLocalityName, request.szLocalityName, sizeof subject.szLocalityName);
    std::memcpy(subject.szStateName, request.szStateName, sizeof subject.szStateName);
    std::memcpy(subject.szCountryCode, request.szCountryCode, sizeof subject.szCountryCode);
    std::memcpy(subject.szEmailAddress, request.szEmailAddress, sizeof subject.szEmailAddress);
    static_assert(sizeof subject.szCommonName == sizeof request.szCommonName &&
                  sizeof subject.szLocalityName == sizeof request.szLocalityName &&
                  sizeof subject.szEmailAddress == sizeof request.szEmailAddress);
    return CheckGenRequest(subject, field) == SSLCERT_OK ? SSLCERT_OK : SSLCERT_EXT_ERR_BAD_SUBJECT;
}

// Why an alternative name is refused, or null when it is not.
const char *AltNameRefusal(const SSLCertAltName &name) {
    const void *const end = std::memchr(name.szName, '\0', sizeof name.szName);
    if (end == nullptr) return "it fills its field without a terminator";
    const std::string_view text(name.szName,
                                static_cast<size_t>(static_cast<const char *>(end) - name.szName));
    if (name.uiType == SSLCERT_EXT_ALT_NAME_DNS)
        return IsHostName(text) ? nullptr : "not a host name";
    if (name.uiType == SSLCERT_EXT_ALT_NAME_IP)
        return IsIpAddress(name.szName) ? nullptr : "not an IPv4 or IPv6 address";
    return "unknown type";
}

uint32_t CheckAltNames(const SSLCertRequest &request, uint32_t &field) {
    if (request.uiAltNameCount > SSLCERT_EXT_MAX_ALT_NAMES) {
        field = SSLCERT_EXT_FIELD_ALT_NAME_COUNT;
        BMCCERT_DIAG(kLevelFailure,
                     "Certificate request uiAltNameCount verify failed! Count = %u, at most %u.\n",
                     request.uiAltNameCount, SSLCERT_EXT_MAX_ALT_NAMES);
        return SSLCERT_EXT_ERR_BAD_ALT_NAME;
    }
    for (uint32_t i = 0; i < request.uiAltNameCount; ++i) {
        // The name itself stays out of the report: it may hold anything.
        if (const char *refusal = AltNameRefusal(request.astAltNames[i]); refusal != nullptr) {
            BMCCERT_DIAG(kLevelFailure,
                         "Certificate request astAltNames[%u] verify failed! Type = %u, %s.\n", i,
                         request.astAltNames[i].uiType, refusal);
            field = SSLCERT_EXT_FIELD_ALT_NAME + i;
            return SSLCERT_EXT_ERR_BAD_ALT_NAME;
        }
    }
    return SSLCERT_OK;
}

bool KeyTypeListed(const SSLCertRequest &request) {
    if (request.uiKeyAlgorithm == SSLCERT_EXT_KEY_RSA)
        return request.uiKeyCurve == SSLCERT_EXT_CURVE_NONE &&
               (request.uiKeyBitLength == 2048 || request.uiKeyBitLength == 3072 ||
                request.uiKeyBitLength == 4096);
    if (request.uiKeyAlgorithm == SSLCERT_EXT_KEY_EC) {
        if (request.uiKeyCurve == SSLCERT_EXT_CURVE_P256)
            return request.uiKeyBitLength == 0 || request.uiKeyBitLength == kP256Bits;
        if (request.uiKeyCurve == SSLCERT_EXT_CURVE_P384)
            return request.uiKeyBitLength == 0 || request.uiKeyBitLength == kP384Bits;
    }
    return false;
}

} // namespace

uint32_t CheckGenRequest(const SSLCertGenParam &request, uint32_t &field) {
    field = SSLCERT_EXT_FIELD_NONE;
    for (const GenField &probe : kGenCheckOrder) {
        SSLCertGenParam alone = PassingGenRequest();
        probe.take(alone, request);
        if (const uint32_t result = SECURITY_SSL_GenSSLCert_Check(&alone); result != SSLCERT_OK) {
            field = probe.field;
            return result;
        }
    }
    return SSLCERT_OK;
}

uint32_t CheckCertRequest(const SSLCertRequest &request, bool selfSigned, uint32_t &field) {
    field = SSLCERT_EXT_FIELD_NONE;
    if (const uint32_t result = CheckSubject(request, selfSigned, field); result != SSLCERT_OK)
        return result;
    if (const uint32_t result = CheckAltNames(request, field); result != SSLCERT_OK) return result;
    if (!KeyTypeListed(request)) {
        BMCCERT_DIAG(kLevelFailure,
                     "Certificate request key verify failed! Algorithm = %u, BitLength = %u, "
                     "Curve = %u.\n",
                     request.uiKeyAlgorithm, request.uiKeyBitLength, request.uiKeyCurve);
        field = SSLCERT_EXT_FIELD_KEY_TYPE;
        return SSLCERT_EXT_ERR_BAD_KEY_TYPE;
    }
    return SSLCERT_OK;
}

uint32_t CheckCertRequest(const SSLCertRequest &request, bool selfSigned) {
    uint32_t field = SSLCERT_EXT_FIELD_NONE;
    return CheckCertRequest(request, selfSigned, field);
}

} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t LIB_SECURITY_SSL_CheckCertRequestField(const SSLCertRequest *pstRequest,
                                                           uint8_t bSelfSigned,
                                                           uint32_t *puiField) {
    BMCCERT_CHECK_NULL(pstRequest, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(puiField, SSLCERT_ERR_NULL_POINTER);
    return CheckCertRequest(*pstRequest, bSelfSigned != 0, *puiField);
}

extern "C" uint32_t LIB_SECURITY_SSL_CheckGenParamField(const SSLCertGenParam *pstSSLCert,
                                                        uint32_t *puiField) {
    BMCCERT_CHECK_NULL(pstSSLCert, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(puiField, SSLCERT_ERR_NULL_POINTER);
    return CheckGenRequest(*pstSSLCert, *puiField);
}
