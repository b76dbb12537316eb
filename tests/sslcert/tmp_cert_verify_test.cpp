// Verification of a temporary certificate: purpose, signature algorithm and
// expiry, and what the exported entry makes of each.
#include <gtest/gtest.h>

#include <ctime>

#include "lib_security_sslcert.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

class TmpCertVerifyTest : public ControllerTest {
  protected:
    static uint32_t VerifyGenerated(const CertRecipe &recipe) {
        PlaceCert(SSL_CERT_TYPE_GEN_TMP, MakeCertPem(recipe));
        ClearDiagLog();
        return SECURITY_SSL_VerifyGENTmpCert();
    }
    static bool Logged(const std::string &message) {
        for (const Diag &diag : ReadDiags())
            if (diag.message == message) return true;
        return false;
    }
};

TEST_F(TmpCertVerifyTest, EachTestRefusesWithItsOwnCode) {
    const int64_t now = std::time(nullptr);
    CertRecipe notServer;
    notServer.extendedKeyUsage = "clientAuth";
    EXPECT_EQ(VerifyGenerated(notServer), 0x98000001u);
    EXPECT_FALSE(Logged("Valid SSL certificate \n"));
    EXPECT_EQ(LIB_SECURITY_VerifyCert(), 0x81000001u);

    CertRecipe md5;
    md5.digest = "MD5";
    EXPECT_EQ(VerifyGenerated(md5), 0x9800000Au);
    EXPECT_EQ(
        ReadDiags(),
        (std::vector<Diag>{
            {31, 3, 6, "Valid SSL certificate \n"},
            {31, 3, 2, "Signature algorithm should not be md5."},
            {31, 3, 2, "Failed to verify Gen TMP certificate. iRet=" + Signed(0x9800000A) + ".\n"},
        }));

    CertRecipe expired;
    expired.notAfter = now - 1;
    EXPECT_EQ(VerifyGenerated(expired), 0x98000004u);
    EXPECT_TRUE(Logged("The uploaded SSL Certificate is EXPIRED \n"));

    CertRecipe notYetValid;
    notYetValid.notBefore = now + 86400;
    notYetValid.notAfter = now + 5;
    EXPECT_EQ(VerifyGenerated(notYetValid), 0u);
    EXPECT_EQ(LIB_SECURITY_VerifyCert(), 0u);
}

TEST_F(TmpCertVerifyTest, UnreadableOrMissingCertificate) {
    PlaceCert(SSL_CERT_TYPE_GEN_TMP, "not a certificate\n");
    EXPECT_EQ(SECURITY_SSL_VerifyTmpCert(SSL_CERT_TYPE_GEN_TMP), 0x98000002u);
    EXPECT_TRUE(Logged("Failed in get Tmp Cert Type = 6.Func:[SECURITY_SSL_VerifyTmpCert].\n"));

    RemoveFile(CertPath(SSL_CERT_TYPE_GEN_TMP));
    ClearDiagLog();
    EXPECT_EQ(LIB_SECURITY_VerifyCert(), 0x81000001u);
    EXPECT_EQ(ReadDiags(),
              (std::vector<Diag>{{31, 3, 2, "File /var/certs/TmpCertGen.pem is not exist!\n"}}));
}

} // namespace
} // namespace bmctest
