// Installation of a CA's answer for the pending key as a task: the entries
// check the answer at once and start a detached thread with its own copy;
// the thread installs the leaf and its chain with the pending key, restarts
// the services and reports the outcome, as an upload's import does.
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <memory>
#include <new>
#include <thread>

#include <openssl/pem.h>

#include "sslcert/cert_request.h"
#include "sslcert/import_start.h"
#include "sslcert/task_completion.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr const char *kThreadName = "SSL_ImSignedCer"; // 15 characters: the kernel keeps no more
constexpr const char *kThreadFunctionName = "SignedCertImportThread";
constexpr const char *kTaskDesc = "Signed Server Cert install task";
constexpr const char *kFailedText = "Failed to install the signed SSL certificate.";
constexpr const char *kDoneText = "Installed the signed SSL certificate successfully.";
// An answer without the leaf's issuer is installed as the CA sent it, and
// its outcome says so: clients that lack the issuer cannot verify it.
constexpr const char *kDoneIncompleteText =
    "Installed the signed SSL certificate successfully, but its chain is incomplete: the "
    "issuer of the certificate is missing.";
constexpr const char *kDoneTaskText = "Signed Server Cert installed";
constexpr const char *kInForceText = "The signed SSL certificate is already in force.";
constexpr const char *kInForceTaskText = "Signed Cert already in force";
constexpr const char *kDoneIncompleteTaskText = "Installed, chain incomplete";
constexpr uint32_t kTransferMode = 5;
constexpr uint32_t kResultKindFailed = 67;
constexpr uint32_t kResultKindDone = 99;
constexpr uint8_t kTaskStateDone = 2;
constexpr uint8_t kTaskStateFailed = 4;
constexpr uint8_t kProgressComplete = 100;

enum class Outcome { kFailed, kDone, kDoneIncomplete, kAlreadyInForce };

// The thread's own copy of an accepted answer.
struct SignedImportJob {
    LogOrigin origin;
    uint32_t taskId;
    std::unique_ptr<char[]> pem;
    size_t length;
};

void WriteOperateLog(const LogOrigin &origin, Outcome outcome, int line = __builtin_LINE()) {
    const char *text = outcome == Outcome::kDone             ? kDoneText
                       : outcome == Outcome::kDoneIncomplete ? kDoneIncompleteText
                       : outcome == Outcome::kAlreadyInForce ? kInForceText
                                                             : kFailedText;
    (void)OPERATELOG_AddLogComm(origin.uiInterface,
                                outcome == Outcome::kFailed ? kResultKindFailed : kResultKindDone,
                                text, FieldText(origin.szUserName).c_str(),
                                FieldText(origin.szClientAddr).c_str(), line,
                                SSLCERT_OPERATE_LOG_CLASS);
}

// The origin's texts are handed to the operation log as they stand: one
// that fills its field without a terminator is refused, not cut.
bool OriginTextsEnd(const LogOrigin &origin) {
    if (FieldView(origin.szUserName).size() < sizeof origin.szUserName &&
        FieldView(origin.szClientAddr).size() < sizeof origin.szClientAddr)
        return true;
    BMCCERT_DIAG(kLevelFailure, "Signed Cert:the request's origin texts fill their fields "
                                "without a terminator!\n");
    return false;
}

// Under the installation lock: the answer is checked again against the key
// pending now (a new request may have replaced it since the entry), written
// as a temporary pair and installed; the pending key goes once it is in
// force.
uint32_t InstallAnswer(std::string_view pem, bool &issuerMissing, bool &alreadyInForce) {
    SignedAnswer answer;
    if (const uint32_t result = CheckSignedAnswer(pem, answer); result != SSLCERT_OK)
        return result;
    alreadyInForce = answer.alreadyInForce;
    if (alreadyInForce) return SSLCERT_OK;
    issuerMissing = answer.issuerMissing;
    const CertChain &chain = answer.chain;
    const PendingRequest &pending = answer.pending;
    PemText certs;
    PemText key;
    bool encoded = certs.bio() != nullptr && key.bio() != nullptr &&
                   PEM_write_bio_PrivateKey(key.bio(), pending.key.get(), nullptr, nullptr, 0,
                                            nullptr, nullptr) == 1;
    for (int i = 0; encoded && i < sk_X509_num(chain.get()); ++i)
        encoded = PEM_write_bio_X509(certs.bio(), sk_X509_value(chain.get(), i)) == 1;
    uint32_t result = SSLCERT_EXT_ERR_INSTALL;
    if (encoded && WriteSyncedFile(kSignedCertPath, certs.view(), S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH) &&
        WriteSyncedFile(kSignedKeyPath, key.view(), S_IRUSR | S_IWUSR) &&
        SECURITY_SSL_UpdateSSLCert(kSignedCertPath, kSignedKeyPath) == SSLCERT_OK) {
        ConsumePendingRequest();
        result = SSLCERT_OK;
    }
    for (const char *path : {kSignedCertPath, kSignedKeyPath}) RemoveScratchFileReported(path);
    return result == SSLCERT_OK ? result : InstallationFailureCode();
}

