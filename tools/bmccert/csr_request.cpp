#include "csr_request.h"

#include <array>
#include <cstring>

#include "frame/alt_name_rules.h"
#include "frame/field_text.h"

namespace bmccert::cli {
namespace {

struct NamedKey {
    std::string_view name;
    KeyType key;
};

constexpr std::array kKeyTypes = {
    NamedKey{"rsa2048", {SSLCERT_EXT_KEY_RSA, 2048, SSLCERT_EXT_CURVE_NONE}},
    NamedKey{"rsa3072", {SSLCERT_EXT_KEY_RSA, 3072, SSLCERT_EXT_CURVE_NONE}},
    NamedKey{"rsa4096", {SSLCERT_EXT_KEY_RSA, 4096, SSLCERT_EXT_CURVE_NONE}},
    NamedKey{"p256", {SSLCERT_EXT_KEY_EC, 256, SSLCERT_EXT_CURVE_P256}},
    NamedKey{"p384", {SSLCERT_EXT_KEY_EC, 384, SSLCERT_EXT_CURVE_P384}},
};

} // namespace

std::optional<KeyType> ParseKeyType(std::string_view text) {
    for (const NamedKey &entry : kKeyTypes)
        if (entry.name == text) return entry.key;
    return std::nullopt;
}

std::string_view KeyTypeName(uint32_t algorithm, uint32_t bitLength, uint32_t curve) {
    for (const NamedKey &entry : kKeyTypes) {
        if (entry.key.algorithm != algorithm || entry.key.curve != curve) continue;
        if (entry.key.bitLength == bitLength || (algorithm == SSLCERT_EXT_KEY_EC && bitLength == 0))
            return entry.name;
    }
    return "unknown";
}

std::optional<RefusedField> FillCertRequest(const GenerateOptions &subject, const KeyType &key,
                                            const AltNameOptions &names, SSLCertRequest &request) {
    request = SSLCertRequest{};
    if (auto refused = PutSubject(subject, request)) return refused;
    request.uiKeyAlgorithm = key.algorithm;
    request.uiKeyBitLength = key.bitLength;
    request.uiKeyCurve = key.curve;
    request.uiValidDays = subject.validDays;

    const std::size_t count = names.dns.size() + names.ip.size();
    if (count > SSLCERT_EXT_MAX_ALT_NAMES)
        return RefusedField{"--dns/--ip", std::to_string(count) + " names; at most " +
                                              std::to_string(SSLCERT_EXT_MAX_ALT_NAMES) + " fit"};
    const auto add = [&](const std::string &name, uint32_t type,
                         const char *option) -> std::optional<RefusedField> {
        if (name.size() > kMaxHostNameLength)
            return RefusedField{option, "a name of " + std::to_string(name.size()) +
                                            " characters; at most " +
                                            std::to_string(kMaxHostNameLength) + " fit"};
        SSLCertAltName &entry = request.astAltNames[request.uiAltNameCount++];
        entry.uiType = type;
        std::memcpy(entry.szName, name.c_str(), name.size() + 1);
        return std::nullopt;
    };
    for (const std::string &name : names.dns)
        if (auto refused = add(name, SSLCERT_EXT_ALT_NAME_DNS, "--dns")) return refused;
    for (const std::string &name : names.ip)
        if (auto refused = add(name, SSLCERT_EXT_ALT_NAME_IP, "--ip")) return refused;
    return std::nullopt;
}

} // namespace bmccert::cli
