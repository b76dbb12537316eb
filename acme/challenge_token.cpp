#include "acme/challenge_token.h"

#include <openssl/sha.h>

#include <algorithm>
#include <array>

#include "acme/base64url.h"

namespace bmccert::acme {

bool IsValidToken(std::string_view token) {
    return !token.empty() && token.size() <= kMaxTokenBytes &&
           std::all_of(token.begin(), token.end(), [](char c) {
               return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                      c == '-' || c == '_';
           });
}

std::optional<std::string> KeyAuthorization(std::string_view token, std::string_view thumbprint) {
    if (!IsValidToken(token) || thumbprint.empty()) return std::nullopt;
    std::string authorization(token);
    authorization += '.';
    authorization += thumbprint;
    return authorization;
}

std::string Dns01RecordValue(std::string_view keyAuthorization) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(reinterpret_cast<const unsigned char *>(keyAuthorization.data()),
           keyAuthorization.size(), digest.data());
    return Base64UrlEncode({reinterpret_cast<const char *>(digest.data()), digest.size()});
}

} // namespace bmccert::acme
