// Certificate type codes as the tool shows and accepts them.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace bmccert::cli {

// Name of a type code ("factory-default" for 4); "unknown" for a code the
// library does not define, so that a newer library still gets printed.
[[nodiscard]] std::string_view CertTypeName(uint32_t type);

// A type code from the command line: decimal digits only, 0..2^32-1. No
// sign, blank, octal or hex form, so that "010" cannot quietly mean 8.
[[nodiscard]] std::optional<uint32_t> ParseCertType(std::string_view text);

} // namespace bmccert::cli
