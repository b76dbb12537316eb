// `bmccert explain CODE`: the name and meaning of a result code, given as
// the tool prints it (hexadecimal) or as the diagnostics log does (signed
// decimal, also after "iRet="). Needs no controller.
#pragma once

#include <string_view>

namespace bmccert::cli {

[[nodiscard]] int RunExplain(std::string_view codeText);

} // namespace bmccert::cli
