// The two time forms of ACME answers, read strictly into seconds since
// 1970-01-01 UTC, 64 bits on every target (a 32-bit controller's time_t
// ends in 2038; the CA's answers need not).
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace bmccert::acme {

// "2026-03-01T12:00:00Z", with an optional fraction of up to nine digits
// (dropped) and "Z" or an offset "+hh:mm"/"-hh:mm"; years 1970 to 9999.
[[nodiscard]] std::optional<int64_t> ParseRfc3339(std::string_view text);

// The HTTP date of today's servers, "Sun, 06 Nov 1994 08:49:37 GMT".
[[nodiscard]] std::optional<int64_t> ParseHttpDate(std::string_view text);

// Days from 1970-01-01 to the given civil date of the proleptic Gregorian
// calendar.
[[nodiscard]] int64_t DaysFromCivil(int64_t year, unsigned month, unsigned day);

} // namespace bmccert::acme
