// The subcommands, one library call each; every one returns the exit
// status of the tool.
#pragma once

#include <cstdint>

namespace bmccert::cli {

[[nodiscard]] int RunType(bool json);
[[nodiscard]] int RunPaths(uint32_t type, bool json);
[[nodiscard]] int RunInfo(bool json);
[[nodiscard]] int RunDaysLeft(bool json);
[[nodiscard]] int RunRefresh();

} // namespace bmccert::cli
