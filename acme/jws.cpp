#include "acme/jws.h"

#include <openssl/hmac.h>
#include <openssl/sha.h>

#include <array>
#include <vector>

#include "acme/account_key.h"
#include "acme/base64url.h"

namespace bmccert::acme {
namespace {

constexpr int kScalarBytes = 32;
// HMAC takes the key's length as an int; no CA hands out a key near it.
constexpr size_t kMaxMacKeyBytes = 4096;

std::string_view Bytes(const unsigned char *data, size_t size) {
    return {reinterpret_cast<const char *>(data), size};
}

// JWS wants R||S, each zero-padded to 32 bytes; OpenSSL gives DER, whose
// integers are as short as their value (a short R or S in about one
// signature of 128).
std::optional<std::string> SignEs256(EVP_PKEY *key, std::string_view input) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(reinterpret_cast<const unsigned char *>(input.data()), input.size(), digest.data());
    const UniquePtr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new(key, nullptr));
    size_t length = 0;
    if (!context || EVP_PKEY_sign_init(context.get()) != 1 ||
        EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256()) != 1 ||
        EVP_PKEY_sign(context.get(), nullptr, &length, digest.data(), digest.size()) != 1)
        return std::nullopt;
    std::vector<unsigned char> der(length);
    if (EVP_PKEY_sign(context.get(), der.data(), &length, digest.data(), digest.size()) != 1)
        return std::nullopt;
    const unsigned char *cursor = der.data();
    const UniquePtr<ECDSA_SIG> signature(
        d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(length)));
    if (!signature) return std::nullopt;
    const BIGNUM *r = nullptr;
    const BIGNUM *s = nullptr;
    ECDSA_SIG_get0(signature.get(), &r, &s);
    std::array<unsigned char, 2 * kScalarBytes> raw{};
    if (BN_bn2binpad(r, raw.data(), kScalarBytes) != kScalarBytes ||
        BN_bn2binpad(s, raw.data() + kScalarBytes, kScalarBytes) != kScalarBytes)
        return std::nullopt;
    return std::string(Bytes(raw.data(), raw.size()));
}

std::optional<std::string> SignHs256(std::string_view macKey, std::string_view input) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> mac{};
    unsigned int length = 0;
    if (HMAC(EVP_sha256(), macKey.data(), static_cast<int>(macKey.size()),
             reinterpret_cast<const unsigned char *>(input.data()), input.size(), mac.data(),
             &length) == nullptr ||
        length != mac.size())
        return std::nullopt;
    return std::string(Bytes(mac.data(), mac.size()));
}

// {"protected","payload","signature"} over HEADER and PAYLOAD; SIGN turns
// the signing input into the signature's bytes.
template <typename Sign>
JsonRef Flattened(const json_t *header, std::string_view payload, Sign sign) {
    const auto headerText = CompactText(header);
    if (!headerText) return nullptr;
    const std::string protectedPart = Base64UrlEncode(*headerText);
    const std::string payloadPart = Base64UrlEncode(payload);
    const auto signature = sign(protectedPart + "." + payloadPart);
    if (!signature) return nullptr;
    const std::string signaturePart = Base64UrlEncode(*signature);
    return JsonRef(json_pack("{s:s%, s:s%, s:s%}", "protected", protectedPart.data(),
                             protectedPart.size(), "payload", payloadPart.data(),
                             payloadPart.size(), "signature", signaturePart.data(),
                             signaturePart.size()));
}

JsonRef FlattenedEs256(EVP_PKEY *key, const json_t *header, std::string_view payload) {
    return Flattened(header, payload,
                     [key](std::string_view input) { return SignEs256(key, input); });
}

} // namespace

std::optional<std::string> SignRequest(EVP_PKEY *accountKey, const RequestHeader &header,
                                       std::string_view payload) {
    // The nonce is the server's, taken from a header: it must be what the
    // server may send (base64url) before it is signed.
    const auto nonceBytes = Base64UrlDecode(header.nonce);
    if (!IsP256Key(accountKey) || header.nonce.empty() || !nonceBytes || header.url.empty())
        return std::nullopt;
    JsonRef protectedHeader(json_pack("{s:s, s:s%, s:s%}", "alg", "ES256", "nonce",
                                      header.nonce.data(), header.nonce.size(), "url",
                                      header.url.data(), header.url.size()));
    if (!protectedHeader) return std::nullopt;
    if (header.kid.empty()) {
        JsonRef jwk = PublicJwk(accountKey);
        if (!jwk || json_object_set(protectedHeader.get(), "jwk", jwk.get()) != 0)
            return std::nullopt;
    } else {
        JsonRef kid(json_stringn(header.kid.data(), header.kid.size()));
        if (!kid || json_object_set(protectedHeader.get(), "kid", kid.get()) != 0)
            return std::nullopt;
    }
    const JsonRef body = FlattenedEs256(accountKey, protectedHeader.get(), payload);
    return body ? CompactText(body.get()) : std::nullopt;
}

JsonRef ExternalAccountBinding(const EVP_PKEY *accountKey, std::string_view keyId,
                               std::string_view macKey, std::string_view newAccountUrl) {
    if (keyId.empty() || macKey.empty() || macKey.size() > kMaxMacKeyBytes || newAccountUrl.empty())
        return nullptr;
    const JsonRef jwk = PublicJwk(accountKey);
    const auto jwkText = jwk ? CompactText(jwk.get()) : std::nullopt;
    if (!jwkText) return nullptr;
    const JsonRef protectedHeader(json_pack("{s:s, s:s%, s:s%}", "alg", "HS256", "kid",
                                            keyId.data(), keyId.size(), "url", newAccountUrl.data(),
                                            newAccountUrl.size()));
    if (!protectedHeader) return nullptr;
    return Flattened(protectedHeader.get(), *jwkText,
                     [macKey](std::string_view input) { return SignHs256(macKey, input); });
}

JsonRef KeyChangeInner(EVP_PKEY *newKey, const EVP_PKEY *oldKey, std::string_view accountUrl,
                       std::string_view keyChangeUrl) {
    if (accountUrl.empty() || keyChangeUrl.empty()) return nullptr;
    const JsonRef newJwk = PublicJwk(newKey);
    const JsonRef oldJwk = PublicJwk(oldKey);
    if (!newJwk || !oldJwk) return nullptr;
    const JsonRef protectedHeader(json_pack("{s:s, s:O, s:s%}", "alg", "ES256", "jwk", newJwk.get(),
                                            "url", keyChangeUrl.data(), keyChangeUrl.size()));
    const JsonRef payload(json_pack("{s:s%, s:O}", "account", accountUrl.data(), accountUrl.size(),
                                    "oldKey", oldJwk.get()));
    const auto payloadText = payload ? CompactText(payload.get()) : std::nullopt;
    if (!protectedHeader || !payloadText) return nullptr;
    return FlattenedEs256(newKey, protectedHeader.get(), *payloadText);
}

} // namespace bmccert::acme