void *SignedCertImportThread(void *param) {
    const std::unique_ptr<SignedImportJob> job(static_cast<SignedImportJob *>(param));
    if (prctl(PR_SET_NAME, kThreadName) != 0)
        BMCCERT_DIAG(kLevelNotice, "Failed to rename %s thread name!", kThreadFunctionName);

    uint32_t result;
    bool issuerMissing = false;
    bool alreadyInForce = false;
    {
        const InstallationTask task(job->taskId);
        const InstallationLock installing;
        result = installing.Held() ? InstallAnswer({job->pem.get(), job->length}, issuerMissing,
                                                                 alreadyInForce)
                                   : SSLCERT_EXT_ERR_LOCK;
    }
    if (result == SSLCERT_OK && alreadyInForce) {
        WriteOperateLog(job->origin, Outcome::kAlreadyInForce);
        SECURITY_SSL_UpdateImportTask(job->taskId, kTaskStateDone, kProgressComplete,
                                      kInForceTaskText);
        TaskEnded(job->taskId, kTaskStateDone, SSLCERT_OK);
        return nullptr;
    }
    if (result == SSLCERT_OK && RestartServiceNow(kTunnelService) != 0) {
        BMCCERT_DIAG(kLevelFailure, "Signed Cert:installed, but restart stunnel service failed!\n");
        result = SSLCERT_EXT_ERR_RESTART;
    }
    if (result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelFailure, "Signed Cert:install failed! iRet=%d.\n", result);
        WriteOperateLog(job->origin, Outcome::kFailed);
        SECURITY_SSL_UpdateImportTask(job->taskId, kTaskStateFailed, kProgressComplete,
                                      result == SSLCERT_EXT_ERR_RESTART
                                          ? "Installed, tunnel not restarted"
                                          : "Failed to install Server Cert");
        TaskEnded(job->taskId, kTaskStateFailed, result);
        return nullptr;
    }
    if (issuerMissing)
        BMCCERT_DIAG(kLevelNotice, "Signed Cert:installed without the issuer of the certificate: "
                                   "the chain is incomplete, clients may fail to verify it.\n");
    WriteOperateLog(job->origin, issuerMissing ? Outcome::kDoneIncomplete : Outcome::kDone);
    SECURITY_SSL_UpdateImportTask(job->taskId, kTaskStateDone, kProgressComplete,
                                  issuerMissing ? kDoneIncompleteTaskText : kDoneTaskText);
    // The pause lets the management caller read the report over the
    // connection that the web server's restart will cut.
    std::this_thread::sleep_for(std::chrono::seconds(kWebRestartDelaySeconds));
    if (RestartServiceNow(kWebService) != 0)
        BMCCERT_DIAG(kLevelFailure, "Signed Cert:Restart lighttpd service failed!\n");
    TaskEnded(job->taskId, kTaskStateDone, SSLCERT_OK);
    return nullptr;
}

// Checks the answer, registers the task and starts the thread with a copy.
uint32_t StartSignedImport(const LogOrigin &origin, std::string_view pem, TaskHandle &task) {
    if (!OriginTextsEnd(origin)) return SSLCERT_EXT_ERR_SIGNED_FETCH;
    SignedAnswer answer;
    if (const uint32_t result = CheckSignedAnswer(pem, answer); result != SSLCERT_OK) {
        WriteOperateLog(origin, Outcome::kFailed);
        return result;
    }
    static constexpr ImportTaskStart kStart{
        kTaskDesc,
        SignedCertImportThread,
        kThreadFunctionName,
        OnFailedStart::kReportTaskFailed,
        "Failed to install Server Cert",
        "Failed to regist task for the signed Server Cert, iRet=%d.\n",
        "Failed to create pthread for the signed Server Cert.\n",
    };
    const StartResult started = StartImportTask<SignedImportJob>(kStart, task, [&](uint32_t taskId) {
        std::unique_ptr<SignedImportJob> job(new (std::nothrow) SignedImportJob{});
        if (job) job->pem.reset(new (std::nothrow) char[pem.size()]);
        if (!job || !job->pem) return std::unique_ptr<SignedImportJob>();
        job->origin = origin;
        job->taskId = taskId;
        std::memcpy(job->pem.get(), pem.data(), pem.size());
        job->length = pem.size();
        return job;
    });
    if (started.failedAt == StartStep::kStarted) return SSLCERT_OK;
    WriteOperateLog(origin, Outcome::kFailed);
    return SSLCERT_EXT_ERR_TASK;
}

