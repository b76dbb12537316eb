// The stand-in of the records' owner and of the user service where the
// library's tests do not reach it: the expiry an import stores, the
// refusals the library's own checks never let through, what a deletion
// takes along, and passwords that stay sealed.
#include <gtest/gtest.h>

#include <climits>
#include <filesystem>

#include <sys/stat.h>

#include "platform/host/bmc_sim.h"
#include "tests/sslauth/auth_fixture.h"

namespace bmctest {
namespace {

namespace fs = std::filesystem;

class OwnerTest : public AuthTest {};

TEST_F(OwnerTest, RefusalsHaveTheirCodesAndDeletionsTakeTheirFiles) {
    ASSERT_EQ(ImportRoot(UploadRoot("ca-root.pem")), 0);
    ASSERT_EQ(ImportRoot(UploadRoot("late.crt", 4102444800)), 0);
    EXPECT_STREQ(Roots().astRootCert[0].szExpDate, "Jan  1 00:00:00 2034 GMT");
    EXPECT_EQ(Roots().astRootCert[0].iExpTime, 2019686400);
    EXPECT_EQ(Roots().astRootCert[1].iExpTime, INT32_MAX); // past 2038 the seconds saturate
    ASSERT_EQ(ImportClient(UploadClient("op.pem", 5), 1), 0);
    ASSERT_EQ(Bind(1, 2), 0);
    ASSERT_EQ(BMCSIM_UserSet(4, "second", 2, 0, nullptr), 0);
    WriteFile("/var/certs/upload/junk.pem", "not a certificate\n");
    RootCertImportReq root{};
    struct Case {
        const char *what;
        int32_t result;
        uint32_t expected;
    } cases[] = {
        {"not PEM", ImportRoot("/var/certs/upload/junk.pem"), 0x92000002},
        {"wrong length", MRPC_Call(36, 42, 8, &root, 100, nullptr), 0x82000001},
        {"other module", MRPC_Call(35, 40, 8, &root, 100, nullptr), 0x82000001},
        {"absent root", ImportClient(UploadClient("x.pem", 6), 3), 0x92000019},
        {"web server CA name", ImportClient(UploadClient("ca.pem", 7), 1), 0x92000018},
        {"bind absent user", Bind(1, 9), 0x92000019},
        {"bind anonymous", Bind(1, 1), 0x92000018},
        {"the user holds one", Bind(1, 2), 0x92000018},
        {"the certificate is taken", Bind(1, 4), 0x92000018},
        {"delete absent client", MRPC_Call(36, 46, 4, "\3\0\0", 100, nullptr), 0x92000019},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(static_cast<uint32_t>(c.result), c.expected);
    }
    EXPECT_EQ(Roots().astRootCert[2].uiCertId, 0u);
    EXPECT_EQ(Clients().astCliCert[1].uiCertId, 0u);
    EXPECT_FALSE(fs::exists("/conf/certs/client/ca.pem"));

    // A deleted client takes its file and every binding naming it along.
    ASSERT_EQ(MRPC_Call(36, 46, 4, "\1\0\0", 100, nullptr), 0);
    EXPECT_EQ(Bindings().astCertUser[1].uiCliCertId, 0u);
    EXPECT_FALSE(fs::exists("/conf/certs/client/op.pem"));
    ASSERT_EQ(MRPC_Call(36, 47, 4, "\1\0\0", 100, nullptr), 0);
    EXPECT_FALSE(fs::exists("/conf/certs/root/ca-root.pem"));

    RootCertList full{};
    for (uint32_t i = 0; i < 20; ++i)
        full.astRootCert[i] = RootEntry(i + 1, 2000000000);
    Put(SSL_AUTH_DB_KEY_ROOT_LIST, full);
    EXPECT_EQ(static_cast<uint32_t>(ImportRoot(UploadRoot("more.pem"))), 0x92000017u);
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
}

} // namespace
} // namespace bmctest
