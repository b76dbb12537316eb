// The records and the queries over them, answered from what the database
// holds at the moment of the call.
#include <gtest/gtest.h>

#include <cstring>

#include "platform/host/bmc_sim.h"
#include "tests/sslauth/auth_fixture.h"

namespace bmctest {
namespace {

constexpr int32_t kFarFuture = 2000000000;

class RecordsTest : public AuthTest {};

TEST_F(RecordsTest, FactoryStateAndStoredBytesPassedThrough) {
    EXPECT_EQ(LIB_SSL_IsSupportCertAuthFunc(), 1);
    EXPECT_EQ(LIB_SSL_IsEnableCertAuth(), 0);
    uint8_t revoke = 9;
    EXPECT_EQ(LIB_SSL_GetCertRevokeCheck(&revoke), 0u);
    EXPECT_EQ(revoke, 0);
    const uint8_t odd = 7;
    Put(SSL_AUTH_DB_KEY_STATE, odd);
    Put(SSL_AUTH_DB_KEY_SUPPORT, odd);
    EXPECT_EQ(LIB_SSL_IsEnableCertAuth(), 7);
    EXPECT_EQ(LIB_SSL_IsSupportCertAuthFunc(), 7);
    EXPECT_TRUE(ReadDiags().empty());
}

TEST_F(RecordsTest, PresenceByIdTestsOnlyTheSlotAndTheLowestActiveRootWins) {
    RootCertList roots{};
    roots.astRootCert[0] = RootEntry(1, kFarFuture);
    roots.astRootCert[19] = RootEntry(20, kFarFuture, 1);
    roots.astRootCert[4] = RootEntry(4, kFarFuture, 1); // a stray id in slot 5
    Put(SSL_AUTH_DB_KEY_ROOT_LIST, roots);
    CliCertList clients{};
    clients.astCliCert[19] = ClientEntry(20, 1, "0A");
    Put(SSL_AUTH_DB_KEY_CLIENT_LIST, clients);

    struct Case {
        uint32_t id;
        uint8_t exists;
        uint32_t info;
        std::string existText, infoText;
    } cases[] = {
        {0, 0, 0x18000603, "CertId=0 out of range.\n", "Cert id=0 out of range.\n"},
        {21, 0, 0x18000603, "CertId=21 out of range.\n", "Cert id=21 out of range.\n"},
        {1, 1, 0, "", ""},
        {20, 1, 0, "", ""},
        {2, 0, 0x1800060F, "RootCertId is Diff.\n", "RootCert id=2 is not exist.\n"},
        {5, 0, 0x1800060F, "RootCertId is Diff.\n", "RootCert id=5 is not exist.\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.id);
        ClearDiagLog();
        RootCertInfo out{}, info{};
        std::memset(&out, 0xAB, sizeof out);
        const RootCertInfo untouched = out;
        EXPECT_EQ(LIB_SSL_IsExistRootCert(c.id, &out), c.exists);
        EXPECT_EQ(LIB_SSL_GetRootCertInfo(c.id, &info), c.info);
        const RootCertInfo &expected = c.exists ? roots.astRootCert[c.id - 1] : untouched;
        EXPECT_EQ(std::memcmp(&out, &expected, sizeof out), 0);
        EXPECT_EQ(ReadDiags(), c.exists ? Handling({}) : Handling({c.existText, c.infoText}));
    }
    CliCertInfo client{};
    EXPECT_EQ(LIB_SSL_IsExistClientCert(20, &client), 1);
    EXPECT_STREQ(client.szSerialNum, "0A");
    ClearDiagLog();
    EXPECT_EQ(LIB_SSL_IsExistClientCert(19, &client), 0);
    EXPECT_EQ(ReadDiags(), Handling({"ClinetCertId=19 is Diff.\n"}));

    uint32_t id = 99;
    EXPECT_EQ(LIB_SSL_GetActiveRootCertId(&id), 0u);
    EXPECT_EQ(id, 4u); // the entry's own id, not its slot
    Put(SSL_AUTH_DB_KEY_ROOT_LIST, RootCertList{});
    id = 99;
    EXPECT_EQ(LIB_SSL_GetActiveRootCertId(&id), 0u);
    EXPECT_EQ(id, 99u); // none active: the value stays
}

TEST_F(RecordsTest, OneUnreadableRecordLeavesTheOthersReadable) {
    ASSERT_EQ(BMCSIM_DbErase(SSL_AUTH_DB_KEY_CLIENT_LIST), 0);
    SetFaults("DB_Get.0x214104ff=0x81000001");
    RootCertList roots;
    CliCertList clients;
    CliCertUserList bindings;
    EXPECT_EQ(LIB_SSL_GetRootCertList(&roots), 0x81000006u);
    EXPECT_EQ(LIB_SSL_GetClientCertList(&clients), 0x81000006u);
    EXPECT_EQ(LIB_SSL_GetClientCertUserList(&bindings), 0u);
    uint8_t state = 5;
    EXPECT_EQ(LIB_SSL_GetCertAuthState(&state), 0u);
    EXPECT_EQ(state, 0);
    uint32_t id = 4;
    EXPECT_EQ(LIB_SSL_GetActiveRootCertId(&id), 0x18000001u);
    EXPECT_EQ(ReadDiags(), Handling({"Failed to get RootCertList data from DB.",
                                     "Failed to get CliCertList data from DB.",
                                     "Failed to get RootCertList data from DB.",
                                     "Get RootCertList failed.\n"}));

    ClearDiagLog();
    SetFaults("DB_GetCurrentDb=0");
    EXPECT_EQ(LIB_SSL_GetRootCertList(&roots), 0x81000001u);
    EXPECT_EQ(LIB_SSL_GetCertAuthState(&state), 0x18000001u);
    EXPECT_EQ(LIB_SSL_GetCertRevokeCheck(&state), 0x18000002u);
    EXPECT_EQ(LIB_SSL_IsEnableCertAuth(), 0);
    EXPECT_EQ(LIB_SSL_IsSupportCertAuthFunc(), 0);
    const Diag noDb{31, 2, 2, "Get db handle failed"};
    EXPECT_EQ(ReadDiags(), (std::vector<Diag>{noDb, noDb, noDb, noDb,
                                              {31, 2, 4, "Failed to get cert auth state!"}, noDb}));
}

class DerivedTest : public AuthTest {
  protected:
    void SetUp() override {
        AuthTest::SetUp();
        RootCertList roots{};
        roots.astRootCert[0] = RootEntry(1, kFarFuture);
        roots.astRootCert[1] = RootEntry(2, kFarFuture);
        Put(SSL_AUTH_DB_KEY_ROOT_LIST, roots);
        CliCertList clients{};
        clients.astCliCert[0] = ClientEntry(1, 1, "01");
        clients.astCliCert[2] = ClientEntry(3, 1, "03");
        clients.astCliCert[4] = ClientEntry(5, 2, "05");
        Put(SSL_AUTH_DB_KEY_CLIENT_LIST, clients);
        ASSERT_EQ(BMCSIM_UserSet(3, "operator", 3, 0, "op-secret"), 0);
        ASSERT_EQ(BMCSIM_UserSet(5, "viewer", 2, 0, "view-secret"), 0);
        CliCertUserList bindings{};
        bindings.astCertUser[4].uiCliCertId = 3; // user 5
        bindings.astCertUser[2].uiCliCertId = 3; // user 3, the lower id
        bindings.astCertUser[6].uiCliCertId = 5; // user 7: no such user
        Put(SSL_AUTH_DB_KEY_USER_LIST, bindings);
    }
};

TEST_F(DerivedTest, ClientWithItsFirstUser) {
    CliCertDetail detail{};
    ASSERT_EQ(LIB_SSL_GetClientCertInfo(3, &detail), 0u);
    EXPECT_STREQ(detail.stCliCertInfo.szSerialNum, "03");
    EXPECT_EQ(detail.stUser.ucUserId, 3);
    EXPECT_STREQ(detail.stUser.szUserName, "operator");
    EXPECT_EQ(detail.stUser.ucPrivRole, 3);
    EXPECT_STREQ(detail.stUser.szRoleName, "Operator");

    // No user, or a binding whose user slot is empty: the brief stays as given.
    for (uint32_t id : {1u, 5u}) {
        SCOPED_TRACE(id);
        CliCertDetail other;
        std::memset(&other, 0x5A, sizeof other);
        ASSERT_EQ(LIB_SSL_GetClientCertInfo(id, &other), 0u);
        EXPECT_EQ(other.stCliCertInfo.uiCertId, id);
        EXPECT_EQ(other.stUser.ucUserId, 0x5A);
    }
    EXPECT_EQ(LIB_SSL_GetClientCertInfo(2, &detail), 0x1800060Fu);
    EXPECT_EQ(LIB_SSL_GetClientCertInfo(21, &detail), 0x18000603u);
    EXPECT_EQ(ReadDiags(), Handling({"ClinetCert id=2 is not exist.\n", "Cert id=21 out of range.\n"}));
}

TEST_F(DerivedTest, UserTableThatCannotBeReadLeavesOutputsAlone) {
    SetFaults("LIB_USER_GetUserInfo=0x81000009");
    CliCertDetail detail;
    std::memset(&detail, 0x11, sizeof detail);
    const CliCertDetail before = detail;
    EXPECT_EQ(LIB_SSL_GetClientCertInfo(3, &detail), 0x18000003u);
    UsableUserList usable;
    std::memset(&usable, 0x22, sizeof usable);
    const UsableUserList usableBefore = usable;
    EXPECT_EQ(LIB_SSL_GetUsableUserList(&usable), 0x81000009u);
    EXPECT_EQ(std::memcmp(&detail, &before, sizeof detail), 0);
    EXPECT_EQ(std::memcmp(&usable, &usableBefore, sizeof usable), 0);
    const std::string failed = "Failed to get UserList, iRet=" + Signed(0x81000009) + ".\n";
    EXPECT_EQ(ReadDiags(), Handling({failed, failed}));
}

TEST_F(DerivedTest, UsableUsersAreTheUnboundOnes) {
    UsableUserList usable;
    std::memset(&usable, 0x33, sizeof usable);
    ASSERT_EQ(LIB_SSL_GetUsableUserList(&usable), 0u);
    ASSERT_EQ(usable.uiUserCnt, 2u); // anonymous and admin; 3 and 5 are bound
    EXPECT_EQ(usable.astUser[0].ucUserId, 1);
    EXPECT_STREQ(usable.astUser[0].szRoleName, "No Access");
    EXPECT_EQ(usable.astUser[1].ucUserId, 2);
    EXPECT_STREQ(usable.astUser[1].szUserName, "admin");
    EXPECT_STREQ(usable.astUser[1].szRoleName, "Administrator");
    EXPECT_EQ(usable.astUser[2].ucUserId, 0x33);
}

TEST_F(DerivedTest, ClientsByRootAndRelation) {
    CliCertInfo list[20];
    uint32_t count = 77;
    ASSERT_EQ(LIB_SSL_GetClientCertListByRoot(1, &count, list), 0u);
    ASSERT_EQ(count, 2u);
    EXPECT_EQ(list[0].uiCertId, 1u);
    EXPECT_EQ(list[1].uiCertId, 3u);
    EXPECT_EQ(LIB_SSL_GetClientCertListByRoot(3, &count, list), 0x1800060Fu);
    EXPECT_EQ(count, 2u);

    EXPECT_EQ(LIB_SSL_IsCorrectCertRelation(2, 5), 1);
    EXPECT_EQ(LIB_SSL_IsCorrectCertRelation(1, 5), 0);
    EXPECT_EQ(LIB_SSL_IsCorrectCertRelation(1, 21), 0);
    EXPECT_EQ(LIB_SSL_IsCorrectCertRelation(9, 0), 0);
    EXPECT_EQ(ReadDiags(), Handling({"RootCertId is Diff.\n", "RootCert id=3 is not exist.",
                                     "RootCert and ClinetCert no binding.\n",
                                     "CertId=21 out of range.\n", "RootCertId is Diff.\n",
                                     "RootCert not exist.\n"}));
}

} // namespace
} // namespace bmctest
