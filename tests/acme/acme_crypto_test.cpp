// What a CA checks of the client's signed requests, and when a fleet
// renews: a coordinate or a signature half one byte short, a thumbprint
// over other bytes, a token that walks out of its directory, a due time
// outside the CA's window.
#include <gtest/gtest.h>

#include <openssl/hmac.h>
#include <openssl/sha.h>

#include "acme/account_key.h"
#include "acme/base64url.h"
#include "acme/challenge_token.h"
#include "acme/jws.h"
#include "acme/renewal_window.h"
#include "tests/support/lab_ca.h"

namespace bmccert::acme {
namespace {

std::string Member(const json_t *object, const char *name) {
    const json_t *value = json_object_get(object, name);
    return json_is_string(value) ? json_string_value(value) : "";
}

JsonRef Part(const json_t *jws, const char *name) {
    return JsonRef(json_loads(Base64UrlDecode(Member(jws, name)).value_or("").c_str(), 0, nullptr));
}

const auto *Bytes(const std::string &text) {
    return reinterpret_cast<const unsigned char *>(text.data());
}

std::string Text(const unsigned char *bytes, size_t size) {
    return {reinterpret_cast<const char *>(bytes), size};
}

// The signature as a CA reads it: exactly R||S, 64 bytes.
bool VerifiesUnder(const json_t *jws, EVP_PKEY *key) {
    const auto raw = Base64UrlDecode(Member(jws, "signature"));
    if (!raw || raw->size() != 64) return false;
    const UniquePtr<ECDSA_SIG> signature(ECDSA_SIG_new());
    ECDSA_SIG_set0(signature.get(), BN_bin2bn(Bytes(*raw), 32, nullptr),
                   BN_bin2bn(Bytes(*raw) + 32, 32, nullptr));
    unsigned char der[80], *end = der, digest[SHA256_DIGEST_LENGTH];
    const int derSize = i2d_ECDSA_SIG(signature.get(), &end);
    const std::string input = Member(jws, "protected") + "." + Member(jws, "payload");
    SHA256(Bytes(input), input.size(), digest);
    const UniquePtr<EVP_PKEY_CTX> verify(EVP_PKEY_CTX_new(key, nullptr));
    return EVP_PKEY_verify_init(verify.get()) == 1 &&
           EVP_PKEY_verify(verify.get(), der, derSize, digest, sizeof digest) == 1;
}

// Until both a short coordinate and a short R or S came by (each about
// one time in 128). The JWK and its thumbprint against ones built here
// from the raw public point.
TEST(Jws, Es256WithShortCoordinatesAndSignatureHalves) {
    bool shortCoordinate = false, shortHalf = false;
    for (int round = 0; round < 5000 && !(shortCoordinate && shortHalf); ++round) {
        const UniquePtr<EVP_PKEY> key = GenerateAccountKey();
        const auto body = SignRequest(key.get(), {"bm9uY2U", "https://ca/acct", ""}, "{}");
        const JsonRef jws(json_loads(body.value_or("").c_str(), 0, nullptr));
        ASSERT_TRUE(VerifiesUnder(jws.get(), key.get()));
        unsigned char point[65], digest[SHA256_DIGEST_LENGTH];
        EVP_PKEY_get_octet_string_param(key.get(), "pub", point, sizeof point, nullptr);
        const std::string jwk = "{\"crv\":\"P-256\",\"kty\":\"EC\",\"x\":\"" +
                                Base64UrlEncode(Text(point + 1, 32)) + "\",\"y\":\"" +
                                Base64UrlEncode(Text(point + 33, 32)) + "\"}";
        ASSERT_EQ(CompactText(Part(jws.get(), "protected").get(), JSON_SORT_KEYS),
                  "{\"alg\":\"ES256\",\"jwk\":" + jwk +
                      ",\"nonce\":\"bm9uY2U\",\"url\":\"https://ca/acct\"}");
        SHA256(Bytes(jwk), jwk.size(), digest);
        ASSERT_EQ(Base64UrlDecode(JwkThumbprint(key.get()).value_or("")), Text(digest, 32));
        const std::string signature = *Base64UrlDecode(Member(jws.get(), "signature"));
        shortCoordinate = shortCoordinate || point[1] == 0 || point[33] == 0;
        shortHalf = shortHalf || signature[0] == 0 || signature[32] == 0;
    }
    EXPECT_TRUE(shortCoordinate && shortHalf);
}

// The binding's MAC over the account's JWK; the key change signed by the
// new key, naming the old one.
TEST(Jws, ExternalAccountBindingAndKeyChange) {
    const UniquePtr<EVP_PKEY> old = GenerateAccountKey(), next = GenerateAccountKey();
    const std::string mac = DecodeMacKey("6Onq6+zt7u/w8fLz9PX29/j5+vv8/f7/").value();
    const JsonRef eab = ExternalAccountBinding(old.get(), "kid-1", mac, "https://ca/n");
    EXPECT_EQ(CompactText(Part(eab.get(), "protected").get(), JSON_SORT_KEYS),
              "{\"alg\":\"HS256\",\"kid\":\"kid-1\",\"url\":\"https://ca/n\"}");
    EXPECT_TRUE(json_equal(Part(eab.get(), "payload").get(), PublicJwk(old.get()).get()));
    const std::string input = Member(eab.get(), "protected") + "." + Member(eab.get(), "payload");
    EXPECT_EQ(Base64UrlDecode(Member(eab.get(), "signature")),
              Text(HMAC(EVP_sha256(), mac.data(), int(mac.size()), Bytes(input), input.size(),
                        nullptr, nullptr),
                   32));

    const JsonRef inner = KeyChangeInner(next.get(), old.get(), "https://ca/a/7", "https://ca/k");
    EXPECT_TRUE(VerifiesUnder(inner.get(), next.get()));
    EXPECT_EQ(CompactText(Part(inner.get(), "payload").get()),
              "{\"account\":\"https://ca/a/7\",\"oldKey\":" +
                  *CompactText(PublicJwk(old.get()).get()) + "}");
    EXPECT_TRUE(json_equal(json_object_get(Part(inner.get(), "protected").get(), "jwk"),
                           PublicJwk(next.get()).get()));
}

TEST(Base64Url, RowsOfBothDecoders) {
    // clang-format off
    std::tuple<const char *, std::optional<std::string>, std::optional<std::string>> rows[] = {
        {"", "", {}}, {"Zg", "f", "f"}, {"Zm9v", "foo", "foo"}, {"-_8", "\xfb\xff", "\xfb\xff"},
        {"+/8=", {}, "\xfb\xff"}, {"-_8=", {}, "\xfb\xff"}, {"+/8", {}, {}}, {"+_8=", {}, {}},
        {"Zg==", {}, "f"}, {"Z", {}, {}}, {"Zh", {}, {}}, {"Zm9v\n", {}, {}}, {"Zg==Zg==", {}, {}}};
    // clang-format on
    for (const auto &[text, strict, macKey] : rows) {
        EXPECT_EQ(Base64UrlDecode(text), strict) << text;
        EXPECT_EQ(DecodeMacKey(text), macKey) << text;
        EXPECT_TRUE(!strict || Base64UrlEncode(*strict) == text) << text;
    }
}

TEST(ChallengeToken, OnlyTheUrlAlphabetNamesAFile) {
    // clang-format off
    const std::pair<std::string, bool> rows[] = {
        {"eva-G_x9", true}, {std::string(256, 'a'), true}, {"", false}, {"a/b", false},
        {std::string(257, 'a'), false}, {"..", false}, {".", false}, {"a+b", false}, {"ab=", false},
        {std::string("a\0b", 3), false}};
    // clang-format on
    for (const auto &[token, good] : rows)
        EXPECT_EQ(IsValidToken(token), good) << token;
}

// The published example (AKI 69885b6b..., serial 0x87654321); a
// certificate without an AKI key id has no identifier.
TEST(RenewalWindow, CertificateIdentifier) {
    const auto example = bmctest::ReadPem(
        bmctest::ReadFile(BMCCERT_TEST_DATA_DIR "/acme-renewal-id.pem"), PEM_read_bio_X509);
    EXPECT_EQ(RenewalCertificateId(example.get()), "aYhba4dGQEHhs3uEe6CuLN4ByNQ.AIdlQyE");
    const auto plain = bmctest::ReadPem(bmctest::MakeCertPem({}), PEM_read_bio_X509);
    EXPECT_EQ(RenewalCertificateId(plain.get()), std::nullopt);
}

TEST(RenewalWindow, DueTimeAndBackoffRows) {
    constexpr int64_t kDay = 86400, start = 1000 * kDay, end = start + 90 * kDay;
    constexpr int64_t now = start + kDay;
    using W = SuggestedWindow;
    const std::tuple<const char *, std::optional<W>, double, int64_t> rows[] = {
        {"no window, earliest", std::nullopt, 0.0, end - 39 * kDay},
        {"no window, latest", std::nullopt, 1.0, end - 30 * kDay},
        {"inverted window", W{end - kDay, end - 2 * kDay}, 1.0, end - 30 * kDay},
        {"window", W{end - 4 * kDay, end - 2 * kDay}, 0.5, end - 3 * kDay},
        {"window past expiry", W{end - kDay, end + 9 * kDay}, 0.5, end - kDay / 2},
        {"window partly past", W{now - kDay, now + kDay}, 0.0, now},
        {"window over", W{now - 2 * kDay, now - kDay}, 0.5, now},
        {"source out of range", W{end - 4 * kDay, end - 2 * kDay}, -1.0, end - 4 * kDay}};
    for (const auto &[name, window, uniform, due] : rows)
        EXPECT_NEAR(RenewalDueTime(start, end, now, window, uniform), due, 1) << name;

    // Back-off: an hour, doubling to a day, shortened by up to a quarter.
    // clang-format off
    const std::pair<unsigned, int64_t> backoff[] = {{0, 0}, {1, 3600}, {2, 7200}, {3, 14400},
        {5, 57600}, {6, 86400}, {7, 86400}, {~0U, 86400}};
    // clang-format on
    for (const auto &[failures, full] : backoff) {
        EXPECT_EQ(FailureBackoffSeconds(failures, 0.0), full) << failures;
        EXPECT_EQ(FailureBackoffSeconds(failures, 0.999999), full * 3 / 4 + (failures > 0));
    }
}

} // namespace
} // namespace bmccert::acme
