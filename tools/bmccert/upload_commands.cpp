#include "upload_commands.h"

#include <pwd.h>
#include <unistd.h>

#include <vector>

#include "gen_request.h"
#include "json_writer.h"
#include "lib_security_sslcert_ext.h"
#include "output.h"
#include "result_codes.h"
#include "platform/bmc_platform.h"
#include "task_service.h"
#include "frame/field_text.h"

namespace bmccert::cli {

LogOrigin LocalOrigin() {
    LogOrigin origin{};
    const passwd *entry = getpwuid(getuid());
    (void)BMC_Strlcpy(origin.szUserName, entry != nullptr ? entry->pw_name : "unknown",
                      sizeof origin.szUserName);
    (void)BMC_Strlcpy(origin.szClientAddr, "localhost", sizeof origin.szClientAddr);
    return origin;
}

namespace {

// A slice of the wait for an import: it ends when its thread has nothing
// left to do (the web server's restart included).
constexpr uint32_t kWaitSliceMs = 60000;
constexpr uint8_t kTaskStateDone = 2;

// The request, or the path that does not fit its field: a cut path would
// name another file.
std::optional<RefusedField> MakeRequest(const std::string &certPath, const std::string &keyPath,
                                        UploadParam &request) {
    request.LogOrigin = LocalOrigin();
    if (auto refused = PutText(request.CertSrcPath, certPath, "CERT")) return refused;
    return PutText(request.PrivkeySrcPath, keyPath, "KEY");
}

// "<description> (result kind K, user U from A)" from the log line's
// tab-separated fields: word, kind, description, user, address, line, class.
std::string DescribeEntry(const std::string &line) {
    std::vector<std::string> fields;
    size_t start = 0;
    for (size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1)
        fields.push_back(line.substr(start, tab - start));
    fields.push_back(line.substr(start));
    if (fields.size() < 5) return line;
    return fields[2] + " (result kind " + fields[1] + ", user " + fields[3] + " from " + fields[4] +
           ")";
}

std::string StateName(uint8_t state) {
    switch (state) {
    case 0:
        return "registered";
    case 2:
        return "finished";
    case 4:
        return "failed";
    default:
        return "state " + std::to_string(state);
    }
}

void WriteTask(JsonWriter &writer, const TaskRecord &task) {
    writer.BeginObject();
    writer.Uint("id", task.id);
    writer.String("description", task.description);
    writer.Uint("state", task.state);
    writer.Uint("progress", task.progress);
    writer.String("text", task.text);
    writer.EndObject();
}

// A controller build cannot read the task's record: it says which task
// ran, and that it ended.
int ReportEndedTask(uint32_t taskId, bool json) {
    if (!json)
        return WriteResult("task " + std::to_string(taskId) +
                           ": started and ended; its outcome is in the task service and the "
                           "operation log\n");
    return WriteJsonObject([&](JsonWriter &writer) {
        writer.Key("task");
        writer.BeginObject();
        writer.Uint("id", taskId);
        writer.EndObject();
    });
}

} // namespace

std::string TaskLine(const TaskRecord &task) {
    return "task " + std::to_string(task.id) + ": " + StateName(task.state) + ", " +
           std::to_string(task.progress) + "%" + (task.text.empty() ? "" : ": " + task.text);
}

int FollowImport(uint32_t taskId, bool json, std::string_view failure, uint32_t failureCode) {
    if (TasksReadable() && !json)
        (void)WriteResult("task " + std::to_string(taskId) + ": registered\n");
    uint32_t state = 0;
    uint32_t result = 0;
    uint32_t waited;
    while ((waited = LIB_SECURITY_SSL_WaitImportTask(taskId, kWaitSliceMs, &state, &result)) ==
           SSLCERT_EXT_ERR_TASK_RUNNING) {
    }
    // The task's own code where the caller asks for it (0): a signed answer
    // installed but not restarted is not "nothing installed".
    const uint32_t failedWith = failureCode != 0 ? failureCode : result;
    const auto known = failureCode != 0 ? std::nullopt : FindResultCode(result);
    const std::string failed =
        known ? std::string(failure) + ": " + std::string(known->meaning) : std::string(failure);
    if (waited != SSLCERT_OK)
        return ReportFailure(failure, failureCode != 0 ? failureCode : waited);
    if (!TasksReadable()) {
        const int status = ReportEndedTask(taskId, json);
        return state == kTaskStateDone ? status : ReportFailure(failed, failedWith);
    }
    const TaskRecord task =
        ReadTask(taskId).value_or(TaskRecord{taskId, {}, static_cast<uint8_t>(state), 0, {}});
    const std::string entry = LastOperateLogEntry();
    int status;
    if (json)
        status = WriteJsonObject([&](JsonWriter &writer) {
            writer.Key("task");
            WriteTask(writer, task);
            writer.String("operationLog", entry);
        });
    else
        status = WriteResult(TaskLine(task) + "\noperation log: " + DescribeEntry(entry) + '\n');
    if (state != kTaskStateDone) return ReportFailure(failed, failedWith);
    return status;
}

int RunUpload(const std::string &certPath, const std::string &keyPath, bool json) {
    UploadParam request{};
    if (const auto refused = MakeRequest(certPath, keyPath, request))
        return ReportRefused(*refused, SSLCERT_MGMT_IMPORT_FAILED);
    TaskHandle handle{};
    if (const uint32_t result = LIB_SECURITY_UploadAndRestartService(&request, &handle);
        result != SSLCERT_OK)
        return ReportFailure("the import could not start", result);
    return FollowImport(handle.TaskId, json,
                        std::string("import failed (details in ") + DiagnosticsHint() + ")",
                        SSLCERT_MGMT_IMPORT_FAILED);
}

int RunTasks(bool json) {
    JsonWriter writer;
    std::string text;
    writer.BeginObject();
    writer.Key("tasks");
    writer.BeginObject();
    // Ids are given out 1, 2, 3 ... and never reused.
    std::optional<TaskRecord> task;
    for (uint32_t id = 1; (task = ReadTask(id)); ++id) {
        writer.Key(std::to_string(id));
        WriteTask(writer, *task);
        text += TaskLine(*task) + " (" + task->description + ")\n";
    }
    writer.EndObject();
    writer.EndObject();
    return WriteResult(json ? writer.Text() + '\n' : text);
}

} // namespace bmccert::cli
