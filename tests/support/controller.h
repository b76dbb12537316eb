// A fixture that puts the sandboxed controller back into its factory state
// before every test: factory default certificate only, no stored
// information record, empty diagnostics, no fault or OEM setting.
#pragma once

#include <gtest/gtest.h>

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "tests/support/diag_log.h"
#include "lib_security_sslcert.h"
#include "platform/controller_paths.h"
#include "platform/host/bmc_sim.h"
#include "tests/support/test_certs.h"

namespace bmctest {

inline constexpr const char *kFactoryCert = controller_paths::kDefaultCertPath;
inline constexpr const char *kFactoryKey = controller_paths::kDefaultKeyPath;
inline constexpr const char *kTunnelConfig = controller_paths::kTunnelConfigPath;
inline constexpr const char *kExtensionFile = controller_paths::kExtensionFilePath;
inline constexpr const char *kCombinedFile = controller_paths::kCombinedPath;
inline constexpr const char *kServicesLog = "/var/lib/bmc-sim/services.log";

// A generation request that passes every rule: 365 days, C=DE, ST=North,
// L=Old Town, O=Test Works, Inc., OU=Platform, CN=bmc-07.lab,
// emailAddress=ops@bmc-07.example.org.
SSLCertGenParam GenRequest(uint32_t keyLength);

// The log of service restarts, empty while there is none; with a text to
// wait for, read again until it is that text or 10 s have passed.
std::string ServicesLog(const std::string &awaited = "");

// A task's state once it has left state 0 and its thread has ended, or as
// it stands after 30 s.
BMCSIM_TaskState AwaitTask(uint32_t taskId);

// A file's permission bits; a file that is missing fails the test.
mode_t ModeOf(const std::string &path);
bool Exists(const std::string &path);

// Failures the server-certificate unit reports, as ReadDiags gives them.
inline std::vector<Diag> Failures(const std::vector<std::string> &messages) {
    return Reports(3, 2, messages);
}

class ControllerTest : public ::testing::Test {
  protected:
    void SetUp() override;

    // The certificate (or key) file of a certificate type (1 to 6).
    static std::string CertPath(uint32_t certType, bool key = false);
    // Writes a certificate (and key, when given) where the type's files lie.
    static void PlaceCert(uint32_t certType, const std::string &certPem,
                          const std::string &keyPem = KeyPem(KeyKind::Rsa2048));
    static void RemoveFile(const std::string &path);
    static void SetFaults(const std::string &faults);
};

} // namespace bmctest
