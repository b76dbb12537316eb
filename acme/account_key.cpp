#include "acme/account_key.h"

#include <openssl/core_names.h>
#include <openssl/sha.h>

#include <array>
#include <cstring>

#include "acme/base64url.h"

namespace bmccert::acme {
namespace {

constexpr size_t kCoordinateBytes = 32;

// A coordinate zero-padded to its full width: a short one would give the
// key another JWK and another thumbprint (about one key in 128).
std::optional<std::string> Coordinate(const EVP_PKEY *key, const char *name) {
    BIGNUM *raw = nullptr;
    if (EVP_PKEY_get_bn_param(key, name, &raw) != 1) return std::nullopt;
    const UniquePtr<BIGNUM> value(raw);
    std::array<unsigned char, kCoordinateBytes> bytes{};
    if (BN_bn2binpad(value.get(), bytes.data(), static_cast<int>(bytes.size())) !=
        static_cast<int>(bytes.size()))
        return std::nullopt;
    return Base64UrlEncode({reinterpret_cast<const char *>(bytes.data()), bytes.size()});
}

} // namespace

bool IsP256Key(const EVP_PKEY *key) {
    char group[32] = {};
    return key != nullptr && EVP_PKEY_get_base_id(key) == EVP_PKEY_EC &&
           EVP_PKEY_get_group_name(key, group, sizeof group, nullptr) == 1 &&
           std::strcmp(group, SN_X9_62_prime256v1) == 0;
}

UniquePtr<EVP_PKEY> GenerateAccountKey() {
    return UniquePtr<EVP_PKEY>(EVP_EC_gen(SN_X9_62_prime256v1));
}

JsonRef PublicJwk(const EVP_PKEY *key) {
    if (!IsP256Key(key)) return nullptr;
    const auto x = Coordinate(key, OSSL_PKEY_PARAM_EC_PUB_X);
    const auto y = Coordinate(key, OSSL_PKEY_PARAM_EC_PUB_Y);
    if (!x || !y) return nullptr;
    return JsonRef(json_pack("{s:s, s:s, s:s, s:s}", "crv", "P-256", "kty", "EC", "x", x->c_str(),
                             "y", y->c_str()));
}

std::optional<std::string> JwkThumbprint(const EVP_PKEY *key) {
    const JsonRef jwk = PublicJwk(key);
    if (!jwk) return std::nullopt;
    // The JWK holds exactly the required members, so its sorted compact
    // text is the thumbprint's input.
    const auto text = CompactText(jwk.get(), JSON_SORT_KEYS);
    if (!text) return std::nullopt;
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(reinterpret_cast<const unsigned char *>(text->data()), text->size(), digest.data());
    return Base64UrlEncode({reinterpret_cast<const char *>(digest.data()), digest.size()});
}

} // namespace bmccert::acme
