// The library's result codes by name and meaning, for `bmccert explain`.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace bmccert::cli {

struct ResultCode {
    uint32_t code;
    std::string_view name;    // the header's constant
    std::string_view meaning; // one sentence
};

[[nodiscard]] std::optional<ResultCode> FindResultCode(uint32_t code);

// "0x98000004" or "98000004" (hexadecimal, as the tool and the logs print
// codes) and "0" are accepted.
[[nodiscard]] std::optional<uint32_t> ParseResultCode(std::string_view text);

} // namespace bmccert::cli
