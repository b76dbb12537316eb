#include "cert_type.h"

#include <charconv>

namespace bmccert::cli {

std::optional<uint32_t> ParseUnsignedDecimal(std::string_view text) {
    if (text.empty() || text.front() < '0' || text.front() > '9') return std::nullopt;
    uint32_t value = 0;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, 10);
    if (error != std::errc{} || stop != end) return std::nullopt;
    return value;
}

} // namespace bmccert::cli
