// The host build's view of tasks: the stand-in's task records and logs.
#include <fstream>

#include "frame/field_text.h"
#include "platform/host/bmc_sim.h"
#include "task_service.h"

namespace bmccert::cli {

bool TasksReadable() {
    return true;
}

std::optional<TaskRecord> ReadTask(uint32_t taskId) {
    BMCSIM_TaskState state{};
    if (BMCSIM_TaskGet(taskId, &state) != 0) return std::nullopt;
    return TaskRecord{state.uiTaskId, std::string(FieldView(state.szDescription)), state.ucState,
                      state.ucProgress, std::string(FieldView(state.szText))};
}

std::string LastOperateLogEntry() {
    std::ifstream in(BMCSIM_OPERATE_LOG);
    std::string line, last;
    while (std::getline(in, line))
        last = line;
    return last;
}

const char *DiagnosticsHint() {
    return BMCSIM_DIAG_LOG;
}

} // namespace bmccert::cli
