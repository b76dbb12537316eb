// The openssl text dump: the cut-out rule, the fields it fills, its failure
// paths, and the file attributes. The scratch-file lock is held by the
// concurrency suite, which fails without it.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "lib_security_sslcert.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

constexpr const char *kScratch = "/var/certs/certtmp";

class TextDumpTest : public ControllerTest {};

TEST_F(TextDumpTest, CutOutRuleTakesTheValueAfterTheFirstDelimiter) {
    const CertTextParseRow serial{"serial=", 1, '='};
    const CertTextParseRow sigAlg{"Signature Algorithm:", 2, ':'};
    const CertTextParseRow server{"SSL server :", 2, ':'};
    const std::string longValue(300, 'v');
    struct Case {
        const char *name;
        const CertTextParseRow *row;
        std::string line;
        std::string expected; // the slot starts as "old"
    } cases[] = {
        {"value without its line feed", &serial, "serial=0A1B\n", "0A1B"},
        {"skip passes the blank", &sigAlg, "    Signature Algorithm: sha256WithRSAEncryption\n",
         "sha256WithRSAEncryption"},
        {"purpose answer", &server, "SSL server : Yes\n", "Yes"},
        {"keyword inside a longer purpose name", &server, "Netscape SSL server : No\n", "No"},
        {"no keyword", &serial, "notAfter=Jan  1 00:00:00 2034 GMT\n", "old"},
        {"delimiter before the keyword counts", &sigAlg, "x: Signature Algorithm: md5\n",
         "Signature Algorithm: md5"},
        {"last line without line feed loses a character", &serial, "serial=0A1B", "0A1"},
        {"nothing after the skip", &serial, "serial=", "old"},
        {"skip past the end", &sigAlg, "Signature Algorithm:", "old"},
        {"long value cut to the slot", &serial, "serial=" + longValue, longValue.substr(0, 255)},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        char slot[256] = "old";
        SECURITY_SSL_ParseCommon(c.line.c_str(), c.row, sizeof slot, slot);
        EXPECT_EQ(std::string(slot), c.expected);
    }
}

TEST_F(TextDumpTest, DumpFillsItsSixFieldsOnlyAndRemovesTheScratchFile) {
    PlaceCert(SSL_CERT_TYPE_DEFAULT, MakeCertPem({}));
    SSLConfig config;
    std::memset(&config, 'x', sizeof config);
    config.szVersion[63] = '\0';
    ASSERT_EQ(SECURITY_SSL_GetSSLCertCommon(SSL_CERT_TYPE_DEFAULT, &config), 0);
    EXPECT_STREQ(config.szSerialNum, "0A1B");
    EXPECT_STREQ(config.szSigAlgorithm, "sha256WithRSAEncryption");
    EXPECT_STREQ(config.szPublicKey, ""); // the tool prints "Public-Key:"
    EXPECT_STREQ(config.szStartDate, "2024-01-01T00:00:00Z");
    EXPECT_STREQ(config.szExpDate, "2034-01-01T00:00:00Z");
    EXPECT_STREQ(config.szSSLServer, "Yes");
    EXPECT_EQ(config.szVersion[0], 'x');
    EXPECT_EQ(config.uiPublicKeyLen, 0x78787878u);
    EXPECT_FALSE(std::filesystem::exists(kScratch));
    EXPECT_EQ(ReadDiags(), std::vector<Diag>{});
}

TEST_F(TextDumpTest, ToolFailureLeavesScratchFileAndReports) {
    WriteFile(CertPath(SSL_CERT_TYPE_UPLOAD_TMP), "not a certificate\n");
    SSLConfig config{};
    EXPECT_EQ(SECURITY_SSL_GetSSLCertCommon(SSL_CERT_TYPE_UPLOAD_TMP, &config),
              static_cast<int32_t>(SSLCERT_ERR_GENERAL));
    EXPECT_TRUE(std::filesystem::exists(kScratch));

    SetFaults("BMC_System=0x81000001");
    EXPECT_EQ(SECURITY_SSL_GetSSLCertCommon(SSL_CERT_TYPE_DEFAULT, &config),
              static_cast<int32_t>(SSLCERT_ERR_GENERAL));
    const Diag spawnFailure{31, 3, 2,
                            "Error spawning x509 in order to get certificate info or invalid "
                            "certfiicate on SSL.\n"};
    EXPECT_EQ(ReadDiags(), (std::vector<Diag>{spawnFailure, spawnFailure}));
    EXPECT_EQ(SECURITY_SSL_GetSSLCertCommon(9, &config), static_cast<int32_t>(SSLCERT_ERR_GENERAL));
}

TEST_F(TextDumpTest, AttributesRecordTypeFirstAndStopAtAMissingFile) {
    SSLCertKeyFileInfo info{};
    ASSERT_EQ(SECURITY_SSL_GetSSLCertAttributes(SSL_CERT_TYPE_DEFAULT, &info), 0u);
    EXPECT_EQ(info.ucCertType, SSL_CERT_TYPE_DEFAULT);
    EXPECT_EQ(std::strlen(info.szCertFileTime), 20u);
    EXPECT_EQ(std::strlen(info.szKeyFileTime), 20u);

    info = SSLCertKeyFileInfo{};
    RemoveFile(kFactoryKey);
    EXPECT_EQ(SECURITY_SSL_GetSSLCertAttributes(SSL_CERT_TYPE_DEFAULT, &info),
              SSLCERT_ERR_FILE_TIME);
    EXPECT_EQ(info.ucCertType, SSL_CERT_TYPE_DEFAULT);
    EXPECT_NE(info.szCertFileTime[0], '\0');
    EXPECT_EQ(info.szKeyFileTime[0], '\0');

    info = SSLCertKeyFileInfo{};
    SetFaults("BMC_GetFileModifyTimeStamp=1");
    EXPECT_EQ(SECURITY_SSL_GetSSLCertAttributes(SSL_CERT_TYPE_USER, &info), SSLCERT_ERR_FILE_TIME);
    EXPECT_EQ(info.ucCertType, SSL_CERT_TYPE_USER);
    EXPECT_EQ(info.szCertFileTime[0], '\0');
    EXPECT_EQ(ReadDiags(), (std::vector<Diag>{{31, 3, 2, "Get privatekey file time failed!\n"},
                                              {31, 3, 2, "Get cert file time failed!\n"}}));
}

} // namespace
} // namespace bmctest
