// Generation of a key and self-signed certificate and its installation:
// the request configuration, the exact command lines, which files exist
// after each failure, key modes whatever the umask, and the refresh. A
// refused request is held by the hostile-request test.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <cstdlib>
#include <filesystem>

#include "lib_security_sslcert.h"
#include "platform/host/bmc_sim.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

constexpr const char *kRequestConfig = "/var/certs/sslconf";
constexpr const char *kGenCert = "/var/certs/TmpCertGen.pem";
constexpr const char *kGenKey = "/var/certs/TmpPrivkeyGen.pem";
constexpr const char *kUserCert = "/conf/certs/server/user/actualcert.pem";
constexpr const char *kUserKey = "/conf/certs/server/user/actualprivkey.pem";
constexpr const char *kWrapperDir = "/var/lib/bmc-sim/recorded-bin";
constexpr const char *kCommandLog = "/var/lib/bmc-sim/recorded-bin/commands.log";

mode_t ModeOf(const char *path) {
    struct stat st {};
    EXPECT_EQ(stat(path, &st), 0) << path;
    return st.st_mode & 07777;
}

bool Exists(const char *path) {
    return access(path, F_OK) == 0;
}

// Puts a recording wrapper of the openssl tool first on PATH, so that the
// exact command lines can be asserted while the real tool does the work.
class RecordedOpenssl {
  public:
    RecordedOpenssl() {
        std::filesystem::create_directories(kWrapperDir);
        const std::string wrapper = std::string(kWrapperDir) + "/openssl";
        WriteFile(wrapper, "#!/bin/sh\nprintf 'openssl %s\\n' \"$*\" >> " +
                               std::string(kCommandLog) + "\nexec /usr/bin/openssl \"$@\"\n");
        chmod(wrapper.c_str(), 0755);
        std::filesystem::remove(kCommandLog);
        setenv("PATH", (std::string(kWrapperDir) + ":" + savedPath_).c_str(), 1);
    }
    ~RecordedOpenssl() { setenv("PATH", savedPath_.c_str(), 1); }

  private:
    const std::string savedPath_ = std::getenv("PATH");
};

class CertGenerationTest : public ControllerTest {};

TEST_F(CertGenerationTest, GeneratesAndInstallsWithPrivateKeysWhateverTheUmask) {
    for (const mode_t mask : {mode_t{022}, mode_t{0}}) {
        SCOPED_TRACE("umask " + std::to_string(mask));
        const mode_t saved = umask(mask);
        RecordedOpenssl openssl;
        const SSLCertGenParam request = GenRequest(1024);
        const uint32_t result = LIB_SECURITY_GenCert(&request);
        umask(saved);
        ASSERT_EQ(result, 0u) << testing::PrintToString(ReadDiags());

        EXPECT_EQ(ReadFile(kRequestConfig), "[req]\n"
                                            "distinguished_name = req_distinguished_name\n"
                                            "prompt = no\n"
                                            "[ req_distinguished_name ]\n"
                                            " C = DE\n"
                                            " ST = North\n"
                                            " L = Old Town\n"
                                            " O = Test Works, Inc.\n"
                                            "OU = Platform\n"
                                            "CN = bmc-07.lab\n"
                                            "emailAddress = ops@bmc-07.example.org\n");
        const auto commands = ReadLines(kCommandLog);
        ASSERT_GE(commands.size(), 2u);
        EXPECT_EQ(commands[0], "openssl req -newkey rsa:1024 -keyout /var/certs/TmpPrivkeyGen.pem "
                               "-out /var/certs/cert_tmp.csr -config /var/certs/sslconf -nodes");
        EXPECT_EQ(commands[1],
                  "openssl x509 -req -days 365 -in /var/certs/cert_tmp.csr -signkey "
                  "/var/certs/TmpPrivkeyGen.pem -sha256 -extfile "
                  "/conf/certs/server/cert_v3_extfile.ext -out /var/certs/TmpCertGen.pem");

        EXPECT_EQ(ModeOf(kGenKey), 0600u);
        EXPECT_EQ(ModeOf(kUserKey), 0600u);
        EXPECT_EQ(ModeOf(kCombinedFile), 0600u);
        EXPECT_EQ(ReadFile(kUserCert), ReadFile(kGenCert));
        EXPECT_EQ(ReadFile(kUserKey), ReadFile(kGenKey));
        EXPECT_EQ(ReadFile(kCombinedFile), ReadFile(kUserCert) + ReadFile(kUserKey));
        const std::string tunnel = ReadFile(kTunnelConfig);
        EXPECT_NE(tunnel.find("\ncert = /conf/certs/server/user/actualcert.pem\n"),
                  std::string::npos);
        EXPECT_NE(tunnel.find("\nkey = /conf/certs/server/user/actualprivkey.pem\n"),
                  std::string::npos);

        // The new certificate is in force and its record already stored.
        EXPECT_EQ(LIB_SECURITY_GetCertType(), SSL_CERT_TYPE_USER);
        SSLCertInfo stored{};
        ASSERT_EQ(DB_Get(DB_GetCurrentDb(), SSLCERT_INFO_DB_KEY, sizeof stored, &stored), 0);
        EXPECT_EQ(stored.stKeyFileInfo.ucCertType, SSL_CERT_TYPE_USER);
        EXPECT_STREQ(stored.stSSLConfig.stIssueTo.szCommonName, "bmc-07.lab");
        EXPECT_STREQ(stored.stSSLConfig.stIssueTo.szEmailAddress, "ops@bmc-07.example.org");
        EXPECT_EQ(stored.stSSLConfig.uiPublicKeyLen, 1024u);
    }
}

