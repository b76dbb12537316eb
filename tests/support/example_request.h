// A certificate request every check accepts, for bmc-07.example.org with
// one DNS name and two addresses: the starting point of the unit tests, the
// alternative-name fuzz target and the request benchmark.
#pragma once

#include <cstring>
#include <utility>

#include "lib_security_sslcert_ext.h"

namespace bmctest {

inline constexpr const char *kExampleHost = "bmc-07.example.org";

inline SSLCertRequest ExampleRequest(uint32_t algorithm = SSLCERT_EXT_KEY_EC, uint32_t bits = 0,
                                     uint32_t curve = SSLCERT_EXT_CURVE_P256) {
    SSLCertRequest request{};
    std::strcpy(request.szCommonName, kExampleHost);
    std::strcpy(request.szOrganisation, "Test Works, Inc.");
    std::strcpy(request.szOrganisationUnit, "Platform");
    std::strcpy(request.szLocalityName, "Old Town");
    std::strcpy(request.szStateName, "North");
    std::strcpy(request.szCountryCode, "DE");
    std::strcpy(request.szEmailAddress, "ops@example.org");
    request.uiKeyAlgorithm = algorithm;
    request.uiKeyBitLength = bits;
    request.uiKeyCurve = curve;
    request.uiValidDays = 365;
    const std::pair<uint32_t, const char *> names[] = {{SSLCERT_EXT_ALT_NAME_DNS, kExampleHost},
                                                       {SSLCERT_EXT_ALT_NAME_IP, "192.0.2.7"},
                                                       {SSLCERT_EXT_ALT_NAME_IP, "2001:db8::7"}};
    for (const auto &[type, text] : names) {
        request.astAltNames[request.uiAltNameCount].uiType = type;
        std::strcpy(request.astAltNames[request.uiAltNameCount++].szName, text);
    }
    return request;
}

} // namespace bmctest
