// The library's result codes by name and meaning (the library's own
// texts), and the forms in which an operator finds a code, for `bmccert explain`.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace bmccert::cli {

struct ResultCode {
    uint32_t code;
    std::string_view name;    // the header's constant
    std::string_view meaning; // one sentence
};

[[nodiscard]] std::optional<ResultCode> FindResultCode(uint32_t code);
// The meaning of a code; "unknown result code" for one the library does not know.
[[nodiscard]] std::string ResultMeaning(uint32_t code);

// Accepted: hexadecimal as the tool and the result tables print codes
// ("0x98000004", "98000004", "0"); a negative decimal as the diagnostics log
// prints a code with %d ("-1744830456"); and a decimal after the log's own
// "iRet=" (also "iRet = ", "Ret = ", "iRet: ", with a trailing '.' or ','),
// positive or negative. A decimal must lie in -2147483648..4294967295.
[[nodiscard]] std::optional<uint32_t> ParseResultCode(std::string_view text);

} // namespace bmccert::cli
