// Test certificates built with the OpenSSL API from the committed keys in
// tests/data, with fixed dates and serial numbers unless a test asks for
// dates relative to now.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace bmctest {

enum class KeyKind { Rsa2048, Rsa1024, Ec256 }; // the keys of tests/data

using NameEntries = std::vector<std::pair<std::string, std::string>>; // short name, value

struct CertRecipe {
    long rawVersion = 2; // 0 = v1, 2 = v3
    NameEntries subject = {{"C", "DE"}, {"O", "Test Works"}, {"CN", "bmc.test"}};
    std::optional<NameEntries> issuer;           // self-issued when absent
    std::optional<uint32_t> keyUsage;            // X509_get_key_usage bits; nullopt: no extension
    std::string extendedKeyUsage = "serverAuth"; // empty: no extension
    std::string subjectAltName;                  // "DNS:a,DNS:b"; empty: no extension
    int64_t notBefore = 1704067200;              // 2024-01-01T00:00:00Z
    int64_t notAfter = 2019686400;               // 2034-01-01T00:00:00Z
    long serial = 0x0A1B;
    KeyKind key = KeyKind::Rsa2048;
    std::optional<KeyKind> signer; // the issuer's key; self-signed when absent
    const char *digest = "SHA256";
    // Authority information access with this OCSP address, stored byte for
    // byte (hostile addresses included); empty: no extension.
    std::string ocspUrl;
    std::string crlUrl; // a CRL distribution point; empty: no extension
    // A private key in PEM whose public key the certificate carries instead
    // of key's (and which signs it when there is no signer).
    std::string keyPem;
    bool ca = false;                // basic constraints CA:TRUE
    std::optional<int> pathLength; // with ca: its pathlen constraint
};

inline constexpr uint32_t kKuDigitalSignature = 0x80;
inline constexpr uint32_t kKuKeyEncipherment = 0x20;
inline constexpr uint32_t kKuKeyCertSign = 0x04;
inline constexpr uint32_t kKuDecipherOnly = 0x8000;

std::string MakeCertPem(const CertRecipe &recipe);
// A revocation list of the issuer's name, signed with the signer's key,
// naming the revoked serial numbers.
std::string MakeCrlPem(const NameEntries &issuer, KeyKind signer, const std::vector<long> &revoked,
                       int64_t lastUpdate, int64_t nextUpdate);
std::string KeyPem(KeyKind key);

// The key encrypted under a fixed pass phrase: PKCS #8 ("BEGIN ENCRYPTED
// PRIVATE KEY") or the older form whose second line says ENCRYPTED; kept in
// tests/data for the 2048-bit key only.
enum class KeyEncryption { Pkcs8, Legacy };
std::string EncryptedKeyPem(KeyKind key, KeyEncryption form);
std::string ReadFile(const std::string &path);
void WriteFile(const std::string &path, const std::string &content);
// The lines of a file without their line feeds; none when it is missing.
std::vector<std::string> ReadLines(const std::string &path);

} // namespace bmctest
