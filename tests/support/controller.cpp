#include "tests/support/controller.h"

#include <cstdlib>
#include <filesystem>

#include "lib_security_sslcert.h"
#include "platform/host/bmc_sim.h"

namespace bmctest {
namespace {

namespace fs = std::filesystem;

struct FactoryFiles {
    std::string cert;
    std::string key;
    std::string tunnelConfig;
    std::string extensions;
};

// Read once, from the sandbox as it was provisioned.
const FactoryFiles &Factory() {
    static const FactoryFiles files{ReadFile(kFactoryCert), ReadFile(kFactoryKey),
                                    ReadFile(kTunnelConfig), ReadFile(kExtensionFile)};
    return files;
}

void EmptyDirectory(const fs::path &dir) {
    std::error_code ec;
    for (const auto &entry : fs::directory_iterator(dir, ec))
        fs::remove_all(entry.path(), ec);
}

} // namespace

void ControllerTest::SetUp() {
    (void)Factory();
    unsetenv(BMCSIM_ENV_FAULTS);
    unsetenv(BMCSIM_ENV_OEM_FLAG);
    EmptyDirectory("/conf/certs/server/user");
    std::error_code ec;
    fs::remove_all("/conf/certs/server/oem", ec);
    EmptyDirectory("/var/certs");
    fs::create_directories("/conf/certs/server/default");
    WriteFile(kFactoryCert, Factory().cert);
    WriteFile(kFactoryKey, Factory().key);
    WriteFile(kTunnelConfig, Factory().tunnelConfig);
    WriteFile(kExtensionFile, Factory().extensions);
    fs::remove(kCombinedFile, ec);
    fs::remove(kServicesLog, ec);
    ASSERT_EQ(BMCSIM_DbErase(SSLCERT_INFO_DB_KEY), 0);
    ClearDiagLog();
}

void ControllerTest::TearDown() {
    unsetenv(BMCSIM_ENV_FAULTS);
    unsetenv(BMCSIM_ENV_OEM_FLAG);
}

namespace {

std::pair<std::string, std::string> Paths(uint32_t certType) {
    char cert[SSLCERT_PATH_BUF_SIZE] = {};
    char key[SSLCERT_PATH_BUF_SIZE] = {};
    EXPECT_EQ(LIB_SECURITY_GetSSLCertKeyPath(certType, sizeof cert, sizeof key, cert, key), 0u);
    return {cert, key};
}

} // namespace

std::string ControllerTest::CertPath(uint32_t certType) {
    return Paths(certType).first;
}
std::string ControllerTest::KeyPath(uint32_t certType) {
    return Paths(certType).second;
}

void ControllerTest::PlaceCert(uint32_t certType, const std::string &certPem,
                               const std::string &keyPem) {
    const fs::path cert = CertPath(certType);
    fs::create_directories(cert.parent_path());
    WriteFile(cert, certPem);
    if (!keyPem.empty()) WriteFile(KeyPath(certType), keyPem);
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

void ControllerTest::SetOemFlag(uint32_t flag) {
    setenv(BMCSIM_ENV_OEM_FLAG, std::to_string(flag).c_str(), 1);
}

} // namespace bmctest
