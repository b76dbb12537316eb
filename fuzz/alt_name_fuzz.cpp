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
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "frame/alt_name_rules.h"
#include "fuzz/fuzz_support.h"
#include "lib_security_sslcert_ext.h"
#include "tests/support/example_request.h"

namespace {

constexpr const char *kPending = "/conf/certs/server/pending/csr.pem";
constexpr uint8_t kSeparator = 0xFF;

// The host-name rules read on their own: the labels between the dots, the
// first of which may be a lone "*" when others follow. (Addresses are
// inet_pton's reading on both sides.)
bool HostNameByTheRules(std::string_view name) {
    constexpr size_t npos = std::string_view::npos;
    if (name.empty() || name.size() > 253) return false;
    for (size_t start = 0, k = 0; start != npos; ++k) {
        const size_t dot = name.find('.', start);
        const std::string_view label = name.substr(start, dot == npos ? npos : dot - start);
        start = dot == npos ? npos : dot + 1;
        if (k == 0 && label == "*" && start != npos) continue;
        if (label.empty() || label.size() > 63 || label.front() == '-' || label.back() == '-')
            return false;
        for (const char c : label)
            if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '-') return false;
    }
    return true;
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
    SSLCertRequest request = bmctest::ExampleRequest(0); // no request may have key type 0
    std::memset(request.astAltNames, 0, sizeof request.astAltNames);
    request.uiAltNameCount = data[0] % (SSLCERT_EXT_MAX_ALT_NAMES + 2);
    size_t given = 0;
    for (size_t at = 1; at < size && given < SSLCERT_EXT_MAX_ALT_NAMES; ++given) {
        const uint8_t *end =
            static_cast<const uint8_t *>(std::memchr(data + at, kSeparator, size - at));
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
    BMCFUZZ_CHECK(
        bmcfuzz::OneOf(result, {SSLCERT_EXT_ERR_BAD_ALT_NAME, SSLCERT_EXT_ERR_BAD_KEY_TYPE}));
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
            allByTheRules = bmccert::IsIpAddress(name.szName);
        } else {
            allByTheRules = false;
        }
    }
    BMCFUZZ_CHECK(allByTheRules == (result == SSLCERT_EXT_ERR_BAD_KEY_TYPE));

    return 0;
}
