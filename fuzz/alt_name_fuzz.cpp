// The alternative names of a signing request over arbitrary bytes. The
// first byte gives the count (0 to 17: one past the limit included); the
// rest is split at each 0xFF byte into names, each name's first byte
// giving its type (0 to 3: the two known types and two unknown ones) and
// the others its text, copied bounded into szName so that a text of 256
// bytes or more fills its field without a terminator. Entries past the
// names given stay zero (type 0). The rest of the request is valid but for
// its key type, which no request may have, so only the checks run:
//   - the answer is a refused name or the refused key type, nothing else,
//     and no pending key appears;
//   - the names pass (the key type is refused) exactly when an
//     independent reading of the same rules accepts every one of them.
#include <arpa/inet.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.h"
#include "lib_security_sslcert_ext.h"

namespace {

constexpr const char *kPending = "/conf/certs/server/pending/csr.pem";
constexpr uint8_t kSeparator = 0xFF;

SSLCertRequest ValidRequestOfNoKeyType() {
    SSLCertRequest request{};
    std::strcpy(request.szCommonName, "bmc-07.example.org");
    std::strcpy(request.szOrganisation, "Test Works, Inc.");
    std::strcpy(request.szOrganisationUnit, "Platform");
    std::strcpy(request.szLocalityName, "Old Town");
    std::strcpy(request.szStateName, "North");
    std::strcpy(request.szCountryCode, "DE");
    std::strcpy(request.szEmailAddress, "ops@example.org");
    request.uiKeyAlgorithm = 0;
    request.uiValidDays = 365;
    return request;
}

bool HostCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           c == '-' || c == '.';
}

// The host-name rules read on their own: the labels between the dots, the
// first of which may be a lone "*" when others follow.
bool HostNameByTheRules(std::string_view name) {
    if (name.empty() || name.size() > 253) return false;
    std::vector<std::string_view> labels;
    for (size_t start = 0;;) {
        const size_t dot = name.find('.', start);
        labels.push_back(name.substr(start, dot == std::string_view::npos ? dot : dot - start));
        if (dot == std::string_view::npos) break;
        start = dot + 1;
    }
    for (size_t k = 0; k < labels.size(); ++k) {
        const std::string_view label = labels[k];
        if (k == 0 && label == "*" && labels.size() > 1) continue;
        if (label.empty() || label.size() > 63 || label.front() == '-' || label.back() == '-')
            return false;
        for (const char c : label)
            if (!HostCharacter(c) || c == '.') return false;
    }
    return true;
}

bool ParsesAsAddress(const char *text) {
    unsigned char address[sizeof(struct in6_addr)];
    return inet_pton(AF_INET, text, address) == 1 || inet_pton(AF_INET6, text, address) == 1;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    bmcfuzz::RequireSandbox();
    (void)unlink(kPending);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    bmcfuzz::KeepDiagLogSmall();
    SSLCertRequest request = ValidRequestOfNoKeyType();
    request.uiAltNameCount = data[0] % (SSLCERT_EXT_MAX_ALT_NAMES + 2);
    size_t given = 0;
    for (size_t at = 1; at < size && given < SSLCERT_EXT_MAX_ALT_NAMES; ++given) {
        const uint8_t *end = static_cast<const uint8_t *>(std::memchr(data + at, kSeparator, size - at));
        const size_t pieceEnd = end == nullptr ? size : static_cast<size_t>(end - data);
        SSLCertAltName &name = request.astAltNames[given];
        if (pieceEnd > at) {
            name.uiType = data[at] % 4;
            const size_t length = pieceEnd - at - 1;
            std::memcpy(name.szName, data + at + 1, std::min(length, sizeof name.szName));
        }
        at = pieceEnd + 1;
    }

    char pem[16] = "untouched";
    const uint32_t result = LIB_SECURITY_SSL_GenerateCSR(&request, pem, sizeof pem);
    BMCFUZZ_CHECK(bmcfuzz::OneOf(result, {SSLCERT_EXT_ERR_BAD_ALT_NAME, SSLCERT_EXT_ERR_BAD_KEY_TYPE}));
    BMCFUZZ_CHECK(access(kPending, F_OK) != 0);
    BMCFUZZ_CHECK(std::strcmp(pem, "untouched") == 0);

    bool allByTheRules = request.uiAltNameCount <= SSLCERT_EXT_MAX_ALT_NAMES;
    for (uint32_t i = 0; allByTheRules && i < request.uiAltNameCount; ++i) {
        const SSLCertAltName &name = request.astAltNames[i];
        if (!bmcfuzz::Terminated(name.szName)) {
            allByTheRules = false;
        } else if (name.uiType == SSLCERT_EXT_ALT_NAME_DNS) {
            allByTheRules = HostNameByTheRules(name.szName);
        } else if (name.uiType == SSLCERT_EXT_ALT_NAME_IP) {
            allByTheRules = ParsesAsAddress(name.szName);
        } else {
            allByTheRules = false;
        }
    }
    BMCFUZZ_CHECK(allByTheRules == (result == SSLCERT_EXT_ERR_BAD_KEY_TYPE));

    return 0;
}
