// One way to start an import task: register the task with the task
// service, give a detached thread its own copy of the request, and hand the
// task back. The published import and the signed import differ only in what
// a start that fails after the registration leaves, which each says here.
#pragma once

#include <memory>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {

// What a start that fails after the registration (the copy cannot be made,
// the thread cannot start) leaves of the task.
enum class OnFailedStart {
    kLeaveRegistered,  // no final report: the task stays as registered
    kReportTaskFailed, // the task is reported failed (state 4, progress 100)
};

// The step a start failed at; kStarted when the thread runs.
enum class StartStep { kStarted, kRegister, kCopy, kThread };

struct ImportTaskStart {
    const char *taskDesc;
    void *(*threadBody)(void *);
    const char *threadFunctionName; // as the thread creation is told
    OnFailedStart onFailedStart;
    const char *failedTaskText;        // the failed report's text (kReportTaskFailed)
    const char *registerFailedReport;  // level 4, with the registration's code (%d)
    const char *threadFailedReport;    // level 4
};

struct StartResult {
    StartStep failedAt = StartStep::kStarted;
    uint32_t code = SSLCERT_OK; // the registration's or the thread creation's code
};

// The steps after copyRequest, which the template binds to the job's type.
[[nodiscard]] StartResult RegisterImportTask(const ImportTaskStart &how, TaskHandle &registered);
[[nodiscard]] StartResult StartImportThread(const ImportTaskStart &how, void *job,
                                            const TaskHandle &registered);
void ReportFailedStart(const ImportTaskStart &how, const TaskHandle &registered);

// Registers the task, makes the thread's copy with copyRequest(taskId)
// (null when it cannot be allocated) and starts the thread, which then owns
// the copy. task is filled only when the thread started.
template <typename Job, typename CopyRequest>
[[nodiscard]] StartResult StartImportTask(const ImportTaskStart &how, TaskHandle &task,
                                          CopyRequest copyRequest) {
    TaskHandle registered{};
    if (const StartResult result = RegisterImportTask(how, registered);
        result.failedAt != StartStep::kStarted)
        return result;
    std::unique_ptr<Job> job = copyRequest(registered.TaskId);
    if (!job) {
        BMCCERT_REPORT_NULL(pstImportProc);
        ReportFailedStart(how, registered);
        return {StartStep::kCopy, SSLCERT_ERR_GENERAL};
    }
    const StartResult result = StartImportThread(how, job.get(), registered);
    if (result.failedAt != StartStep::kStarted) return result; // no thread saw the copy
    (void)job.release(); // the thread frees it
    task = registered;
    return result;
}

} // namespace bmccert::sslcert
