// Import of an uploaded server certificate as a background task: the entry
// registers the task and starts a detached thread with its own copy of the
// request; the thread fetches, validates and installs the pair, restarts
// the services and reports the outcome.
#include <sys/prctl.h>

#include <chrono>
#include <memory>
#include <new>
#include <thread>

#include "sslcert/import_start.h"
#include "sslcert/task_completion.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr const char *kThreadName = "SSL_ImSrvCerThread";
constexpr const char *kThreadFunctionName = "SECURITY_SSL_ImportServerCertThread";
constexpr const char *kImportTaskDesc = "Server Cert import task";
constexpr uint32_t kResultKindFailed = 67;
constexpr uint32_t kResultKindDone = 99;
constexpr uint8_t kTaskStateDone = 2;
constexpr uint8_t kTaskStateFailed = 4;
constexpr uint8_t kProgressComplete = 100;
constexpr uint16_t kMd5RefusalEvent = 287;
constexpr uint8_t kMd5RefusalEventByte3 = 34;

// One operation-log entry of the outcome, from the request's origin.
void WriteOperateLog(const LogOrigin &origin, uint32_t outcome, uint32_t resultKind,
                     int line = __builtin_LINE()) {
    OperateDesc desc{};
    SECURITY_SetSSLCertOperateLogDes(outcome, &desc);
    (void)OPERATELOG_AddLogComm(origin.uiInterface, resultKind, desc.szOperateDesc,
                                FieldText(origin.szUserName).c_str(),
                                FieldText(origin.szClientAddr).c_str(), line, desc.ucLogClass);
}

// Fetch, validation, installation and the tunnel restart; the first
// failure ends the sequence.
uint32_t ImportPair(const UploadParam &request) {
    if (const uint32_t result = SECURITY_SSL_GetUploadCert(&request); result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "SSL cert get upload file failed! iRet=%d.\n", result);
        return result;
    }
    if (const uint32_t result = SECURITY_SSL_ValidateSSLCert(); result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "SSL cert upload validate failed! iRet=%d.\n", result);
        return result;
    }
    if (const uint32_t result = SECURITY_SSL_UpdateSSLCert(kUploadCertPath, kUploadKeyPath);
        result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "SSL cert upload update failed! iRet=%d.\n", result);
        return result;
    }
    if (const int32_t result = RestartServiceNow(kTunnelService); result != 0) {
        BMCCERT_DIAG(kLevelFailure,
                     "Upload Cert:Restart stunnel service failed! iRet=%d. ERR:%s.\n", result,
                     kRestartErrorText);
        return static_cast<uint32_t>(result);
    }
    return SSLCERT_OK;
}

void ReportFailure(const ImportProc &proc, uint32_t result) {
    if (result == SSLCERT_ERR_MD5_SIGNATURE) {
        if (const int32_t qdr = SECURITY_SSL_AddQdr(); qdr != 0)
            BMCCERT_DIAG(kLevelFailure, "Failed to add qdr for SSL Cert. iRet:[%d]", qdr);
    }
    WriteOperateLog(proc.stUploadParam.LogOrigin, kOutcomeImportFailed, kResultKindFailed);
    SECURITY_SSL_UpdateImportTask(proc.TaskId, kTaskStateFailed, kProgressComplete,
                                  "Failed to import Server Cert");
}

void ReportSuccessAndRestartWebServer(const ImportProc &proc) {
    WriteOperateLog(proc.stUploadParam.LogOrigin, kOutcomeImportDone, kResultKindDone);
    SECURITY_SSL_UpdateImportTask(proc.TaskId, kTaskStateDone, kProgressComplete,
                                  "Server Cert import successfully");
    // The pause lets the management caller read the report over the
    // connection that the web server's restart will cut.
    std::this_thread::sleep_for(std::chrono::seconds(kWebRestartDelaySeconds));
    if (const int32_t result = RestartServiceNow(kWebService); result != 0)
        BMCCERT_DIAG(kLevelFailure,
                     "Upload Cert:Restart lighttpd service failed! iRet=%d. ERR:%s.\n", result,
                     kRestartErrorText);
}

} // namespace

