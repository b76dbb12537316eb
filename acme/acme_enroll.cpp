// Enrolment as a task of the task service, and the renewal a timer asks
// for: the order runs in the task's thread, the chain is installed through
// the signed-answer installation, and a failure leaves the certificate in
// force served, logged, and the next attempt backed off.
#include <fcntl.h>
#include <sys/prctl.h>

#include <cmath>
#include <ctime>
#include <memory>
#include <optional>

#include "acme/acme_order.h"
#include "acme/acme_session.h"
#include "acme/acme_store.h"
#include "acme/messages.h"
#include "acme/renewal_window.h"
#include "acme/uniform_random.h"
#include "frame/bounded_file.h"
#include "frame/field_text.h"
#include "platform/controller_paths.h"
#include "sslcert/import_start.h"
#include "sslcert/task_completion.h"

namespace bmccert::acme {
namespace {

using namespace controller_paths;
constexpr const char *kThreadName = "SSL_AcmeEnroll";
constexpr const char *kTaskDesc = "ACME enrolment task";
constexpr uint8_t kTaskStateDone = 2;
constexpr uint8_t kTaskStateFailed = 4;
constexpr uint8_t kProgressComplete = 100;
constexpr uint32_t kInstallWaitMs = 180000;
constexpr uint32_t kDefaultWarnDays = 14;
constexpr int64_t kDay = 86400;

struct EnrollJob {
    LogOrigin origin;
    uint32_t taskId;
    uint32_t operation;
};

struct Validity {
    int64_t notBefore = 0;
    int64_t notAfter = 0;
};

// The certificate in force: the first of the user certificate's file.
[[nodiscard]] UniquePtr<X509> CertInForce() {
    const UniqueFd fd = OpenBounded(AT_FDCWD, kUserCertPath, kMaxCertFileBytes);
    return ParseCertificate(ReadAll(fd));
}

[[nodiscard]] bool InForce(Validity &validity) {
    const UniquePtr<X509> cert = CertInForce();
    return cert && Asn1Seconds(X509_get0_notBefore(cert.get()), validity.notBefore) &&
           Asn1Seconds(X509_get0_notAfter(cert.get()), validity.notAfter);
}

// When the certificate in force is due: fixed once per certificate (and
// per window the CA gives), so that every run of the timer agrees.
int64_t DueTime(const SSLAcmeEnrollment &settings, const Validity &validity,
                std::optional<SuggestedWindow> window) {
    const double uniform = UniformRandom().value_or(0.5);
    const int64_t now = std::time(nullptr);
    if (settings.uiRenewBeforeExpiryDays == 0 || window)
        return RenewalDueTime(validity.notBefore, validity.notAfter, now, window, uniform);
    const int64_t lifetime = std::max<int64_t>(validity.notAfter - validity.notBefore, 0);
    return validity.notAfter - int64_t{settings.uiRenewBeforeExpiryDays} * kDay -
           static_cast<int64_t>(uniform * static_cast<double>(lifetime) / 10.0);
}

void LogOperation(const LogOrigin &origin, bool done, uint32_t result) {
    char text[160];
    (void)BMC_Scnprintf(text, sizeof text,
                        done ? "Enrolled the SSL certificate with the ACME CA successfully."
                             : "Failed to enrol the SSL certificate with the ACME CA (0x%08X).",
                        result);
    (void)OPERATELOG_AddLogComm(
        origin.uiInterface, done ? 0 : 1, text, FieldText(origin.szUserName).c_str(),
        FieldText(origin.szClientAddr).c_str(), __LINE__, SSLCERT_OPERATE_LOG_CLASS);
}

// After a failure: backed off, and loud once the certificate runs short.
void RecordFailure(const SSLAcmeEnrollment &settings, SSLAcmeStatus &status) {
    ++status.uiFailures;
    const int64_t now = std::time(nullptr);
    status.llNextAttempt =
        now + FailureBackoffSeconds(status.uiFailures, UniformRandom().value_or(0.5));
    Validity validity;
    const uint32_t warnDays =
        settings.uiWarnDaysLeft == 0 ? kDefaultWarnDays : settings.uiWarnDaysLeft;
    if (InForce(validity) && validity.notAfter - now < int64_t{warnDays} * kDay)
        BMCCERT_DIAG(kLevelFailure,
                     "ACME:renewal failed %u times; the certificate in force expires in %lld "
                     "hours!\n",
                     status.uiFailures, static_cast<long long>((validity.notAfter - now) / 3600));
}

// The CA's renewal window for the certificate in force, where its directory
// offers renewal information; the next time to ask goes into the state.
std::optional<SuggestedWindow> AskWindow(Session &session, SSLAcmeStatus &status) {
    if (session.Dir().renewalInfo.empty()) return std::nullopt;
    const UniquePtr<X509> cert = CertInForce();
    const std::optional<std::string> id = cert ? RenewalCertificateId(cert.get()) : std::nullopt;
    if (!id) return std::nullopt;
    HttpResponse response;
    RenewalInfo info;
    const bool answered = session.Get(session.Dir().renewalInfo + "/" + *id, response) ==
                              SSLCERT_OK &&
                          ReadRenewalInfo(response.body, info) == MessageError::kNone;
    status.llRenewalInfoCheck =
        std::time(nullptr) + RenewalInfoRecheckSeconds(response.retryAfterSeconds);
    if (!answered) return std::nullopt; // an invalid window counts as none
    return SuggestedWindow{info.windowStart, info.windowEnd};
}

uint32_t Enrol(const EnrollJob &job, SSLAcmeEnrollment &settings, SSLAcmeStatus &status,
               std::optional<SuggestedWindow> &window) {
    // An order of a run that died is abandoned: its files and its key go.
    if (status.szOrderUrl[0] != '\0') {
        BMCCERT_DIAG(kLevelNotice, "ACME:the order %s of an earlier run is abandoned.\n",
                     status.szOrderUrl);
        (void)LIB_SECURITY_SSL_DropPendingCSR();
        status.szOrderUrl[0] = '\0';
    }
    ClearChallengeFiles();
    UniquePtr<EVP_PKEY> key;
    std::optional<Session> session;
    if (const uint32_t opened = OpenAccountSession(status, settings, key, session);
        opened != SSLCERT_OK)
        return opened;
    std::string orderUrl, chain;
    bool keyBorn = false;
    const UniquePtr<X509> replaced = CertInForce();
    const std::string replaces =
        replaced ? RenewalCertificateId(replaced.get()).value_or("") : std::string();
    uint32_t result = RunOrder(*session, settings, replaces, orderUrl, keyBorn, chain);
    if (result == SSLCERT_OK) {
        TaskHandle install{};
        result = LIB_SECURITY_SSL_ImportSignedCertPem(
            &job.origin, chain.data(), static_cast<uint32_t>(chain.size()), &install);
        uint32_t state = 0, installed = 0;
        if (result == SSLCERT_OK)
            result = LIB_SECURITY_SSL_WaitImportTask(install.TaskId, kInstallWaitMs, &state,
                                                     &installed) == SSLCERT_OK
                         ? installed
                         : SSLCERT_EXT_ERR_TASK_RUNNING;
    }
    // A key born for an order that did not install must not stay behind.
    if (result != SSLCERT_OK && keyBorn) (void)LIB_SECURITY_SSL_DropPendingCSR();
    if (result == SSLCERT_OK) window = AskWindow(*session, status);
    return result;
}

void *EnrollThread(void *param) {
    const std::unique_ptr<EnrollJob> job(static_cast<EnrollJob *>(param));
    (void)prctl(PR_SET_NAME, kThreadName);
    uint32_t result = SSLCERT_EXT_ERR_ACME_BUSY;
    {
        const AcmeLock lock;
        if (lock.Held()) {
            SSLAcmeEnrollment settings;
            SSLAcmeStatus status = LoadStatus();
            std::optional<SuggestedWindow> window;
            result = Enrol(*job, settings, status, window);
            status.szOrderUrl[0] = '\0';
            status.uiLastOperation = job->operation;
            status.uiLastResult = result;
            status.llLastOperationTime = std::time(nullptr);
            Validity validity;
            if (result == SSLCERT_OK) {
                status.uiFailures = 0;
                status.llNextAttempt = 0;
                status.llNextRenewal =
                    InForce(validity) ? DueTime(settings, validity, window) : 0;
            } else {
                RecordFailure(settings, status);
            }
            if (!StoreStatus(status)) BMCCERT_DIAG(kLevelFailure, "ACME:state not stored!\n");
        }
    }
    LogOperation(job->origin, result == SSLCERT_OK, result);
    const uint8_t state = result == SSLCERT_OK ? kTaskStateDone : kTaskStateFailed;
    SECURITY_SSL_UpdateImportTask(job->taskId, state, kProgressComplete,
                                  result == SSLCERT_OK ? "ACME certificate installed"
                                                       : "ACME enrolment failed");
    sslcert::TaskEnded(job->taskId, state, result);
    return nullptr;
}

// The CA's window asked again once its Retry-After has passed, and the due
// time drawn anew inside it; a CA that cannot be asked leaves it as it was
// and is asked again after the default pause, not at every run of a timer.
void RedrawFromWindow(SSLAcmeEnrollment &settings, SSLAcmeStatus &status) {
    const AcmeLock lock;
    if (!lock.Held()) return;
    status = LoadStatus();
    UniquePtr<EVP_PKEY> key;
    std::optional<Session> session;
    Validity validity;
    if (OpenAccountSession(status, settings, key, session) != SSLCERT_OK || !InForce(validity))
        status.llRenewalInfoCheck =
            std::time(nullptr) + RenewalInfoRecheckSeconds(std::nullopt);
    else if (const std::optional<SuggestedWindow> window = AskWindow(*session, status))
        status.llNextRenewal = DueTime(settings, validity, window);
    if (!StoreStatus(status)) BMCCERT_DIAG(kLevelFailure, "ACME:state not stored!\n");
}

uint32_t StartEnrol(const LogOrigin &origin, uint32_t operation, TaskHandle &task) {
    SSLAcmeEnrollment settings;
    if (!LoadSettings(settings) || settings.szServerUri[0] == '\0' ||
        settings.stRequest.uiAltNameCount == 0) {
        BMCCERT_DIAG(kLevelHandling, "ACME:no directory, or no request with names to order.\n");
        return SSLCERT_EXT_ERR_ACME_SETTING;
    }
    if (LoadStatus().ucAccountState != SSLCERT_EXT_ACME_ACCOUNT_VALID)
        return SSLCERT_EXT_ERR_ACME_NO_ACCOUNT;
    static constexpr sslcert::ImportTaskStart kStart{
        kTaskDesc,
        EnrollThread,
        "EnrollThread",
        sslcert::OnFailedStart::kReportTaskFailed,
        "ACME enrolment failed",
        "Failed to regist task for the ACME enrolment, iRet=%d.\n",
        "Failed to create pthread for the ACME enrolment.\n",
    };
    const sslcert::StartResult started = sslcert::StartImportTask<
        EnrollJob>(kStart, task, [&](uint32_t taskId) {
        return std::unique_ptr<EnrollJob>(new (std::nothrow) EnrollJob{origin, taskId, operation});
    });
    return started.failedAt == sslcert::StartStep::kStarted ? SSLCERT_OK : SSLCERT_EXT_ERR_TASK;
}

} // namespace
} // namespace bmccert::acme

