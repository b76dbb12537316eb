// The health check's readers of the services' configurations over
// arbitrary text: a port found is always 1..65535, never a crash or a hang
// on unbalanced braces, quotes or sections.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "sslcert/health_internal.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(data), size);
    for (const auto port : {bmccert::health::TunnelPort(text), bmccert::health::WebTlsPort(text),
                            bmccert::health::ParsePort(text)})
        if (port && (*port < 1 || *port > 65535)) std::abort();
    return 0;
}
