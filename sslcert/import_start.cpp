// The steps of starting an import task that do not depend on the request's
// type (see import_start.h).
#include "sslcert/import_start.h"

#include "sslcert/task_completion.h"

namespace bmccert::sslcert {
namespace {

constexpr uint8_t kTaskStateFailed = 4;
constexpr uint8_t kProgressComplete = 100;

} // namespace

StartResult RegisterImportTask(const ImportTaskStart &how, TaskHandle &registered) {
    const uint32_t code = SECURITY_SSL_RegisterImportTask(how.taskDesc, &registered);
    if (code == SSLCERT_OK) return {};
    // A constant of the caller's start description, with one %d.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    BMCCERT_DIAG(kLevelHandling, how.registerFailedReport, code);
#pragma GCC diagnostic pop
    return {StartStep::kRegister, code};
}

StartResult StartImportThread(const ImportTaskStart &how, void *job, const TaskHandle &registered) {
    uint32_t threadId = 0;
    TaskStarted(registered.TaskId); // before the thread can end
    const auto code = static_cast<uint32_t>(
        BMC_CreateDetachThreadInternal(how.threadBody, how.threadFunctionName, job, &threadId));
    if (code == 0) return {};
    TaskForgotten(registered.TaskId);
    BMCCERT_DIAG(kLevelHandling, "%s", how.threadFailedReport);
    ReportFailedStart(how, registered);
    return {StartStep::kThread, code};
}

void ReportFailedStart(const ImportTaskStart &how, const TaskHandle &registered) {
    if (how.onFailedStart == OnFailedStart::kReportTaskFailed)
        SECURITY_SSL_UpdateImportTask(registered.TaskId, kTaskStateFailed, kProgressComplete,
                                      how.failedTaskText);
}

} // namespace bmccert::sslcert
