// The subcommands that read the certificate in force, and explain: one
// library call each; every one returns the exit
// status of the tool.
#pragma once

#include <cstdint>
#include <string_view>

namespace bmccert::cli {

[[nodiscard]] int RunType(bool json);
[[nodiscard]] int RunPaths(uint32_t type, bool json);
[[nodiscard]] int RunInfo(bool json);
[[nodiscard]] int RunDaysLeft(bool json);
[[nodiscard]] int RunRefresh();
// The name and meaning of a result code, given as the tool prints it
// (hexadecimal) or as the diagnostics log does (signed decimal, also after
// "iRet="). Needs no controller.
[[nodiscard]] int RunExplain(std::string_view codeText);

} // namespace bmccert::cli
