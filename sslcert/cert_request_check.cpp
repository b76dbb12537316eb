// Field-by-field check of a certificate request of the extension, before
// any key is made or any file written.
#include <arpa/inet.h>

#include <cstring>

#include "sslcert/cert_request.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr size_t kMaxHostNameLength = 253;
constexpr size_t kMaxLabelLength = 63;
constexpr uint32_t kP256Bits = 256;
constexpr uint32_t kP384Bits = 384;

bool IsLetterOrDigit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

bool IsLabel(std::string_view label) {
    if (label.empty() || label.size() > kMaxLabelLength) return false;
    if (label.front() == '-' || label.back() == '-') return false;
    for (const char c : label)
        if (!IsLetterOrDigit(c) && c != '-') return false;
    return true;
}

// The subject through the generation request's own check, so that every
// text is refused with the same rule and the same report.
uint32_t CheckSubject(const SSLCertRequest &request, bool selfSigned) {
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
    if (SECURITY_SSL_GenSSLCert_Check(&subject) != SSLCERT_OK) return SSLCERT_EXT_ERR_BAD_SUBJECT;
    return SSLCERT_OK;
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

uint32_t CheckAltNames(const SSLCertRequest &request) {
    if (request.uiAltNameCount > SSLCERT_EXT_MAX_ALT_NAMES) {
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

bool IsHostName(std::string_view name) {
    if (name.empty() || name.size() > kMaxHostNameLength) return false;
    // A wildcard stands only for the whole leftmost label.
    if (name.starts_with("*.")) name.remove_prefix(2);
    while (true) {
        const size_t dot = name.find('.');
        if (!IsLabel(name.substr(0, dot))) return false;
        if (dot == std::string_view::npos) return true;
        name.remove_prefix(dot + 1);
    }
}

bool IsIpAddress(const char *text) {
    unsigned char address[sizeof(struct in6_addr)];
    return inet_pton(AF_INET, text, address) == 1 || inet_pton(AF_INET6, text, address) == 1;
}

uint32_t CheckCertRequest(const SSLCertRequest &request, bool selfSigned) {
    if (const uint32_t result = CheckSubject(request, selfSigned); result != SSLCERT_OK)
        return result;
    if (const uint32_t result = CheckAltNames(request); result != SSLCERT_OK) return result;
    if (!KeyTypeListed(request)) {
        BMCCERT_DIAG(kLevelFailure,
                     "Certificate request key verify failed! Algorithm = %u, BitLength = %u, "
                     "Curve = %u.\n",
                     request.uiKeyAlgorithm, request.uiKeyBitLength, request.uiKeyCurve);
        return SSLCERT_EXT_ERR_BAD_KEY_TYPE;
    }
    return SSLCERT_OK;
}

} // namespace bmccert::sslcert
