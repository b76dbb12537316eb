// Binding certificates to users, the login by serial number and the
// clean-up of a user who goes away.

#include <cstring>

#include "tests/sslauth/auth_fixture.h"

namespace bmctest {
namespace {

class LoginTest : public AuthTest {
  protected:
    void SetUp() override {
        AuthTest::SetUp();
        AddOperator(false);
        ClearDiagLog();
    }
    static uint32_t Login(const char *serial, std::string &name, std::string &password) {
        char nameBuf[33] = "name untouched", pwdBuf[41] = "password untouched";
        const uint32_t result =
            LIB_SSL_GetNamePwdBySerial(serial, sizeof nameBuf, nameBuf, sizeof pwdBuf, pwdBuf);
        name = nameBuf;
        password = pwdBuf;
        return result;
    }
};

TEST_F(LoginTest, BindAndUnbindRefuseWhatCannotBeBound) {
    // The result and the description of one change.
    const auto change = [](bool bind, uint32_t certId, uint32_t userId) {
        OperateDesc out{};
        return Outcome(bind ? LIB_SSL_ClientCertBindUser(certId, userId, 1000, &out)
                            : LIB_SSL_ClientCertUntieUser(certId, userId, 1000, &out),
                       out);
    };
    const std::string bindFailed = " Failed to bind client certificate to user.";
    const std::string untieFailed = " Failed to unbind client certificate from user.";
    struct Case {
        const char *what;
        std::string got, expected;
    } cases[] = {
        {"bind anonymous", change(true, 9, 1), "0x1800040D" + bindFailed},
        {"unbind anonymous", change(false, 9, 1), "0x1800040E" + untieFailed},
        {"absent certificate", change(true, 2, 3), "0x1800060F" + bindFailed},
        {"absent user", change(true, 1, 9), "0x18000411" + bindFailed},
        {"user 17", change(false, 1, 17), "0x18000411" + untieFailed},
        {"owner refuses: not bound", change(false, 1, 3), "0x1800000E" + untieFailed},
    };
    for (const Case &c : cases)
        EXPECT_EQ(c.got, c.expected) << c.what;
    EXPECT_EQ(ReadDiags().at(0), (Diag{31, 2, 4, "Anonymous user should not be set, UserId=1."}));
    EXPECT_EQ(RpcLog().size(), 3u); // two imports and the refused unbinding

    EXPECT_EQ(change(true, 1, 3), "0x00000000 Bound client certificate to user successfully. "
                                  "Certificate: op.pem, user: operator.");
    EXPECT_EQ(RpcLog().back().requestHex, "0100000003000000");
    EXPECT_EQ(change(false, 1, 3), "0x00000000 Unbound client certificate from user successfully. "
                                   "Certificate: op.pem, user: operator.");
}

TEST_F(LoginTest, SerialNumbersMatchExactly) {
    // Bound to nobody (0x18000E16) is held by the tool's tests.
    std::string name, password;
    ASSERT_EQ(Bind(1, 3), 0);
    for (const char *other : {"0abcde", "ABCDE", "00ABCDE", ""}) {
        SCOPED_TRACE(other);
        EXPECT_EQ(Login(other, name, password), 0x18000E15u);
    }
    ASSERT_EQ(Login("0ABCDE", name, password), 0u); // no password in a log: the tool's tests
    EXPECT_EQ(name + "/" + password, "operator/op-secret");

    // Two users on one certificate (the owner never makes this): the lower id.
    CliCertUserList bindings = Bindings();
    bindings.astCertUser[1].uiCliCertId = 1;
    Put(SSL_AUTH_DB_KEY_USER_LIST, bindings);
    ASSERT_EQ(Login("0ABCDE", name, password), 0u);
    EXPECT_EQ(name + "/" + password, "admin/" BMCSIM_FACTORY_ADMIN_PASSWORD);

    // A name cut to its buffer, a password that does not fit.
    char shortName[4] = {}, pwd[41] = {};
    ASSERT_EQ(LIB_SSL_GetNamePwdById(2, sizeof shortName, shortName, sizeof pwd, pwd), 0u);
    EXPECT_STREQ(shortName, "adm");
    EXPECT_EQ(LIB_SSL_GetNamePwdById(2, sizeof shortName, shortName, 4, pwd), 0x81000001u);
    EXPECT_EQ(LIB_SSL_GetNamePwdById(17, sizeof pwd, pwd, sizeof pwd, pwd), 0x81000001u);
    EXPECT_EQ(LIB_SSL_GetNamePwdById(0, sizeof pwd, pwd, sizeof pwd, pwd), 0x81000001u);
}

TEST_F(LoginTest, RevocationCheckingGatesTheLogin) {
    OperateDesc desc{};
    ASSERT_EQ(LIB_SSL_ClientCertBindUser(1, 3, 1000, &desc), 0u);
    std::string name, password;
    // Off: the certificate has no OCSP address at all, and still logs in.
    ASSERT_EQ(Login("0ABCDE", name, password), 0u);
    ASSERT_EQ(LIB_SSL_SetCertRevokeCheck(1, 1000, &desc), 0u);
    ClearDiagLog();
    EXPECT_EQ(Login("0ABCDE", name, password), 0x18000E17u);
    EXPECT_EQ(name, "name untouched");
    ASSERT_FALSE(ReadDiags().empty());
    EXPECT_EQ(ReadDiags().back(), (Diag{31, 2, 4, "Cert Revoke Check error, iRet=-1845493720.\n"}));

    SetFaults("DB_Get.0x214103FF=1");
    EXPECT_EQ(Login("0ABCDE", name, password), 0x18000E18u);
    SetFaults("LIB_USER_GetUserInfo=5");
    ASSERT_EQ(LIB_SSL_SetCertRevokeCheck(0, 1000, &desc), 0u);
    EXPECT_EQ(Login("0ABCDE", name, password), 0x18000E18u);
    unsetenv(BMCSIM_ENV_FAULTS);
}

TEST_F(LoginTest, CleanUpUnbindsTheUsersCertificate) {
    ASSERT_EQ(Bind(1, 3), 0);
    const size_t calls = RpcLog().size();
    LIB_SSL_ClearCertUserInfo(0);
    LIB_SSL_ClearCertUserInfo(17);
    EXPECT_EQ(ReadDiags(), Handling({"User id=0 out of range.\n", "User id=17 out of range.\n"}));
    ClearDiagLog();
    LIB_SSL_ClearCertUserInfo(2); // holds nothing: not a call, not a word
    CliCertUserList bindings = Bindings();
    bindings.astCertUser[15].uiCliCertId = 7; // the last entry names an absent certificate
    Put(SSL_AUTH_DB_KEY_USER_LIST, bindings);
    ASSERT_EQ(BMCSIM_UserSet(16, "last", 2, 0, nullptr), 0);
    LIB_SSL_ClearCertUserInfo(16);
    EXPECT_EQ(
        ReadDiags().back(),
        (Diag{31, 2, 4, "Failed to ClientCert Untie User, iRet=" + Signed(0x1800060F) + ".\n"}));
    EXPECT_EQ(RpcLog().size(), calls);

    LIB_SSL_ClearCertUserInfo(3);
    EXPECT_EQ(Bindings().astCertUser[2].uiCliCertId, 0u);
    const RpcCall last = RpcLog().back();
    EXPECT_EQ(last.command + "/" + last.waitLimit + "/" + last.requestHex,
              "45/10000/0100000003000000");
}

} // namespace
} // namespace bmctest
