// `bmccert explain CODE`: the name and meaning of a result code. Needs no
// controller.
#pragma once

#include <string_view>

namespace bmccert::cli {

[[nodiscard]] int RunExplain(std::string_view codeText);

} // namespace bmccert::cli
