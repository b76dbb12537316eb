#include "cert_type.h"

#include <array>
#include <charconv>

#include "lib_security_sslcert.h"

namespace bmccert::cli {
namespace {

constexpr std::array<std::string_view, SSL_CERT_TYPE_GEN_TMP + 1> kTypeNames = {
    "none",                // SSL_CERT_TYPE_NONE
    "user",                // SSL_CERT_TYPE_USER
    "oem-custom",          // SSL_CERT_TYPE_OEM_CUSTOM
    "oem-default",         // SSL_CERT_TYPE_OEM_DEFAULT
    "factory-default",     // SSL_CERT_TYPE_DEFAULT
    "upload-temporary",    // SSL_CERT_TYPE_UPLOAD_TMP
    "generated-temporary", // SSL_CERT_TYPE_GEN_TMP
};

} // namespace

std::string_view CertTypeName(uint32_t type) {
    return type < kTypeNames.size() ? kTypeNames[type] : "unknown";
}

std::optional<uint32_t> ParseCertType(std::string_view text) {
    if (text.empty() || text.front() < '0' || text.front() > '9') return std::nullopt;
    uint32_t value = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, 10);
    if (error != std::errc{} || stop != end) return std::nullopt;
    return value;
}

} // namespace bmccert::cli
