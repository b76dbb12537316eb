// Verification of a temporary certificate: purpose, signature algorithm and
// expiry, and what each entry of the generated certificate makes of them.
#include <gtest/gtest.h>

#include <ctime>

#include "lib_security_sslcert.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

constexpr const char *kGenCert = "/var/certs/TmpCertGen.pem";

std::string Pem(void (*edit)(CertRecipe &)) {
    CertRecipe recipe;
    edit(recipe);
    return MakeCertPem(recipe);
}

class TmpCertVerifyTest : public ControllerTest {};

TEST_F(TmpCertVerifyTest, EachCheckRefusesWithItsOwnCodeAndReport) {
    const Diag valid{31, 3, 6, "Valid SSL certificate \n"};
    struct Case {
        const char *name;
        std::string pem;
        uint32_t result;
        std::vector<Diag> diags; // of the verification itself
    } cases[] = {
        {"not for servers", Pem([](CertRecipe &r) { r.extendedKeyUsage = "clientAuth"; }),
         0x98000001, {{31, 3, 2, "May not be a Webserver certificate \n"}}},
        {"MD5", Pem([](CertRecipe &r) { r.digest = "MD5"; }), 0x9800000A,
         {valid, {31, 3, 2, "Signature algorithm should not be md5."}}},
        {"expired", Pem([](CertRecipe &r) { r.notAfter = std::time(nullptr) - 1; }), 0x98000004,
         {valid, {31, 3, 2, "The uploaded SSL Certificate is EXPIRED \n"}}},
        {"not yet valid passes",
         Pem([](CertRecipe &r) {
             r.notBefore = std::time(nullptr) + 86400;
             r.notAfter = std::time(nullptr) + 5;
         }),
         0, {valid}},
        {"no certificate", "not a certificate\n", 0x98000002,
         {{31, 3, 2,
           "Error spawning x509 in order to get certificate info or invalid certfiicate on SSL.\n"},
          {31, 3, 2, "Failed in get Tmp Cert Type = 6.Func:[SECURITY_SSL_VerifyTmpCert].\n"}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        WriteFile(kGenCert, c.pem);
        ClearDiagLog();
        EXPECT_EQ(SECURITY_SSL_VerifyTmpCert(SSL_CERT_TYPE_GEN_TMP), c.result);
        EXPECT_EQ(ReadDiags(), c.diags);

        // The entries of the generated certificate add their own reports.
        std::vector<Diag> expected = c.diags;
        if (c.result != 0)
            expected.push_back({31, 3, 2,
                                "Failed to verify Gen TMP certificate. iRet=" + Signed(c.result) +
                                    ".\n"});
        ClearDiagLog();
        EXPECT_EQ(SECURITY_SSL_VerifyGENTmpCert(), c.result);
        EXPECT_EQ(ReadDiags(), expected);
        if (c.result != 0)
            expected.push_back(
                {31, 3, 2, "Verify Gen TMP certificate failed! iRet=" + Signed(c.result) + ".\n"});
        ClearDiagLog();
        EXPECT_EQ(LIB_SECURITY_VerifyCert(), c.result == 0 ? 0u : 0x81000001u);
        EXPECT_EQ(ReadDiags(), expected);
    }

    RemoveFile(kGenCert);
    ClearDiagLog();
    EXPECT_EQ(LIB_SECURITY_VerifyCert(), 0x81000001u);
    EXPECT_EQ(ReadDiags(),
              (std::vector<Diag>{{31, 3, 2, "File /var/certs/TmpCertGen.pem is not exist!\n"}}));
}

} // namespace
} // namespace bmctest
