// The record owner and user service behind the platform calls: the records
// they write are the ones the library reads, and every refusal has its code.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include <sys/stat.h>

#include "platform/host/bmc_sim.h"
#include "tests/sslauth/auth_fixture.h"

namespace bmctest {
namespace {

namespace fs = std::filesystem;

class OwnerTest : public AuthTest {};

std::string OpensslSerial(const std::string &path) {
    const std::string cmd = "openssl x509 -noout -serial -in '" + path + "'";
    std::string out;
    if (FILE *pipe = popen(cmd.c_str(), "r")) {
        char buf[256];
        while (std::fgets(buf, sizeof buf, pipe) != nullptr)
            out += buf;
        pclose(pipe);
    }
    return out;
}

TEST_F(OwnerTest, ImportsFillEntriesCopyFilesAndFinishTasks) {
    TaskHandle task{};
    ASSERT_EQ(ImportRoot(UploadRoot("ca-root.pem"), &task), 0);
    RootCertInfo root{};
    ASSERT_EQ(LIB_SSL_GetRootCertInfo(1, &root), 0u);
    EXPECT_STREQ(root.szFileName, "ca-root.pem");
    EXPECT_STREQ(root.szExpDate, "Jan  1 00:00:00 2034 GMT");
    EXPECT_EQ(root.iExpTime, 2019686400);
    EXPECT_TRUE(fs::exists("/conf/certs/root/ca-root.pem"));
    BMCSIM_TaskState state{};
    ASSERT_EQ(BMCSIM_TaskGet(task.TaskId, &state), 0);
    EXPECT_EQ(state.uiTaskTag, task.TaskTag);
    EXPECT_EQ(state.ucState * 1000 + state.ucProgress, 2100);
    EXPECT_STREQ(state.szText, "Root Cert import successfully");

    // Past 2038 the stored seconds saturate.
    ASSERT_EQ(ImportRoot(UploadRoot("late.crt", 4102444800)), 0);
    EXPECT_EQ(Roots().astRootCert[1].iExpTime, INT32_MAX);

    const std::string client = UploadClient("op.cer", 0x0ABCDE);
    ASSERT_EQ(ImportClient(client, 1), 0);
    CliCertInfo entry{};
    ASSERT_EQ(LIB_SSL_IsExistClientCert(1, &entry), 1);
    EXPECT_EQ(entry.uiRootCertId, 1u);
    EXPECT_STREQ(entry.szFileName, "op.cer");
    EXPECT_EQ("serial=" + std::string(entry.szSerialNum) + "\n", OpensslSerial(client));
    EXPECT_TRUE(fs::exists("/conf/certs/client/op.cer"));
}

TEST_F(OwnerTest, RefusalsHaveTheirCodesAndChangeNothing) {
    ASSERT_EQ(ImportRoot(UploadRoot("ca-root.pem")), 0);
    ASSERT_EQ(ImportClient(UploadClient("op.pem", 5), 1), 0);
    WriteFile("/var/certs/upload/junk.pem", "not a certificate\n");
    RootCertImportReq root{};
    std::snprintf(root.szFilePath, sizeof root.szFilePath, "/var/certs/upload/ca-root.pem");

    // Refusals that the library's own checks never let reach the owner; the
    // others are asserted with their mapped codes through the library.
    struct Case {
        const char *what;
        int32_t result;
        uint32_t expected;
    } cases[] = {
        {"not PEM", ImportRoot("/var/certs/upload/junk.pem"), 0x92000002},
        {"wrong length", MRPC_Call(36, 42, 8, &root, 100, nullptr), 0x82000001},
        {"other module", MRPC_Call(35, 40, 8, &root, 100, nullptr), 0x82000001},
        {"absent root", ImportClient(UploadClient("x.pem", 6), 2), 0x92000019},
        {"web server CA name", ImportClient(UploadClient("ca.pem", 7), 1), 0x92000018},
        {"bind absent user", Bind(1, 9), 0x92000019},
        {"bind anonymous", Bind(1, 1), 0x92000018},
        {"delete absent client", MRPC_Call(36, 46, 4, "\3\0\0", 100, nullptr), 0x92000019},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(static_cast<uint32_t>(c.result), c.expected);
    }
    EXPECT_EQ(Roots().astRootCert[1].uiCertId, 0u);
    EXPECT_EQ(Clients().astCliCert[1].uiCertId, 0u);
    EXPECT_FALSE(fs::exists("/conf/certs/client/ca.pem"));

    RootCertList full = Roots();
    for (uint32_t i = 1; i < 20; ++i)
        full.astRootCert[i] = RootEntry(i + 1, 2000000000);
    Put(SSL_AUTH_DB_KEY_ROOT_LIST, full);
    EXPECT_EQ(static_cast<uint32_t>(ImportRoot(UploadRoot("more.pem"))), 0x92000017u);
}

TEST_F(OwnerTest, BindingsAndDeletions) {
    ASSERT_EQ(ImportRoot(UploadRoot("ca-root.pem")), 0);
    ASSERT_EQ(ImportClient(UploadClient("op.pem", 5), 1), 0);
    ASSERT_EQ(Bind(1, 2), 0);
    EXPECT_EQ(static_cast<uint32_t>(Bind(1, 2)), 0x92000018u); // the user holds one
    ASSERT_EQ(BMCSIM_UserSet(4, "second", 2, 0, nullptr), 0);
    EXPECT_EQ(static_cast<uint32_t>(Bind(1, 4)), 0x92000018u); // the certificate is taken
    CliCertDetail detail{};
    ASSERT_EQ(LIB_SSL_GetClientCertInfo(1, &detail), 0u);
    EXPECT_STREQ(detail.stUser.szUserName, "admin");

    EXPECT_EQ(Bindings().astCertUser[1].uiCliCertId, 1u);
    ASSERT_EQ(MRPC_Call(36, 46, 4, "\1\0\0", 100, nullptr), 0);
    EXPECT_EQ(Bindings().astCertUser[1].uiCliCertId, 0u);
    EXPECT_FALSE(fs::exists("/conf/certs/client/op.pem"));
    ASSERT_EQ(MRPC_Call(36, 47, 4, "\1\0\0", 100, nullptr), 0);
    EXPECT_FALSE(fs::exists("/conf/certs/root/ca-root.pem"));
    EXPECT_EQ(Roots().astRootCert[0].uiCertId, 0u);
}

TEST_F(OwnerTest, PasswordsAreSealedUnderAPrivateKey) {
    struct stat st {};
    ASSERT_EQ(stat(BMCSIM_USER_KEY, &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    const std::string db = ReadFile(BMCSIM_CONFIG_DB) + ReadFile(BMCSIM_CONFIG_DB "-wal");
    EXPECT_EQ(db.find(BMCSIM_FACTORY_ADMIN_PASSWORD), std::string::npos);

    std::vector<uint8_t> table(12120);
    ASSERT_EQ(LIB_USER_GetUserInfo(table.data()), 0);
    const uint8_t *secret = table.data() + 756 + 274; // user 2
    uint8_t work[41] = {};
    char password[41] = "untouched";
    EXPECT_NE(LIB_USER_DecryptPassword(secret, "q7m", 41, work, 14, password), 0);
    EXPECT_STREQ(password, "untouched"); // never a cut password
    ASSERT_EQ(LIB_USER_DecryptPassword(secret, "q7m", 41, work, sizeof password, password), 0);
    EXPECT_STREQ(password, BMCSIM_FACTORY_ADMIN_PASSWORD);
    table[756 + 274 + 20] ^= 1; // one flipped bit of the sealed text
    EXPECT_NE(LIB_USER_DecryptPassword(secret, "q7m", 41, work, sizeof password, password), 0);

    uint8_t record[224];
    ASSERT_EQ(LIB_USER_GetInsUser(2, record), 0);
    EXPECT_STREQ(reinterpret_cast<const char *>(record + 1), "admin");
    EXPECT_NE(LIB_USER_GetInsUser(7, record), 0);
    EXPECT_NE(LIB_USER_GetInsUser(0, record), 0);
    EXPECT_EQ(LIB_USER_CheckAnonymousByUserID(1), 1);
    EXPECT_EQ(LIB_USER_CheckAnonymousByUserID(2), 0);
}

} // namespace
} // namespace bmctest
