// The two switches against the record owner: when a call is sent, what
// travels on the wire, and how failures are mapped and described.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

#include "platform/host/bmc_sim.h"
#include "tests/sslauth/auth_fixture.h"

namespace bmctest {
namespace {

class AuthStateTest : public AuthTest {
  protected:
    static uint32_t Set(uint8_t state, uint32_t rootId, OperateDesc &desc) {
        std::memset(&desc, 0, sizeof desc);
        return LIB_SSL_SetCertAuthState(state, rootId, 500, &desc);
    }
};

TEST_F(AuthStateTest, CallsOnlyWhenTheStateChanges) {
    OperateDesc desc;
    EXPECT_EQ(Set(0, 0, desc), 0u);
    EXPECT_STREQ(desc.szOperateDesc, "Turned off certificate authentication state successfully.");
    EXPECT_EQ(desc.ucLogClass, 37);
    EXPECT_TRUE(RpcLog().empty());

    ASSERT_EQ(ImportRoot(UploadRoot("ca-root.pem")), 0);
    ASSERT_EQ(Set(1, 1, desc), 0u);
    EXPECT_STREQ(desc.szOperateDesc, "Turned on certificate authentication state successfully.");
    EXPECT_EQ(LIB_SSL_IsEnableCertAuth(), 1);
    EXPECT_EQ(ReadFile("/conf/certs/client/ca.pem"), ReadFile("/conf/certs/root/ca-root.pem"));
    ASSERT_EQ(Set(1, 1, desc), 0u); // already on with this root: no call

    ASSERT_EQ(Set(0, 9, desc), 0u);
    EXPECT_EQ(LIB_SSL_IsEnableCertAuth(), 0);
    // Switching on again while off is sent even though root 1 is still marked.
    ASSERT_EQ(Set(1, 1, desc), 0u);
    ASSERT_EQ(Set(2, 1, desc), 0u);

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
    EXPECT_EQ(ReadDiags(),
              (std::vector<Diag>{
                  {31, 2, 6, "Current cert authenticate state is equal set state=0.\n"},
                  {31, 2, 6, "Current cert authenticate state is equal set state, ActiveRootId=1."}}));
}

TEST_F(AuthStateTest, RootChecksBeforeAnyCall) {
    OperateDesc desc;
    EXPECT_EQ(Set(1, 5, desc), 0x1800040Fu);
    EXPECT_EQ(ReadDiags(), Handling({"RootCertId is Diff.\n", "RootCert id=5 not exist.\n",
                                     "BMC_RPC_CallWithStruct Failed, iRet=" + Signed(0x92000021) +
                                         ".\n"}));

    ClearDiagLog();
    RootCertList roots{};
    roots.astRootCert[0] = RootEntry(1, static_cast<int32_t>(std::time(nullptr) - 1));
    Put(SSL_AUTH_DB_KEY_ROOT_LIST, roots);
    EXPECT_EQ(Set(1, 1, desc), 0x18000C1Eu);
    const std::string expired = "Cert ValidPeriod already pass, szExpDate=exp-" +
                                std::to_string(roots.astRootCert[0].iExpTime) + ".";
    EXPECT_EQ(ReadDiags()[0], (Diag{31, 2, 4, expired}));
    EXPECT_TRUE(RpcLog().empty());

    // An owner's answer the map does not hold.
    ClearDiagLog();
    roots.astRootCert[0] = RootEntry(1, 2000000000);
    Put(SSL_AUTH_DB_KEY_ROOT_LIST, roots);
    SetFaults("MRPC_Call.40=0x92000099");
    EXPECT_EQ(Set(1, 1, desc), 0x18000004u);
    EXPECT_STREQ(desc.szOperateDesc, "Failed to set certificate authentication status.");
    EXPECT_EQ(desc.ucLogClass, 37);
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
        const uint32_t result = Set(1, 1, desc);
        if (std::time(nullptr) != now) continue; // the second ended meanwhile
        EXPECT_EQ(result, 0x18000A04u);
        ASSERT_FALSE(RpcLog().empty());
        EXPECT_EQ(RpcLog().back().result, "0x92000025");
        return;
    }
    FAIL() << "no attempt stayed within one second";
}

TEST_F(AuthStateTest, RevocationCheckIsSentAsGiven) {
    OperateDesc desc{};
    EXPECT_EQ(LIB_SSL_SetCertRevokeCheck(1, 300, &desc), 0u);
    EXPECT_STREQ(desc.szOperateDesc, "Turned on certificate revocation check status successfully.");
    uint8_t stored = 0;
    EXPECT_EQ(LIB_SSL_GetCertRevokeCheck(&stored), 0u);
    EXPECT_EQ(stored, 1);
    EXPECT_EQ(LIB_SSL_SetCertRevokeCheck(2, 300, &desc), 0u);
    EXPECT_STREQ(desc.szOperateDesc,
                 "Turned off certificate revocation check status successfully.");
    EXPECT_EQ(RpcLog().back().requestHex, "02");

    SetFaults("MRPC_Call=0x92000025");
    desc = OperateDesc{};
    EXPECT_EQ(LIB_SSL_SetCertRevokeCheck(1, 300, &desc), 0x18000005u);
    EXPECT_STREQ(desc.szOperateDesc, "Failed to set certificate revocation check.");
    EXPECT_EQ(desc.ucLogClass, 37);
    EXPECT_EQ(LIB_SSL_GetCertRevokeCheck(&stored), 0u);
    EXPECT_EQ(stored, 0);
    EXPECT_EQ(ReadDiags(),
              Handling({"BMC_RPC_CallWithStruct Failed, iRet=" + Signed(0x92000025) + ".\n"}));
}

} // namespace
} // namespace bmctest
