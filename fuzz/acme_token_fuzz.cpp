// A CA's challenge token and the base64url readers over any bytes: a token
// the check lets through never names another directory, and strict
// base64url has exactly one encoding for each value, so decoding and
// encoding again gives back the input.
#include <cstdint>
#include <string_view>

#include "acme/base64url.h"
#include "acme/challenge_token.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace bmccert::acme;
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    if (IsValidToken(text))
        BMCFUZZ_CHECK(size <= kMaxTokenBytes && text.find_first_of("./\\%") == text.npos);
    if (const auto bytes = Base64UrlDecode(text)) BMCFUZZ_CHECK(Base64UrlEncode(*bytes) == text);
    if (const auto key = DecodeMacKey(text)) BMCFUZZ_CHECK(!key->empty() && key->size() <= size);
    return 0;
}
