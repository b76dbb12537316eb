// Upload of a certificate and key as an import task, and the task list.
#pragma once

#include <string>

namespace bmccert::cli {

[[nodiscard]] int RunUpload(const std::string &certPath, const std::string &keyPath, bool json);
[[nodiscard]] int RunTasks(bool json);

} // namespace bmccert::cli