// Reads the fetched answer, one byte more than the largest accepted so that
// a larger one is told as such; the scratch file goes at once.
uint32_t ReadFetchedAnswer(std::unique_ptr<char[]> &buffer, size_t &length) {
    const size_t capacity = SSLCERT_EXT_SIGNED_MAX_BYTES + 1;
    buffer.reset(new (std::nothrow) char[capacity]);
    StdioFile file(kSignedUploadPath, "rb");
    if (!buffer || !file.IsOpen()) {
        BMCCERT_DIAG(kLevelHandling, "Read %s failed! strerrno:%s\n", kSignedUploadPath,
                     std::strerror(errno));
        RemoveScratchFileReported(kSignedUploadPath);
        return SSLCERT_EXT_ERR_SIGNED_FETCH;
    }
    length = std::fread(buffer.get(), 1, capacity, file.get());
    file.Close();
    RemoveScratchFileReported(kSignedUploadPath);
    return SSLCERT_OK;
}

} // namespace
} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t LIB_SECURITY_SSL_ImportSignedCert(const SignedCertUpload *pstUpload,
                                                      TaskHandle *pstTask) {
    BMCCERT_CHECK_NULL(pstUpload, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstTask, SSLCERT_ERR_NULL_POINTER);
    std::unique_ptr<char[]> pem;
    size_t length = 0;
    {
        const InstallationLock installing; // the fetched file is this call's alone
        if (!installing.Held()) return SSLCERT_EXT_ERR_LOCK;
        FileTransferRecord record{};
        record.ucByte1 = 1;
        (void)BMC_Strlcpy(record.szDstPath, kSignedUploadPath, sizeof record.szDstPath);
        // A path the transfer record cannot hold whole would fetch another file.
        const std::string_view source = FieldView(pstUpload->CertSrcPath);
        if (!OriginTextsEnd(pstUpload->LogOrigin)) return SSLCERT_EXT_ERR_SIGNED_FETCH;
        if (source.size() >= sizeof record.szSrcPath) {
            BMCCERT_DIAG(kLevelFailure,
                         "Signed Cert:the source path of %zu bytes does not fit the transfer "
                         "record of %zu!\n",
                         source.size(), sizeof record.szSrcPath);
            WriteOperateLog(pstUpload->LogOrigin, Outcome::kFailed);
            return SSLCERT_EXT_ERR_SIGNED_FETCH;
        }
        std::memcpy(record.szSrcPath, source.data(), source.size());
        if (const int32_t result = FILEHANDLE_UploadDownloadFile(&record, kTransferMode);
            result != 0) {
            BMCCERT_DIAG(kLevelHandling,
                         "Failed to download the signed Server Cert. FileStr:%s, FileDst:%s, "
                         "iRet=%d.",
                         record.szSrcPath, record.szDstPath, result);
            (void)unlink(kSignedUploadPath); // a transfer cut short may leave a part
            WriteOperateLog(pstUpload->LogOrigin, Outcome::kFailed);
            return SSLCERT_EXT_ERR_SIGNED_FETCH;
        }
        if (const uint32_t result = ReadFetchedAnswer(pem, length); result != SSLCERT_OK) {
            WriteOperateLog(pstUpload->LogOrigin, Outcome::kFailed);
            return result;
        }
    }
    return StartSignedImport(pstUpload->LogOrigin, {pem.get(), length}, *pstTask);
}

extern "C" uint32_t LIB_SECURITY_SSL_ImportSignedCertPem(const LogOrigin *pstLogOrigin,
                                                         const char *pcPem, uint32_t uiPemLength,
                                                         TaskHandle *pstTask) {
    BMCCERT_CHECK_NULL(pstLogOrigin, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pcPem, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstTask, SSLCERT_ERR_NULL_POINTER);
    return StartSignedImport(*pstLogOrigin, {pcPem, uiPemLength}, *pstTask);
}
