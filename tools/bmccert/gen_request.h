// A generation request from the command line, and which of its fields the
// library's request rules refuse.
#pragma once

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
};

// Texts longer than their field are cut, as every record's texts are.
[[nodiscard]] SSLCertGenParam MakeRequest(const GenerateOptions &options);

struct RefusedField {
    std::string option; // the command-line option, "--email"
    std::string why;    // the rule it breaks
};

// The first field that the library's check refuses, in the check's order.
// Each field is checked alone beside fields known to pass, so the answer
// comes from the library's own rules.
[[nodiscard]] std::optional<RefusedField> FindRefusedField(const SSLCertGenParam &request);

} // namespace bmccert::cli
