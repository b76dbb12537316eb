// The names of the certificate types as the operator reads them, one table
// for the library's health findings and the tool's output.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "lib_security_sslcert.h"

namespace bmccert {

inline constexpr std::array<std::string_view, SSL_CERT_TYPE_GEN_TMP + 1> kCertTypeNames = {
    "none",                // SSL_CERT_TYPE_NONE
    "user",                // SSL_CERT_TYPE_USER
    "oem-custom",          // SSL_CERT_TYPE_OEM_CUSTOM
    "oem-default",         // SSL_CERT_TYPE_OEM_DEFAULT
    "factory-default",     // SSL_CERT_TYPE_DEFAULT
    "upload-temporary",    // SSL_CERT_TYPE_UPLOAD_TMP
    "generated-temporary", // SSL_CERT_TYPE_GEN_TMP
};

[[nodiscard]] constexpr std::string_view CertTypeName(uint32_t type) {
    return type < kCertTypeNames.size() ? kCertTypeNames[type] : "unknown";
}

} // namespace bmccert
