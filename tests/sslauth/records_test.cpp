// The records and the queries over them, answered from what the database
// holds at the moment of the call; and the two switches against the record
// owner: when a call is sent, what travels on the wire, and how failures
// are mapped and described.

#include <cstring>
#include <ctime>

#include "tests/sslauth/auth_fixture.h"

namespace bmctest {
namespace {

constexpr int32_t kFarFuture = 2000000000;

class RecordsTest : public AuthTest {};

// Stored bytes pass through as they are (the factory values are checked
// through the tool, bmccert auth status).
TEST_F(RecordsTest, StoredBytesPassPresenceTestsOnlyTheSlotLowestActiveRootWins) {
    const uint8_t odd = 7;
    Put(SSL_AUTH_DB_KEY_STATE, odd);
    Put(SSL_AUTH_DB_KEY_SUPPORT, odd);
    EXPECT_EQ(LIB_SSL_IsEnableCertAuth(), 7);
    EXPECT_EQ(LIB_SSL_IsSupportCertAuthFunc(), 7);
    EXPECT_TRUE(ReadDiags().empty());

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
    EXPECT_EQ(ReadDiags(),
              Handling({"Failed to get RootCertList data from DB.",
                        "Failed to get CliCertList data from DB.",
                        "Failed to get RootCertList data from DB.", "Get RootCertList failed.\n"}));

    ClearDiagLog();
    SetFaults("DB_GetCurrentDb=0");
    EXPECT_EQ(LIB_SSL_GetRootCertList(&roots), 0x81000001u);
    EXPECT_EQ(LIB_SSL_GetCertAuthState(&state), 0x18000001u);
    EXPECT_EQ(LIB_SSL_GetCertRevokeCheck(&state), 0x18000002u);
    EXPECT_EQ(LIB_SSL_IsEnableCertAuth(), 0);
    EXPECT_EQ(LIB_SSL_IsSupportCertAuthFunc(), 0);
    const Diag noDb{31, 2, 2, "Get db handle failed"};
    EXPECT_EQ(ReadDiags(),
              (std::vector<Diag>{
                  noDb, noDb, noDb, noDb, {31, 2, 4, "Failed to get cert auth state!"}, noDb}));
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
    EXPECT_EQ(ReadDiags(),
              Handling({"ClinetCert id=2 is not exist.\n", "Cert id=21 out of range.\n"}));

    // A user table that cannot be read leaves the outputs alone.
    ClearDiagLog();
    SetFaults("LIB_USER_GetUserInfo=0x81000009");
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

TEST_F(DerivedTest, UsableUsersClientsByRootAndRelation) {
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
    EXPECT_EQ(ReadDiags(),
              Handling({"RootCertId is Diff.\n", "RootCert id=3 is not exist.",
                        "RootCert and ClinetCert no binding.\n", "CertId=21 out of range.\n",
                        "RootCertId is Diff.\n", "RootCert not exist.\n"}));
}

class AuthStateTest : public AuthTest {
  protected:
    static std::string Set(uint8_t state, uint32_t rootId) {
        OperateDesc desc{};
        return Outcome(LIB_SSL_SetCertAuthState(state, rootId, 500, &desc), desc);
    }
    static std::string SetRevoke(uint8_t state) {
        OperateDesc desc{};
        return Outcome(LIB_SSL_SetCertRevokeCheck(state, 300, &desc), desc);
    }
    const std::string on = "0x00000000 Turned on certificate authentication state successfully.";
    const std::string off = "0x00000000 Turned off certificate authentication state successfully.";
    const std::string failed = " Failed to set certificate authentication status.";
};

TEST_F(AuthStateTest, CallsOnlyWhenTheStateChangesRevocationAsGiven) {
    EXPECT_EQ(Set(0, 0), off);
    EXPECT_TRUE(RpcLog().empty());

    ASSERT_EQ(ImportRoot(UploadRoot("ca-root.pem")), 0);
    Put(SSL_AUTH_DB_KEY_STATE, uint8_t{1}); // on, but no root in force: still sent
    // What the owner does with the switch is held by the end-to-end login.
    ASSERT_EQ(Set(1, 1), on);
    ASSERT_EQ(Set(1, 1), on); // already on with this root: no call

    ASSERT_EQ(Set(0, 9), off);
    // Switching on again while off is sent even though root 1 is still marked.
    ASSERT_EQ(Set(1, 1), on);
    ASSERT_EQ(Set(2, 1), off);

    const auto calls = RpcLog();
    ASSERT_EQ(calls.size(), 5u); // the import and four switches
    const char *wire[] = {"0100000001000000", "0000000000000000", "0100000001000000",
                          "0200000000000000"};
    for (size_t i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        const RpcCall &call = calls[i + 1];
        EXPECT_EQ(call.module + "/" + call.command + "/" + call.length + "/" + call.waitLimit,
                  "36/40/8/500");
        EXPECT_EQ(call.requestHex, wire[i]);
        EXPECT_EQ(call.result, "0x00000000");
    }
    EXPECT_EQ(
        ReadDiags(),
        (std::vector<Diag>{
            {31, 2, 6, "Current cert authenticate state is equal set state=0.\n"},
            {31, 2, 6, "Current cert authenticate state is equal set state, ActiveRootId=1."}}));

    // Revocation checking is sent as given.
    ClearDiagLog();
    // That the owner stores it is held by the login tests.
    EXPECT_EQ(SetRevoke(1),
              "0x00000000 Turned on certificate revocation check status successfully.");
    EXPECT_EQ(SetRevoke(2),
              "0x00000000 Turned off certificate revocation check status successfully.");
    EXPECT_EQ(RpcLog().back().requestHex, "02");

    SetFaults("MRPC_Call=0x92000025");
    EXPECT_EQ(SetRevoke(1), "0x18000005 Failed to set certificate revocation check.");
    EXPECT_EQ(ReadDiags(),
              Handling({"BMC_RPC_CallWithStruct Failed, iRet=" + Signed(0x92000025) + ".\n"}));
}

TEST_F(AuthStateTest, RootChecksBeforeAnyCall) {
    EXPECT_EQ(Set(1, 5), "0x1800040F" + failed);
    EXPECT_EQ(ReadDiags(),
              Handling({"RootCertId is Diff.\n", "RootCert id=5 not exist.\n",
                        "BMC_RPC_CallWithStruct Failed, iRet=" + Signed(0x92000021) + ".\n"}));

    ClearDiagLog();
    RootCertList roots{};
    roots.astRootCert[0] = RootEntry(1, static_cast<int32_t>(std::time(nullptr) - 1));
    Put(SSL_AUTH_DB_KEY_ROOT_LIST, roots);
    EXPECT_EQ(Set(1, 1), "0x18000C1E" + failed);
    const std::string expired = "Cert ValidPeriod already pass, szExpDate=exp-" +
                                std::to_string(roots.astRootCert[0].iExpTime) + ".";
    EXPECT_EQ(ReadDiags()[0], (Diag{31, 2, 4, expired}));
    EXPECT_TRUE(RpcLog().empty());

    // An owner's answer the map does not hold.
    ClearDiagLog();
    roots.astRootCert[0] = RootEntry(1, 2000000000);
    Put(SSL_AUTH_DB_KEY_ROOT_LIST, roots);
    SetFaults("MRPC_Call.40=0x92000099");
    EXPECT_EQ(Set(1, 1), "0x18000004" + failed);
    EXPECT_EQ(ReadDiags(),
              Handling({"BMC_RPC_CallWithStruct Failed, iRet=" + Signed(0x92000099) + ".\n"}));
    EXPECT_EQ(RpcLog().back().result, "0x92000099");
    unsetenv(BMCSIM_ENV_FAULTS);

    // Expiring this very second is still valid: the call goes out, and the
    // owner refuses a root whose file it cannot install.
    for (int attempt = 0; attempt < 5; ++attempt) {
        const auto now = std::time(nullptr);
        roots.astRootCert[0] = RootEntry(1, static_cast<int32_t>(now));
        Put(SSL_AUTH_DB_KEY_ROOT_LIST, roots);
        const std::string result = Set(1, 1);
        if (std::time(nullptr) != now) continue; // the second ended meanwhile
        EXPECT_EQ(result, "0x18000A04" + failed);
        ASSERT_FALSE(RpcLog().empty());
        EXPECT_EQ(RpcLog().back().result, "0x92000025");
        return;
    }
    FAIL() << "no attempt stayed within one second";
}

} // namespace
} // namespace bmctest
