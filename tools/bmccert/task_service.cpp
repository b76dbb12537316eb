// A host build reads the stand-in's task records and logs; a controller
// build reads none: the management daemons own the task service's records
// and the operation log.
#include "task_service.h"

#if BMCCERT_HOST_TOOL
#include <fstream>

#include "frame/field_text.h"
#include "platform/host/bmc_sim.h"
#endif

namespace bmccert::cli {

bool TasksReadable() {
    return BMCCERT_HOST_TOOL != 0;
}

std::optional<TaskRecord> ReadTask([[maybe_unused]] uint32_t taskId) {
#if BMCCERT_HOST_TOOL
    BMCSIM_TaskState state{};
    if (BMCSIM_TaskGet(taskId, &state) == 0)
        return TaskRecord{state.uiTaskId, std::string(FieldView(state.szDescription)),
                          state.ucState, state.ucProgress, std::string(FieldView(state.szText))};
#endif
    return std::nullopt;
}

std::string LastOperateLogEntry() {
    std::string last;
#if BMCCERT_HOST_TOOL
    std::ifstream in(BMCSIM_OPERATE_LOG);
    for (std::string line; std::getline(in, line);)
        last = line;
#endif
    return last;
}

const char *DiagnosticsHint() {
#if BMCCERT_HOST_TOOL
    return BMCSIM_DIAG_LOG;
#else
    return "the controller's diagnostics log";
#endif
}

} // namespace bmccert::cli
