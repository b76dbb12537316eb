#include "output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace bmccert::cli {

int WriteResult(std::string_view text) {
    const std::size_t written = std::fwrite(text.data(), 1, text.size(), stdout);
    if (written == text.size() && std::fflush(stdout) == 0) return kExitOk;
    const int error = errno;
    std::clearerr(stdout);
    (void)std::fprintf(stderr, "bmccert: cannot write the result: %s\n", std::strerror(error));
    return kExitFailure;
}

int ReportFailure(std::string_view what, uint32_t code) {
    (void)std::fprintf(stderr, "bmccert: %.*s: 0x%08X\n", static_cast<int>(what.size()),
                       what.data(), static_cast<unsigned>(code));
    return kExitFailure;
}

} // namespace bmccert::cli
