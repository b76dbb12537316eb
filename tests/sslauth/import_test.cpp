// Import and removal of root and client certificates: the file-name rules at
// their edges, the maps' codes, and exactly one operation-log entry per
// failed import.

#include <cstring>
#include <fstream>

#include "tests/sslauth/auth_fixture.h"

namespace bmctest {
namespace {

class ImportTest : public AuthTest {
  protected:
    void SetUp() override {
        AuthTest::SetUp();
        std::ofstream(BMCSIM_OPERATE_LOG, std::ios::trunc);
        std::snprintf(origin.szUserName, sizeof origin.szUserName, "alice");
        std::snprintf(origin.szClientAddr, sizeof origin.szClientAddr, "10.0.0.9");
        origin.uiInterface = 7;
    }
    // The entries without their source line and log class.
    static std::vector<std::string> OperateLog() {
        std::vector<std::string> lines = ReadLines(BMCSIM_OPERATE_LOG);
        for (std::string &line : lines)
            line.resize(line.rfind('\t', line.rfind('\t') - 1));
        return lines;
    }
    LogOrigin origin{};
};

// Through the root import: a name that passes reaches the owner, which
// cannot read the file (0x82000001); a refused one never does.
TEST_F(ImportTest, FileNameRulesAtTheirEdges) {
    const std::string name32(28, 'n');
    const std::string owner = "BMC_RPC_CallWithStruct Failed, iRet=-2113929215.\n";
    struct Case {
        std::string path;
        uint32_t code;
        std::string message;
    } cases[] = {
        {"/up/" + name32 + ".pem", 0x18000806, ""},
        {"/up dir/a.cer", 0x18000806, ""},
        {"/up/(x)/a.crt", 0x18000806, ""},
        {"/up/" + name32 + "x.pem", 0x18000408,
         "Cert file name=" + name32 + "x.pem is too long.\n"},
        {"/up/a.PEM", 0x1800040A, "Cert file name=a.PEM format error.\n"},
        {"/up/a.pem.bak", 0x1800040A, "Cert file name=a.pem.bak format error.\n"},
        {"/up/apem", 0x1800040A, "Cert file name=apem format error.\n"},
        {"a.pem", 0x18000006, "Failed to strrchr, CertFilePath=a.pem."},
    };
    auto check = [&](const std::string &path, uint32_t code, const std::string &message) {
        SCOPED_TRACE(path);
        ClearDiagLog();
        TaskHandle task{};
        EXPECT_EQ(LIB_SSL_ImportRootCert(&origin, path.c_str(), 1000, &task), code);
        EXPECT_EQ(ReadDiags(),
                  message.empty()
                      ? Handling({owner})
                      : Handling({message, "Check cert file path=" + path + " invalid.\n"}));
    };
    for (const Case &c : cases)
        check(c.path, c.code, c.message);
    for (const char bad : {'`', '&', '(', ')', ';', '\'', ' '}) {
        const std::string name = std::string("a") + bad + "b.pem";
        check("/up/" + name, 0x18000409, "Invalid cert file name=" + name + ".\n");
    }
}

TEST_F(ImportTest, FailedImportsAreMappedAndLoggedOnce) {
    TaskHandle task{0xAAAA, 0xBBBB};
    const std::string root = UploadRoot("ca-root.pem");
    const std::string stranger = "/var/certs/upload/stranger.pem";
    WriteFile(stranger, MakeCertPem({})); // self-signed, not by the root
    ASSERT_EQ(LIB_SSL_ImportRootCert(&origin, root.c_str(), 1000, &task), 0u);
    EXPECT_TRUE(OperateLog().empty());
    EXPECT_TRUE(ReadDiags().empty());

    struct Case {
        const char *what;
        uint32_t result, expected;
    } cases[] = {
        {"same name", LIB_SSL_ImportRootCert(&origin, root.c_str(), 1000, &task), 0x1800040C},
        {"root timed out", LIB_SSL_ImportRootCert(&origin, root.c_str(), 0, &task), 0x18000806},
        {"client timed out",
         LIB_SSL_ImportClientCert(&origin, UploadClient("c.pem", 3).c_str(), 1, 0, &task),
         0x18000807},
        {"absent root", LIB_SSL_ImportClientCert(&origin, "bad name", 2, 1000, &task), 0x1800060F},
        {"not issued by it", LIB_SSL_ImportClientCert(&origin, stranger.c_str(), 1, 1000, &task),
         0x18000611},
        {"no slash, client", LIB_SSL_ImportClientCert(&origin, "c.pem", 1, 1000, &task),
         0x18000007},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(c.result, c.expected);
    }
    const auto log = OperateLog();
    ASSERT_EQ(log.size(), std::size(cases));
    EXPECT_EQ(log[0], "7\t67\tFailed to import root certificate.\talice\t10.0.0.9");
    EXPECT_EQ(log[2], "7\t67\tFailed to import client certificate.\talice\t10.0.0.9");
}

TEST_F(ImportTest, DeletionsDescribeTheirOutcome) {
    ASSERT_EQ(ImportRoot(UploadRoot("ca-root.pem")), 0);
    ASSERT_EQ(ImportClient(UploadClient("op.pem", 5), 1), 0);
    const auto remove = [](bool root, uint32_t id, uint32_t waitLimit) {
        OperateDesc desc{};
        return Outcome(root ? LIB_SSL_DelRootCert(id, waitLimit, &desc)
                            : LIB_SSL_DelClientCert(id, waitLimit, &desc),
                       desc);
    };
    const std::string rootFailed = " Failed to delete root certificate.";
    const std::string clientFailed = " Failed to delete client certificate.";
    EXPECT_EQ(remove(true, 1, 1000), "0x1800040C" + rootFailed); // clients still name it
    ClearDiagLog();
    EXPECT_EQ(remove(false, 3, 1000), "0x1800060F" + clientFailed);
    EXPECT_EQ(ReadDiags(),
              Handling({"ClinetCertId=3 is Diff.\n", "ClientCert id=3 is not exist.\n"}));
    EXPECT_EQ(remove(false, 1, 0), "0x18000807" + clientFailed);
    SetFaults("MRPC_Call.47=0x92000123");
    EXPECT_EQ(remove(true, 1, 1000), "0x18000013" + rootFailed); // an unmapped code
    unsetenv(BMCSIM_ENV_FAULTS);
    ClearDiagLog();
    EXPECT_EQ(remove(true, 21, 1000), "0x1800060F" + rootFailed);
    EXPECT_EQ(ReadDiags(),
              Handling({"CertId=21 out of range.\n", "RootCert id=21 is not exist.\n"}));

    EXPECT_EQ(remove(false, 1, 1000),
              "0x00000000 Deleted client certificate successfully. Certificate: op.pem.");
    EXPECT_EQ(remove(true, 1, 1000),
              "0x00000000 Deleted root certificate successfully. Certificate: ca-root.pem.");
    EXPECT_TRUE(OperateLog().empty()); // deletions leave the log to their caller
}

// The owner's stand-in keeps the record-name rule too (the owner itself is
// the platform's): a name outside [A-Za-z0-9._-] is never stored.
TEST_F(ImportTest, TheOwnerRefusesANameOutsideTheRule) {
    EXPECT_EQ(static_cast<uint32_t>(ImportRoot(UploadRoot("a$(b).pem"))), kRefusedBadCertificate);
    EXPECT_EQ(Roots().astRootCert[0].uiCertId, 0u);
}

} // namespace
} // namespace bmctest
