// A certificate's dates and key as an operator reads them, shared by the
// library's refusal of a signed answer and the tool's details of it.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include <openssl/asn1.h>
#include <openssl/evp.h>

namespace bmccert {

// A time as the controller's clock and the certificate both can be read:
// "2026-11-25 07:11:40 UTC".
[[nodiscard]] inline std::string UtcText(const std::tm &when) {
    char text[32] = {};
    return std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S UTC", &when) > 0 ? text : "?";
}

[[nodiscard]] inline std::string UtcText(const ASN1_TIME *when) {
    std::tm parts{};
    return when != nullptr && ASN1_TIME_to_tm(when, &parts) == 1 ? UtcText(parts) : "unreadable";
}

// A time as the controller's records keep it: seconds since 1970.
[[nodiscard]] inline std::string UtcText(int64_t seconds) {
    const auto when = static_cast<std::time_t>(seconds);
    std::tm parts{};
    return gmtime_r(&when, &parts) != nullptr ? UtcText(parts) : "?";
}

// The controller's clock now.
[[nodiscard]] inline std::string UtcNowText() {
    return UtcText(static_cast<int64_t>(std::time(nullptr)));
}

// "RSA 1024 bits", "EC 256 bits" (EC by its curve's order).
[[nodiscard]] inline std::string KeyText(const EVP_PKEY *key) {
    const int type = EVP_PKEY_base_id(key);
    const char *name = type == EVP_PKEY_RSA  ? "RSA"
                       : type == EVP_PKEY_EC ? "EC"
                                             : "of another type";
    return std::string(name) + ' ' + std::to_string(EVP_PKEY_bits(key)) + " bits";
}

} // namespace bmccert
