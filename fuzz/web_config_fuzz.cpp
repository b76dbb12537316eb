// The web server configuration reader and its quoted-path cut-out over
// arbitrary configuration text and buffer sizes: the path buffer is left
// alone or holds a terminated text inside it, and the reader answers 0.
#include <cstdint>
#include <memory>
#include <string>

#include "fuzz/fuzz_support.h"
#include "lib_ssl_auth.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    bmcfuzz::RequireSandbox();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    bmcfuzz::KeepDiagLogSmall();
    const uint32_t bufferSize = 1u + data[0] % 160u;
    const std::string text(reinterpret_cast<const char *>(data + 1), size - 1);

    // Exactly the buffer's size on the heap, so a write past it is caught.
    auto path = std::make_unique<char[]>(bufferSize);
    std::memset(path.get(), 'u', bufferSize);
    LIB_SSL_GetConfCertPath(text.c_str(), bufferSize, path.get());
    const bool untouched = std::string(path.get(), bufferSize) == std::string(bufferSize, 'u');
    BMCFUZZ_CHECK(untouched || std::memchr(path.get(), '\0', bufferSize) != nullptr);

    bmcfuzz::WriteFile("/conf/lighttpd/lighttpd.conf", text);
    std::memset(path.get(), 'u', bufferSize);
    BMCFUZZ_CHECK(LIB_SSL_GetAuthRootCertPath(bufferSize, path.get()) == 0);
    const bool readUntouched = std::string(path.get(), bufferSize) == std::string(bufferSize, 'u');
    BMCFUZZ_CHECK(readUntouched || std::memchr(path.get(), '\0', bufferSize) != nullptr);
    return 0;
}
