// Import of an uploaded pair as a task: the task records, the thread's
// single final report, the operation log, the diagnostic event, scratch
// files gone on every path, and the start's own failures.

#include <unistd.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <thread>

#include "lib_security_sslcert_ext.h"
#include "platform/host/bmc_sim.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

constexpr const char *kUploadedCert = "/var/lib/bmc-sim/upload.crt";
constexpr const char *kUploadedKey = "/var/lib/bmc-sim/upload.key";
constexpr uint32_t kFactory = SSL_CERT_TYPE_DEFAULT;

class ImportTest : public ControllerTest {
  protected:
    void SetUp() override {
        ControllerTest::SetUp();
        for (const char *log : {BMCSIM_OPERATE_LOG, BMCSIM_QDR_LOG, BMCSIM_TASKS_LOG})
            RemoveFile(log);
    }

    static UploadParam Request() {
        UploadParam request{};
        std::strcpy(request.LogOrigin.szUserName, "admin");
        std::strcpy(request.LogOrigin.szClientAddr, "192.0.2.7");
        request.LogOrigin.uiInterface = 5;
        std::strcpy(request.CertSrcPath, kUploadedCert);
        std::strcpy(request.PrivkeySrcPath, kUploadedKey);
        return request;
    }

    // Starts an import of the pair (no key uploaded when it is empty) and
    // waits for the task's final report.
    static BMCSIM_TaskState Import(const std::string &cert, const std::string &key) {
        WriteFile(kUploadedCert, cert);
        if (key.empty())
            RemoveFile(kUploadedKey);
        else
            WriteFile(kUploadedKey, key);
        const UploadParam request = Request();
        TaskHandle task{};
        EXPECT_EQ(LIB_SECURITY_UploadAndRestartService(&request, &task), 0u);
        return AwaitTask(task.TaskId);
    }
};

// The registration as the task service receives it: the description cut
// to its field and the record's words; a report cut to its field.
TEST_F(ImportTest, TaskRecordsCarryTheirWordsAndCutTexts) {
    const std::string description(300, 'd');
    TaskHandle task{};
    ASSERT_EQ(SECURITY_SSL_RegisterImportTask(description.c_str(), &task), 0u);
    const std::string hex = ReadLines(BMCSIM_TASKS_LOG).at(0);
    TaskRegisterRecord sent{};
    for (size_t i = 0; i < sizeof sent; ++i)
        reinterpret_cast<uint8_t *>(&sent)[i] = static_cast<uint8_t>(
            std::stoul(hex.substr(hex.size() - 2 * sizeof sent + 2 * i, 2), nullptr, 16));
    EXPECT_EQ(std::string(sent.szTaskDesc), description.substr(0, 256));
    EXPECT_EQ((std::vector<uint32_t>{sent.uiTaskType, sent.uiWord1, sent.uiWord2, sent.uiWord3,
                                     sent.uiWord4}),
              (std::vector<uint32_t>{0x01000A05, 1, 10, 0, 5}));

    SECURITY_SSL_UpdateImportTask(task.TaskId, 4, 100, std::string(40, 't').c_str());
    EXPECT_NE(ReadLines(BMCSIM_TASKS_LOG).at(1).find("\t4\t100\t" + std::string(32, 't') + '\t'),
              std::string::npos);
}

// One final report of the task, one operation-log entry from the request's
// origin, the diagnostic event for an MD5 signature alone, the scratch files
// gone on every path; on success the tunnel restarts at once and the web
// server about two seconds later, on the import thread, which must finish
// before this process may end.
TEST_F(ImportTest, EachOutcomeIsReportedOnce) {
    CertRecipe md5, expired, ec;
    md5.digest = "MD5";
    ec.key = KeyKind::Ec256;
    expired.notAfter = std::time(nullptr) - 1;
    const std::string cert = MakeCertPem({}), key = KeyPem(KeyKind::Rsa2048);
    const std::string done = "5\t99\tImported SSL certificate successfully.\tadmin\t192.0.2.7\t";
    const std::string failed = "5\t67\tFailed to import SSL certificate.\tadmin\t192.0.2.7\t";
    const std::string refused = "Failed to import Server Cert";
    struct Case {
        const char *name;
        std::string cert, key;
        uint8_t state;
        std::string text, entry, event, services;
        uint32_t inForce;
    } cases[] = {
        // clang-format off
        {"valid pair", cert, key, 2, "Server Cert import successfully", done, "",
         "restart stunnel.service\nrestart lighttpd.service\n", SSL_CERT_TYPE_USER},
        {"EC pair", MakeCertPem(ec), KeyPem(KeyKind::Ec256), 2, "Server Cert import successfully",
         done, "", "restart stunnel.service\nrestart lighttpd.service\n", SSL_CERT_TYPE_USER},
        {"MD5", MakeCertPem(md5), key, 4, refused, failed,
         "287\t34\timport_thread.cpp\tSECURITY_SSL_AddQdr\t1f0100220000000000000000", "", kFactory},
        {"expired", MakeCertPem(expired), key, 4, refused, failed, "", "", kFactory},
        // A failed key transfer still removes the certificate already
        // fetched; the files never made are only noted.
        {"no key", cert, "", 4, refused, failed, "", "", kFactory},
        // clang-format on
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        const BMCSIM_TaskState state = Import(c.cert, c.key);
        EXPECT_EQ((std::vector<uint32_t>{state.ucState, state.ucProgress}),
                  (std::vector<uint32_t>{c.state, 100}));
        EXPECT_EQ(state.szText, c.text);
        EXPECT_EQ(LIB_SECURITY_GetCertType(), c.inForce);
        for (const char *path : {"/var/certs/actualcert.pem", "/var/certs/actualprivkey.pem",
                                 "/var/certs/TmpCombinedCert.pem"})
            EXPECT_NE(access(path, F_OK), 0) << path;
        const auto entries = ReadLines(BMCSIM_OPERATE_LOG);
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(entries[0].substr(0, c.entry.size()), c.entry);
        EXPECT_EQ(entries[0].substr(entries[0].rfind('\t')), "\t37");
        const auto events = ReadLines(BMCSIM_QDR_LOG);
        EXPECT_EQ(events.empty() ? "" : events.at(0).substr(0, c.event.size()), c.event);
        EXPECT_LE(events.size(), 1u);
        EXPECT_EQ(ServicesLog(c.services), c.services);
        // A success reports only notes: the certificate's fitness, and no key
        // usage when the refresh reads it.
        const std::vector<Diag> fit{{31, 3, 6, "Valid SSL certificate \n"},
                                    {31, 3, 7, "Cert may not have keyusage."}};
        if (c.state == 2) {
            EXPECT_EQ(ReadDiags(), fit);
        }
        for (const Diag &d : ReadDiags()) // the event itself was added
            EXPECT_EQ(d.message.find("qdr"), std::string::npos) << d.message;
        EXPECT_EQ(ReadLines(BMCSIM_TASKS_LOG).size(), 2u);
    }
}

