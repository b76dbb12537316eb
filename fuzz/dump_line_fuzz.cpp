// The text dump's cut-out rule over arbitrary lines, keywords, skips and
// slot sizes: the slot is left alone or holds a terminated text inside it.
#include <cstdint>
#include <algorithm>
#include <memory>
#include <string>

#include "fuzz/fuzz_support.h"
#include "lib_security_sslcert.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 3) return 0;
    const uint32_t skip = data[0];
    const uint32_t delimiter = data[1];
    const uint32_t slotSize = 1u + data[2] % 96u;
    // The rest is the keyword and the line, split at the first NUL.
    const std::string rest(reinterpret_cast<const char *>(data + 3), size - 3);
    const size_t split = rest.find('\0');
    const std::string keyword = rest.substr(0, split);
    const std::string line = split == std::string::npos ? std::string() : rest.substr(split + 1);

    const CertTextParseRow row{keyword.c_str(), skip, delimiter};
    // Exactly the slot's size on the heap, so a write past it is caught.
    auto slot = std::make_unique<char[]>(slotSize);
    std::memset(slot.get(), 'u', slotSize);
    SECURITY_SSL_ParseCommon(line.c_str(), &row, slotSize, slot.get());
    const bool untouched = std::all_of(slot.get(), slot.get() + slotSize,
                                       [](char c) { return c == 'u'; });
    BMCFUZZ_CHECK(untouched || std::memchr(slot.get(), '\0', slotSize) != nullptr);
    return 0;
}