TEST_F(CertGenerationTest, MissingExtensionFileStopsAfterTheConfiguration) {
    RemoveFile(kExtensionFile);
    const SSLCertGenParam request = GenRequest(2048);
    EXPECT_EQ(SECURITY_SSL_ConfFile_Check(&request), 0x81000017u);
    RemoveFile(kRequestConfig);
    ClearDiagLog();

    const uint64_t spawns = BMCSIM_SpawnCount();
    EXPECT_EQ(LIB_SECURITY_GenCert(&request), 0x81000001u);
    EXPECT_EQ(BMCSIM_SpawnCount(), spawns);
    EXPECT_TRUE(Exists(kRequestConfig));
    EXPECT_FALSE(Exists(kGenKey));
    EXPECT_EQ(
        ReadDiags(),
        (std::vector<Diag>{
            {31, 3, 2,
             "SSL cert extension file /conf/certs/server/cert_v3_extfile.ext is not exist!\n"},
            {31, 3, 2, "Gen cert conf file check failed! iRet = " + Signed(0x81000017) + ".\n"}}));
}

TEST_F(CertGenerationTest, OnlyTheFailureCodeOfACommandCountsAsFailure) {
    const SSLCertGenParam request = GenRequest(1024);
    SetFaults("BMC_System=0x81000001");
    EXPECT_EQ(LIB_SECURITY_GenCert(&request), 0x81000001u);
    EXPECT_EQ(ReadDiags().back(), (Diag{31, 3, 2, "Error creating privkey key and csr!\n"}));

    // Any other answer lets the sequence go on, here to an installation
    // that finds no temporary certificate and copies nothing.
    ClearDiagLog();
    SetFaults("BMC_System=5");
    EXPECT_EQ(LIB_SECURITY_GenCert(&request), 0x81000001u);
    EXPECT_FALSE(Exists(kUserCert));
    EXPECT_EQ(ReadDiags(),
              (std::vector<Diag>{
                  {31, 3, 2, "Tmp Cert File /var/certs/TmpCertGen.pem is not exist!\n"},
                  {31, 3, 2, "SSL cert gen update failed! iRet=" + Signed(0x81000001) + ".\n"}}));
}

} // namespace
} // namespace bmctest