int32_t SECURITY_SSL_AddQdr() {
    uint32_t cursor = 0;
    QdrRecord record{};
    record.usEventCode = kMd5RefusalEvent;
    record.ucByte3 = kMd5RefusalEventByte3;
    (void)QDX_QDRTLVSet(0, 0, nullptr, &cursor, record.aucTlv);
    const int32_t result =
        QDX_Internal_AddQdrFromBmc(&record, __FILE_NAME__, "SECURITY_SSL_AddQdr");
    if (result != 0) BMCCERT_DIAG(kLevelFailure, "Failed to add qdr item, iRet:[%d]", result);
    return result;
}

} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" void *SECURITY_SSL_ImportServerCertThread(void *pParam) {
    if (pParam == nullptr) {
        BMCCERT_REPORT_NULL(pParam);
        return nullptr;
    }
    if (prctl(PR_SET_NAME, kThreadName) != 0)
        BMCCERT_DIAG(kLevelNotice,
                     "Failed to rename SECURITY_SSL_ImportServerCertThread thread name!");

    // The thread owns the request from here on: its copy lives on the stack
    // and the heap copy goes at once.
    std::unique_ptr<ImportProc> heapCopy(static_cast<ImportProc *>(pParam));
    const ImportProc proc = *heapCopy;
    heapCopy.reset();

    uint32_t result;
    {
        // From the fetch into the temporary pair to its removal; the web
        // server's delayed restart is not part of it.
        const InstallationTask task(proc.TaskId);
        const InstallationLock installing;
        if (installing.Held()) {
            result = ImportPair(proc.stUploadParam);
            for (const char *path : {kUploadCertPath, kUploadKeyPath, kUploadCombinedPath})
                RemoveScratchFileReported(path);
        } else {
            result = SSLCERT_ERR_GENERAL; // the temporary pair is another installation's
        }
    }

    if (result != SSLCERT_OK)
        ReportFailure(proc, result);
    else
        ReportSuccessAndRestartWebServer(proc);
    TaskEnded(proc.TaskId, result == SSLCERT_OK ? kTaskStateDone : kTaskStateFailed, result);
    return nullptr;
}

extern "C" uint32_t SECURITY_SSL_ImportCert(const UploadParam *pstUploadParam,
                                            TaskHandle *pstTask) {
    BMCCERT_CHECK_NULL(pstUploadParam, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstTask, SSLCERT_ERR_NULL_POINTER);

    static constexpr ImportTaskStart kStart{
        kImportTaskDesc,
        SECURITY_SSL_ImportServerCertThread,
        kThreadFunctionName,
        OnFailedStart::kLeaveRegistered,
        nullptr,
        "Failed to regist task for import Server Cert, iRet=%d.\n",
        "Failed to create pthread for import ClinetCert.\n",
    };
    const StartResult started = StartImportTask<ImportProc>(kStart, *pstTask, [&](uint32_t taskId) {
        std::unique_ptr<ImportProc> proc(new (std::nothrow) ImportProc{});
        if (proc) *proc = ImportProc{*pstUploadParam, taskId};
        return proc;
    });
    // Only a refused registration is logged: a start that fails later
    // leaves the task registered and writes nothing more.
    if (started.failedAt == StartStep::kRegister)
        WriteOperateLog(pstUploadParam->LogOrigin, kOutcomeImportFailed, kResultKindFailed);
    return started.code;
}

extern "C" uint32_t LIB_SECURITY_UploadAndRestartService(const UploadParam *pstUploadParam,
                                                         TaskHandle *pstTask) {
    BMCCERT_CHECK_NULL(pstUploadParam, SSLCERT_MGMT_IMPORT_FAILED);
    BMCCERT_CHECK_NULL(pstTask, SSLCERT_MGMT_IMPORT_FAILED);
    return ToManagementCode(SECURITY_SSL_ImportCert(pstUploadParam, pstTask),
                            SSLCERT_MGMT_IMPORT_FAILED);
}
