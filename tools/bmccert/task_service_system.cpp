// The controller build's view of tasks: none; the management daemons own
// the task service's records and the operation log.
#include "task_service.h"

namespace bmccert::cli {

bool TasksReadable() {
    return false;
}

std::optional<TaskRecord> ReadTask(uint32_t /*taskId*/) {
    return std::nullopt;
}

std::string LastOperateLogEntry() {
    return {};
}

const char *DiagnosticsHint() {
    return "the controller's diagnostics log";
}

} // namespace bmccert::cli
