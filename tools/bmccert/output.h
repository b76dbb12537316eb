// The tool's two channels: results on standard output, its own failure
// line on standard error.
#pragma once

#include <cstdint>
#include <string_view>

namespace bmccert::cli {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

// Writes a result and flushes it; a result that did not reach its reader
// (a full disk, a closed pipe) is a failure, not a success.
[[nodiscard]] int WriteResult(std::string_view text);

// "bmccert: <what>: 0x%08X" on standard error; returns kExitFailure.
[[nodiscard]] int ReportFailure(std::string_view what, uint32_t code);

} // namespace bmccert::cli
