// What the tool can learn of a task of the controller's task service once
// it has started one. A host build reads the stand-in's record of every
// task and its operation log, so it follows a task to its end; on a
// controller those belong to the management daemons, so a controller build
// (BMCCERT_PLATFORM=system) reports the task it started and leaves its
// outcome to them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace bmccert::cli {

struct TaskRecord {
    uint32_t id = 0;
    std::string description;
    uint8_t state = 0; // 0 registered, 2 finished, 4 failed
    uint8_t progress = 0;
    std::string text;
};

// False in a controller build: no task can be read, no log line either.
[[nodiscard]] bool TasksReadable();
// The record of a task; none for an id never given out (or not readable).
[[nodiscard]] std::optional<TaskRecord> ReadTask(uint32_t taskId);
// The operation log's last entry; empty when there is none to read.
[[nodiscard]] std::string LastOperateLogEntry();
// Where a failure's details are: appended to failure lines as "(details in
// HINT)".
[[nodiscard]] const char *DiagnosticsHint();

} // namespace bmccert::cli
