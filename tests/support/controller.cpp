#include "tests/support/controller.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include "lib_security_sslcert.h"
#include "lib_security_sslcert_ext.h"
#include "platform/host/bmc_sim.h"

namespace bmctest {
namespace {

namespace fs = std::filesystem;

// Files a test may change, put back as the sandbox was provisioned.
const char *const kProvisioned[] = {kFactoryCert, kFactoryKey, kTunnelConfig, kExtensionFile};

void EmptyDirectory(const fs::path &dir) {
    std::error_code ec;
    for (const auto &entry : fs::directory_iterator(dir, ec))
        fs::remove_all(entry.path(), ec);
}

} // namespace

void ControllerTest::SetUp() {
    static const std::string provisioned[] = {ReadFile(kProvisioned[0]), ReadFile(kProvisioned[1]),
                                              ReadFile(kProvisioned[2]), ReadFile(kProvisioned[3])};
    unsetenv(BMCSIM_ENV_FAULTS);
    unsetenv(BMCSIM_ENV_OEM_FLAG);
    EmptyDirectory("/conf/certs/server/user");
    std::error_code ec;
    fs::remove_all("/conf/certs/server/oem", ec);
    EmptyDirectory("/var/certs");
    fs::create_directories("/conf/certs/server/default");
    for (size_t i = 0; i < std::size(provisioned); ++i)
        WriteFile(kProvisioned[i], provisioned[i]);
    fs::remove(kCombinedFile, ec);
    fs::remove(kServicesLog, ec);
    ASSERT_EQ(BMCSIM_DbErase(SSLCERT_INFO_DB_KEY), 0);
    ClearDiagLog();
}

std::string ControllerTest::CertPath(uint32_t certType, bool key) {
    char paths[2][SSLCERT_PATH_BUF_SIZE] = {};
    EXPECT_EQ(LIB_SECURITY_GetSSLCertKeyPath(certType, sizeof paths[0], sizeof paths[1], paths[0],
                                             paths[1]),
              0u);
    return paths[key ? 1 : 0];
}

void ControllerTest::PlaceCert(uint32_t certType, const std::string &certPem,
                               const std::string &keyPem) {
    const fs::path cert = CertPath(certType);
    fs::create_directories(cert.parent_path());
    WriteFile(cert, certPem);
    if (!keyPem.empty()) WriteFile(CertPath(certType, true), keyPem);
}

void ControllerTest::RemoveFile(const std::string &path) {
    std::error_code ec;
    fs::remove(path, ec);
}

void ControllerTest::SetFaults(const std::string &faults) {
    setenv(BMCSIM_ENV_FAULTS, faults.c_str(), 1);
}

SSLCertGenParam GenRequest(uint32_t keyLength) {
    SSLCertGenParam request{};
    request.uiKeyLength = keyLength;
    request.uiValidDays = 365;
    (void)BMC_Strlcpy(request.szCommonName, "bmc-07.lab", sizeof request.szCommonName);
    (void)BMC_Strlcpy(request.szOrganisation, "Test Works, Inc.", sizeof request.szOrganisation);
    (void)BMC_Strlcpy(request.szOrganisationUnit, "Platform", sizeof request.szOrganisationUnit);
    (void)BMC_Strlcpy(request.szLocalityName, "Old Town", sizeof request.szLocalityName);
    (void)BMC_Strlcpy(request.szStateName, "North", sizeof request.szStateName);
    (void)BMC_Strlcpy(request.szCountryCode, "DE", sizeof request.szCountryCode);
    (void)BMC_Strlcpy(request.szEmailAddress, "ops@bmc-07.example.org",
                      sizeof request.szEmailAddress);
    return request;
}

std::string ServicesLog(const std::string &awaited) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::string log;
    while ((log = access(kServicesLog, F_OK) == 0 ? ReadFile(kServicesLog) : "") != awaited &&
           !awaited.empty() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    return log;
}

mode_t ModeOf(const std::string &path) {
    struct stat st {};
    EXPECT_EQ(stat(path.c_str(), &st), 0) << path;
    return st.st_mode & 07777;
}

bool Exists(const std::string &path) {
    return access(path.c_str(), F_OK) == 0;
}

BMCSIM_TaskState AwaitTask(uint32_t taskId) {
    BMCSIM_TaskState state{};
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (std::chrono::steady_clock::now() < deadline &&
           (BMCSIM_TaskGet(taskId, &state) != 0 || state.ucState == 0))
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    // The thread outlives the report by the web server's delayed restart,
    // which must not land in the next test's log of restarts.
    uint32_t ended = 0, result = 0;
    (void)LIB_SECURITY_SSL_WaitImportTask(taskId, 30000, &ended, &result);
    return state;
}

} // namespace bmctest
