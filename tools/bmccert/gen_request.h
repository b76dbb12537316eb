// A generation request from the command line, and which of its fields the
// library's request rules refuse.
#pragma once

#include <cstddef>
#include <cstring>
#include <optional>
#include <string>

#include "lib_security_sslcert.h"

namespace bmccert::cli {

struct GenerateOptions {
    std::string commonName;
    std::string organisation;
    std::string organisationUnit;
    std::string locality;
    std::string state;
    std::string country;
    std::string email;
    uint32_t keyLength = 2048;
    uint32_t validDays = 365;
    bool force = false; // a 1024-bit key all the same
};

struct RefusedField {
    std::string option; // the command-line option, "--email"
    std::string why;    // the rule it breaks
};

// "bmccert: <option> refused: <why>: <code>", the tool's exit status.
[[nodiscard]] int ReportRefused(const RefusedField &refused, uint32_t code);

// Copies text into its field when it fits with its terminator; otherwise
// the refusal names the option and the field's room. Nothing is ever cut.
template <std::size_t N>
[[nodiscard]] std::optional<RefusedField> PutText(char (&field)[N], const std::string &text,
                                                  const char *option) {
    if (text.size() >= N)
        return RefusedField{option, std::to_string(text.size()) + " bytes; at most " +
                                        std::to_string(N - 1) + " fit"};
    std::memcpy(field, text.c_str(), text.size() + 1);
    return std::nullopt;
}

// The seven subject texts into a request of either kind (a generation's or
// a signing request's fields carry the same names), or the first option
// whose text does not fit its field.
template <typename Request>
[[nodiscard]] std::optional<RefusedField> PutSubject(const GenerateOptions &options,
                                                     Request &request) {
    for (auto refused : {PutText(request.szCommonName, options.commonName, "--cn"),
                         PutText(request.szOrganisation, options.organisation, "--org"),
                         PutText(request.szOrganisationUnit, options.organisationUnit, "--ou"),
                         PutText(request.szLocalityName, options.locality, "--locality"),
                         PutText(request.szStateName, options.state, "--state"),
                         PutText(request.szCountryCode, options.country, "--country"),
                         PutText(request.szEmailAddress, options.email, "--email")})
        if (refused) return refused;
    return std::nullopt;
}

// The request of the options, or the first option whose text does not fit
// its field.
[[nodiscard]] std::optional<RefusedField> MakeRequest(const GenerateOptions &options,
                                                      SSLCertGenParam &request);

// The option of a field the library's check names (SSLCERT_EXT_FIELD_*:
// the subject's texts, the days, the key length) with the rule it breaks.
[[nodiscard]] RefusedField NameField(uint32_t field);

// The first field that the library's check refuses, in the check's order,
// from one call of that check (which reports it once).
[[nodiscard]] std::optional<RefusedField> FindRefusedField(const SSLCertGenParam &request);

} // namespace bmccert::cli
