#include "result_codes.h"

#include <charconv>
#include <cstdint>

#include "lib_security_sslcert_ext.h"

namespace bmccert::cli {
namespace {

// A decimal as the diagnostics print a code (%d of the 32-bit value):
// -2147483648 to 4294967295, taken modulo 2^32.
std::optional<uint32_t> ParseDecimal(std::string_view text) {
    int64_t value = 0;
    const char *end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, value, 10);
    if (text.empty() || error != std::errc() || next != end) return std::nullopt;
    if (value < INT32_MIN || value > static_cast<int64_t>(UINT32_MAX)) return std::nullopt;
    return static_cast<uint32_t>(value);
}

// "iRet=", "iRet = ", "Ret = ", "iRet: " as the diagnostics write them;
// returns the text after the prefix, or nothing when there is none.
std::optional<std::string_view> AfterLogPrefix(std::string_view text) {
    for (std::string_view word : {"iRet", "Ret"}) {
        if (text.substr(0, word.size()) != word) continue;
        std::string_view rest = text.substr(word.size());
        while (!rest.empty() && rest.front() == ' ')
            rest.remove_prefix(1);
        if (rest.empty() || (rest.front() != '=' && rest.front() != ':')) return std::nullopt;
        rest.remove_prefix(1);
        while (!rest.empty() && rest.front() == ' ')
            rest.remove_prefix(1);
        // The sentence's own punctuation may follow the number.
        if (!rest.empty() && (rest.back() == '.' || rest.back() == ',')) rest.remove_suffix(1);
        return rest;
    }
    return std::nullopt;
}

} // namespace

std::optional<ResultCode> FindResultCode(uint32_t code) {
    const char *name = nullptr;
    const char *sentence = nullptr;
    if (LIB_SECURITY_SSL_DescribeResult(code, &name, &sentence, nullptr) != SSLCERT_OK)
        return std::nullopt;
    return ResultCode{code, name, sentence};
}

std::string ResultMeaning(uint32_t code) {
    const auto entry = FindResultCode(code);
    return entry ? std::string(entry->meaning) : "unknown result code";
}

std::optional<uint32_t> ParseResultCode(std::string_view text) {
    if (const auto logged = AfterLogPrefix(text)) return ParseDecimal(*logged);
    if (!text.empty() && text.front() == '-') {
        // Without the prefix only a negative number is decimal.
        return ParseDecimal(text);
    }
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))
        text.remove_prefix(2);
    uint32_t value = 0;
    const char *end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, value, 16);
    if (text.empty() || error != std::errc() || next != end) return std::nullopt;
    return value;
}

} // namespace bmccert::cli