using namespace bmccert;
using namespace bmccert::acme;

extern "C" uint32_t LIB_SECURITY_SSL_AcmeEnroll(const LogOrigin *pstLogOrigin,
                                                TaskHandle *pstTask) {
    BMCCERT_CHECK_NULL(pstLogOrigin, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstTask, SSLCERT_ERR_NULL_POINTER);
    return StartEnrol(*pstLogOrigin, SSLCERT_EXT_ACME_OP_ENROLL, *pstTask);
}

extern "C" uint32_t LIB_SECURITY_SSL_AcmeRenewIfDue(const LogOrigin *pstLogOrigin,
                                                    TaskHandle *pstTask, uint8_t *pucStarted) {
    BMCCERT_CHECK_NULL(pstLogOrigin, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstTask, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pucStarted, SSLCERT_ERR_NULL_POINTER);
    *pucStarted = 0;
    SSLAcmeEnrollment settings;
    if (!LoadSettings(settings) || settings.ucEnabled != 1) return SSLCERT_OK;
    SSLAcmeStatus status = LoadStatus();
    const int64_t now = std::time(nullptr);
    if (status.llRenewalInfoCheck != 0 && now >= status.llRenewalInfoCheck)
        RedrawFromWindow(settings, status);
    // Never enrolled here: the certificate in force is not the CA's, due now.
    if (now < status.llNextAttempt || (status.llNextRenewal != 0 && now < status.llNextRenewal))
        return SSLCERT_OK;
    const uint32_t result = StartEnrol(*pstLogOrigin, SSLCERT_EXT_ACME_OP_RENEW, *pstTask);
    *pucStarted = result == SSLCERT_OK ? 1 : 0;
    return result;
}
