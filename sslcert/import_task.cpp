// The import as a task of the controller's task service: registered before
// the import thread starts, reported once when it ends.
#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

constexpr uint32_t kImportTaskType = 0x01000A05;
constexpr const char *kActionWord = "Import";
constexpr const char *kTargetName = "Server Certificate";

} // namespace
} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t SECURITY_SSL_RegisterImportTask(const char *pcTaskDesc, TaskHandle *pstTask) {
    BMCCERT_CHECK_NULL(pcTaskDesc, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pstTask, SSLCERT_ERR_NULL_POINTER);

    TaskRegisterRecord record{};
    (void)BMC_Scnprintf(record.szTaskDesc, sizeof record.szTaskDesc, "%s", pcTaskDesc);
    (void)BMC_Scnprintf(record.szTaskName, sizeof record.szTaskName, "%s", "Import task");
    (void)BMC_Scnprintf(record.szStateText, sizeof record.szStateText, "%s", "Importing");
    (void)BMC_Scnprintf(record.szServiceName, sizeof record.szServiceName, "%s", "lighttpd");
    (void)BMC_Scnprintf(record.szComponentId, sizeof record.szComponentId,
                        "NRV.1.0.%sServerCertComponent", kActionWord);
    (void)BMC_Scnprintf(record.szTargetName, sizeof record.szTargetName, "%s", kTargetName);
    (void)BMC_Scnprintf(record.szActionText, sizeof record.szActionText, "%s %s", kActionWord,
                        kTargetName);
    (void)BMC_Scnprintf(record.szStatusText, sizeof record.szStatusText, "%s", "OK");
    (void)BMC_Scnprintf(record.szResolution, sizeof record.szResolution, "%s", "Automatic.");
    record.uiTaskType = kImportTaskType;
    record.uiWord1 = 1;
    record.uiWord2 = 10;
    record.uiWord4 = 5;

    const auto result = static_cast<uint32_t>(
        TASK_TaskServiceRegister(&record, &pstTask->TaskId, &pstTask->TaskTag, kImportTaskType));
    if (result != 0)
        BMCCERT_DIAG(kLevelHandling, "Server Cert Import Task Register failed, iRet=%d.", result);
    return result;
}

extern "C" void SECURITY_SSL_UpdateImportTask(uint32_t uiTaskId, uint8_t ucState,
                                              uint8_t ucProgress, const char *pcTaskAbnormalInfo) {
    if (pcTaskAbnormalInfo == nullptr) {
        BMCCERT_REPORT_NULL(pcTaskAbnormalInfo);
        return;
    }
    TaskUpdateRecord record{};
    record.uiTaskId = uiTaskId;
    record.ucState = ucState;
    record.ucProgress = ucProgress;
    (void)BMC_Scnprintf(record.szAbnormalInfo, sizeof record.szAbnormalInfo, "%s",
                        pcTaskAbnormalInfo);
    if (TASK_TaskServiceUpdate(&record) != 0)
        BMCCERT_DIAG(kLevelHandling, "TASK_TaskServiceUpdate error.\n");
}
