#include "upload_commands.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <thread>
#include <vector>

#include "gen_request.h"
#include "json_writer.h"
#include "lib_security_sslcert.h"
#include "output.h"
#include "platform/bmc_platform.h"
#include "task_service.h"
#include "frame/field_text.h"

namespace bmccert::cli {

std::string LoginName() {
    const passwd *entry = getpwuid(getuid());
    return entry != nullptr ? entry->pw_name : "unknown";
}

// An import thread is detached and nobody can join it; the process must
// still not end while it works (its last act, the web server's restart,
// comes after its report), so the import threads the call started are
// waited for. Only those: a runtime may start threads of its own at any
// time (a sanitizer's, for one) that never end.
std::set<std::string> ThreadIds() {
    std::set<std::string> ids;
    std::error_code ec;
    for (const auto &task : std::filesystem::directory_iterator("/proc/self/task", ec))
        ids.insert(task.path().filename().string());
    return ids;
}

namespace {

constexpr auto kPollInterval = std::chrono::milliseconds(50);
constexpr auto kThreadNamingWait = std::chrono::seconds(2);
constexpr uint8_t kTaskStateDone = 2;

// The request, or the path that does not fit its field: a cut path would
// name another file.
std::optional<RefusedField> MakeRequest(const std::string &certPath, const std::string &keyPath,
                                        UploadParam &request) {
    (void)BMC_Strlcpy(request.LogOrigin.szUserName, LoginName().c_str(),
                      sizeof request.LogOrigin.szUserName);
    (void)BMC_Strlcpy(request.LogOrigin.szClientAddr, "localhost",
                      sizeof request.LogOrigin.szClientAddr);
    if (auto refused = PutText(request.CertSrcPath, certPath, "CERT")) return refused;
    return PutText(request.PrivkeySrcPath, keyPath, "KEY");
}

// The names the library's import threads give themselves, as the kernel
// keeps them (15 characters). A thread renames itself first thing, long
// before its task's final report, after which this is asked.
constexpr std::array<std::string_view, 2> kImportThreadNames = {"SSL_ImSrvCerThr",
                                                                "SSL_ImSignedCer"};

bool ThreadStartedSince(const std::set<std::string> &before) {
    for (const std::string &id : ThreadIds()) {
        if (before.count(id) != 0) continue;
        std::ifstream comm("/proc/self/task/" + id + "/comm");
        std::string name;
        if (std::getline(comm, name) &&
            std::find(kImportThreadNames.begin(), kImportThreadNames.end(), name) !=
                kImportThreadNames.end())
            return true;
    }
    return false;
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

std::string TaskLine(const TaskRecord &task) {
    return "task " + std::to_string(task.id) + ": " + StateName(task.state) + ", " +
           std::to_string(task.progress) + "%" + (task.text.empty() ? "" : ": " + task.text);
}

// A controller build cannot read the task: it says which task runs and
// waits for the thread, whose last act (the web server's restart) comes
// after its report.
int ReportStartedTask(uint32_t taskId, const std::set<std::string> &threadsBefore, bool json) {
    // Just after the start the thread may not have named itself yet; an
    // import takes seconds, so it is seen before it ends.
    const auto named = std::chrono::steady_clock::now() + kThreadNamingWait;
    while (!ThreadStartedSince(threadsBefore) && std::chrono::steady_clock::now() < named)
        std::this_thread::sleep_for(kPollInterval);
    while (ThreadStartedSince(threadsBefore))
        std::this_thread::sleep_for(kPollInterval);
    if (!json)
        return WriteResult("task " + std::to_string(taskId) +
                           ": started and ended; its outcome is in the task service and the "
                           "operation log\n");
    JsonWriter writer;
    writer.BeginObject();
    writer.Key("task");
    writer.BeginObject();
    writer.Uint("id", taskId);
    writer.EndObject();
    writer.EndObject();
    return WriteResult(writer.Text() + '\n');
}

} // namespace

int FollowImport(uint32_t taskId, const std::set<std::string> &threadsBefore, bool json,
                 std::string_view failure, uint32_t failureCode) {
    if (!TasksReadable()) return ReportStartedTask(taskId, threadsBefore, json);
    if (!json) (void)WriteResult("task " + std::to_string(taskId) + ": registered\n");
    TaskRecord task;
    for (std::optional<TaskRecord> read; (read = ReadTask(taskId)) && (task = *read).state == 0;)
        std::this_thread::sleep_for(kPollInterval);
    while (ThreadStartedSince(threadsBefore))
        std::this_thread::sleep_for(kPollInterval);

    const std::string entry = LastOperateLogEntry();
    int status;
    if (json) {
        JsonWriter writer;
        writer.BeginObject();
        writer.Key("task");
        WriteTask(writer, task);
        writer.String("operationLog", entry);
        writer.EndObject();
        status = WriteResult(writer.Text() + '\n');
    } else {
        status = WriteResult(TaskLine(task) + "\noperation log: " + DescribeEntry(entry) + '\n');
    }
    if (task.state != kTaskStateDone) return ReportFailure(failure, failureCode);
    return status;
}

int RunUpload(const std::string &certPath, const std::string &keyPath, bool json) {
    UploadParam request{};
    if (const auto refused = MakeRequest(certPath, keyPath, request))
        return ReportFailure(refused->option + " refused: " + refused->why,
                             SSLCERT_MGMT_IMPORT_FAILED);
    TaskHandle handle{};
    const std::set<std::string> threads = ThreadIds();
    if (const uint32_t result = LIB_SECURITY_UploadAndRestartService(&request, &handle);
        result != SSLCERT_OK)
        return ReportFailure("the import could not start", result);
    return FollowImport(handle.TaskId, threads, json,
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
