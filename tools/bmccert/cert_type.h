// Numbers as the tool accepts them: certificate type codes (which
// frame/cert_type_names.h names) and the sandbox's ports.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace bmccert::cli {

// Decimal digits only, 0..2^32-1. No sign, blank, octal or hex form, so
// that a type code "010" cannot quietly mean 8.
[[nodiscard]] std::optional<uint32_t> ParseUnsignedDecimal(std::string_view text);

} // namespace bmccert::cli