// The wait for a task's end: after a success only once the web server's
// restart is done, after a failure with the import's own code; a wait that
// runs out while the thread works; an id this process never started.
TEST_F(ImportTest, WaitReturnsWhenTheThreadIsDone) {
    const std::string key = KeyPem(KeyKind::Rsa2048);
    struct Row {
        const char *name;
        std::string key; // none uploaded when empty
        uint32_t timeoutMs;
        std::vector<uint32_t> codeStateResult;
    } rows[] = {
        {"finished", key, 30000, {0, 2, 0}},
        {"failed", "", 30000, {0, 4, SSLCERT_ERR_GENERAL}},
        {"still running", key, 0, {SSLCERT_EXT_ERR_TASK_RUNNING, 0, 0}},
        {"unknown id", "", 0, {SSLCERT_EXT_ERR_TASK_UNKNOWN, 0, 0}},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        SetUp();
        WriteFile(kUploadedCert, MakeCertPem({}));
        if (row.key.empty())
            RemoveFile(kUploadedKey);
        else
            WriteFile(kUploadedKey, row.key);
        const UploadParam request = Request();
        TaskHandle task{0xFFFFFFF0u, 0};
        if (row.codeStateResult[0] != SSLCERT_EXT_ERR_TASK_UNKNOWN) {
            ASSERT_EQ(LIB_SECURITY_UploadAndRestartService(&request, &task), 0u);
        }
        uint32_t state = 9, result = 9;
        const uint32_t code =
            LIB_SECURITY_SSL_WaitImportTask(task.TaskId, row.timeoutMs, &state, &result);
        EXPECT_EQ((std::vector<uint32_t>{code, state, result}), row.codeStateResult);
        if (state == 2) { // the thread's last act is already done
            EXPECT_EQ(ServicesLog(""), "restart stunnel.service\nrestart lighttpd.service\n");
        }
        (void)LIB_SECURITY_SSL_WaitImportTask(task.TaskId, 30000, &state, &result);
    }
}

TEST_F(ImportTest, FailedStartsNeverReachTheThread) {
    const UploadParam request = Request();
    TaskHandle task{};
    SetFaults("TASK_TaskServiceRegister=0x82000002");
    EXPECT_EQ(LIB_SECURITY_UploadAndRestartService(&request, &task), 0x1800081Bu);
    const auto entries = ReadLines(BMCSIM_OPERATE_LOG);
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].rfind("5\t67\tFailed to import SSL certificate.\tadmin\t192.0.2.7\t", 0),
              0u);

    // The registration stands, but no thread ever reports on it.
    SetFaults("BMC_CreateDetachThreadInternal=7");
    ClearDiagLog();
    EXPECT_EQ(SECURITY_SSL_ImportCert(&request, &task), 7u);
    EXPECT_EQ(LIB_SECURITY_UploadAndRestartService(&request, &task), 0x1800001Bu);
    EXPECT_EQ(ReadDiags().front(),
              (Diag{31, 3, 4, "Failed to create pthread for import ClinetCert.\n"}));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    for (const std::string &line : ReadLines(BMCSIM_TASKS_LOG))
        EXPECT_EQ(line.rfind("register\t", 0), 0u);
    EXPECT_EQ(ReadLines(BMCSIM_OPERATE_LOG).size(), 1u);
}

} // namespace
} // namespace bmctest
