// Certificate type codes as the tool accepts them; frame/cert_type_names.h
// names them.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace bmccert::cli {

// A type code from the command line: decimal digits only, 0..2^32-1. No
// sign, blank, octal or hex form, so that "010" cannot quietly mean 8.
[[nodiscard]] std::optional<uint32_t> ParseCertType(std::string_view text);

} // namespace bmccert::cli
