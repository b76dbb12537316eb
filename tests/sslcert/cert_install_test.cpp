// Installation of a temporary pair and the tunnel configuration rewrite.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "lib_security_sslcert.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

constexpr const char *kScratchConfig = "/conf/adviserd/tmp_stunnel.conf";
constexpr const char *kUploadCert = "/var/certs/actualcert.pem";
constexpr const char *kUploadKey = "/var/certs/actualprivkey.pem";

class CertInstallTest : public ControllerTest {
  protected:
    static std::string Rewrite(const std::string &config) {
        WriteFile(kTunnelConfig, config);
        EXPECT_EQ(LIB_SECURITY_SSL_ModStunnelConfFile("/new/cert.pem", "/new/key.pem"), 0u);
        EXPECT_NE(access(kScratchConfig, F_OK), 0);
        return ReadFile(kTunnelConfig);
    }
};

TEST_F(CertInstallTest, FailedStepsStopBeforeTheKeyIsInstalled) {
    struct Case {
        const char *name;
        bool cert, key;
        const char *faults;
        uint32_t level;
        std::string report; // the start of the only report
    } cases[] = {
        {"no certificate", false, true, "", 2,
         "Tmp Cert File /var/certs/actualcert.pem is not exist!\n"},
        {"no key", true, false, "", 2,
         "Tmp Privkey File /var/certs/actualprivkey.pem is not exist!\n"},
        {"certificate copy fails", true, true, "BMC_CopyFile=0x81000001", 4,
         "Copy certificate file from /var/certs/actualcert.pem to "
         "/conf/certs/server/user/actualcert.pem failed! strerrno:"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        if (c.cert) WriteFile(kUploadCert, MakeCertPem({}));
        if (c.key) WriteFile(kUploadKey, KeyPem(KeyKind::Rsa2048));
        SetFaults(c.faults);
        EXPECT_EQ(SECURITY_SSL_UpdateSSLCert(kUploadCert, kUploadKey), 0x81000001u);
        const auto diags = ReadDiags();
        ASSERT_EQ(diags.size(), 1u);
        EXPECT_EQ(diags[0].level, c.level);
        EXPECT_EQ(diags[0].message.substr(0, c.report.size()), c.report);
        EXPECT_NE(access("/conf/certs/server/user/actualprivkey.pem", F_OK), 0);
        EXPECT_NE(access(kCombinedFile, F_OK), 0);
    }
}

TEST_F(CertInstallTest, TunnelRewriteReplacesEveryMentionAndNothingElse) {
    const std::string untouched = "; no options here\n[svc]\naccept = 1\ncert=/kept\n";
    EXPECT_EQ(Rewrite(untouched), untouched);

    const std::string longComment = "#" + std::string(300, 'x') + "\n";
    // A piece ends after 255 characters: an option that starts there is
    // a piece of its own and is replaced.
    const std::string splitLine = std::string(255, '#') + "cert = /split\n";
    EXPECT_EQ(Rewrite(";cert = /old\n"
                      "[one]\n"
                      "cert = /a\n"
                      "client_cert = /c\n"
                      "cert = /a key = /b\n" +
                      longComment + splitLine +
                      "[two]\n"
                      "key = /b"),
              "cert = /new/cert.pem\n"
              "[one]\n"
              "cert = /new/cert.pem\n"
              "cert = /new/cert.pem\n"
              "cert = /new/cert.pem\n" +
                  longComment + std::string(255, '#') +
                  "cert = /new/cert.pem\n"
                  "[two]\n"
                  "key = /new/key.pem\n");
}

TEST_F(CertInstallTest, TunnelRewriteKeepsTheModeAndReportsAMissingConfiguration) {
    ASSERT_EQ(chmod(kTunnelConfig, 0640), 0);
    (void)Rewrite(ReadFile(kTunnelConfig));
    struct stat st {};
    ASSERT_EQ(stat(kTunnelConfig, &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);

    RemoveFile(kTunnelConfig);
    ClearDiagLog();
    EXPECT_EQ(LIB_SECURITY_SSL_ModStunnelConfFile("/c", "/k"), 0x81000001u);
    EXPECT_EQ(ReadDiags(),
              (std::vector<Diag>{{31, 3, 4, "/conf/adviserd/stunnel.conf open failed.\n"}}));
    // The lock was given back: a second rewrite does not wait forever.
    EXPECT_EQ(LIB_SECURITY_SSL_ModStunnelConfFile("/c", "/k"), 0x81000001u);
}

} // namespace
} // namespace bmctest
