// Upload of a certificate and key as an import task, and the task list.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "lib_security_sslcert.h"
#include "task_service.h"

namespace bmccert::cli {

// The tool's user on this host, as the operation log records a caller.
[[nodiscard]] LogOrigin LocalOrigin();

// Waits for an import task this process started until its thread has
// nothing left to do; prints the task line and the operation-log entry (or
// one JSON object); a failed task is reported as failure with failureCode,
// or, when that is 0, with the task's own code and its meaning.
[[nodiscard]] int FollowImport(uint32_t taskId, bool json, std::string_view failure,
                               uint32_t failureCode);

// "task 3: finished, 100%: <its text>", as the tool prints a task.
[[nodiscard]] std::string TaskLine(const TaskRecord &task);

[[nodiscard]] int RunUpload(const std::string &certPath, const std::string &keyPath, bool json);
[[nodiscard]] int RunTasks(bool json);

} // namespace bmccert::cli
