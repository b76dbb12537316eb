#include "gen_request.h"

#include <cstring>
#include <functional>


namespace bmccert::cli {
namespace {

// A request that passes every rule, into which one field is put at a time.
SSLCertGenParam PassingRequest() {
    SSLCertGenParam request{};
    request.uiKeyLength = SSLCERT_GEN_KEYLEN_2048;
    request.uiValidDays = 1;
    std::strcpy(request.szCommonName, "a");
    std::strcpy(request.szOrganisation, "a");
    std::strcpy(request.szOrganisationUnit, "a");
    std::strcpy(request.szLocalityName, "a");
    std::strcpy(request.szStateName, "a");
    std::strcpy(request.szCountryCode, "aa");
    std::strcpy(request.szEmailAddress, "a@a.a");
    return request;
}

struct FieldRule {
    const char *option;
    const char *why;
    std::function<void(SSLCertGenParam &, const SSLCertGenParam &)> take;
};

} // namespace

std::optional<RefusedField> MakeRequest(const GenerateOptions &options, SSLCertGenParam &request) {
    request = SSLCertGenParam{};
    request.uiKeyLength = options.keyLength;
    request.uiValidDays = options.validDays;
    return PutSubject(options, request);
}

std::optional<RefusedField> FindRefusedField(const SSLCertGenParam &request) {
    constexpr const char *kNameRule =
        "must not be blank or digits only, and may hold only letters, digits, space, '_', '.' "
        "and '-'";
    const FieldRule rules[] = {
        {"--key-length", "must be 1024 or 2048",
         [](auto &to, const auto &from) { to.uiKeyLength = from.uiKeyLength; }},
        {"--days", "must be 1 to 5475",
         [](auto &to, const auto &from) { to.uiValidDays = from.uiValidDays; }},
        {"--email", "must be an address such as name@host.example",
         [](auto &to, const auto &from) {
             std::memcpy(to.szEmailAddress, from.szEmailAddress, sizeof to.szEmailAddress);
         }},
        {"--country", "must be two letters",
         [](auto &to, const auto &from) {
             std::memcpy(to.szCountryCode, from.szCountryCode, sizeof to.szCountryCode);
         }},
        {"--cn", kNameRule,
         [](auto &to, const auto &from) {
             std::memcpy(to.szCommonName, from.szCommonName, sizeof to.szCommonName);
         }},
        {"--org", "must not be blank or digits only, and may hold only letters, digits, space, "
                  "'_', '.', ',' and '-'",
         [](auto &to, const auto &from) {
             std::memcpy(to.szOrganisation, from.szOrganisation, sizeof to.szOrganisation);
         }},
        {"--ou", kNameRule,
         [](auto &to, const auto &from) {
             std::memcpy(to.szOrganisationUnit, from.szOrganisationUnit,
                         sizeof to.szOrganisationUnit);
         }},
        {"--locality", kNameRule,
         [](auto &to, const auto &from) {
             std::memcpy(to.szLocalityName, from.szLocalityName, sizeof to.szLocalityName);
         }},
        {"--state", kNameRule,
         [](auto &to, const auto &from) {
             std::memcpy(to.szStateName, from.szStateName, sizeof to.szStateName);
         }},
    };
    for (const FieldRule &rule : rules) {
        SSLCertGenParam probe = PassingRequest();
        rule.take(probe, request);
        if (SECURITY_SSL_GenSSLCert_Check(&probe) != SSLCERT_OK)
            return RefusedField{rule.option, rule.why};
    }
    return std::nullopt;
}

} // namespace bmccert::cli
