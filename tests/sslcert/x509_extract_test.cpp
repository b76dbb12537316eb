// Structured fields read with OpenSSL, and which fields a failing step
// leaves written.
#include <gtest/gtest.h>

#include "lib_security_sslcert.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

constexpr uint32_t kFactory = SSL_CERT_TYPE_DEFAULT;

class X509ExtractTest : public ControllerTest {
  protected:
    // Runs the extraction over a certificate placed as the factory default.
    uint32_t Extract(const std::string &pem) {
        PlaceCert(kFactory, pem);
        config_ = SSLConfig{};
        ClearDiagLog();
        return SECURITY_SSL_GetSSLCertX509_Parse(kFactory, &config_);
    }
    SSLConfig config_{};
};

// The extractors run in the order names, key usage, version, key length;
// the first failure ends the run with the fields before it written.
TEST_F(X509ExtractTest, ExtractorsInOrderUntilTheFirstFailure) {
    const Diag noUsage{31, 3, 7, "Cert may not have keyusage."};
    struct Case {
        const char *name;
        void (*edit)(CertRecipe &);
        uint32_t result;
        const char *keyUsage, *version;
        uint32_t bits;
        std::vector<Diag> diags;
    } cases[] = {
        {"no key usage", [](CertRecipe &) {}, 0, "", "3", 2048, {noUsage}},
        {"two usages",
         [](CertRecipe &r) { r.keyUsage = kKuDigitalSignature | kKuKeyEncipherment; }, 0,
         "Digital Signature, Key Encipherment", "3", 2048, {}},
        {"decipher only", [](CertRecipe &r) { r.keyUsage = kKuDecipherOnly; }, 0, "Decipher Only",
         "3", 2048, {}},
        {"all usages", [](CertRecipe &r) { r.keyUsage = 0x80FF; }, 0,
         "Digital Signature, Non Repudiation, Key Encipherment, Data Encipherment, Key Agreement, "
         "Certificate Sign, CRL Sign, Encipher Only, Decipher Only",
         "3", 2048, {}},
        {"version 1", [](CertRecipe &r) { r.rawVersion = 0; r.extendedKeyUsage.clear(); }, 0, "",
         "1", 2048, {noUsage}},
        {"EC key", [](CertRecipe &r) { r.key = KeyKind::Ec256; }, 0, "", "3", 256, {noUsage}},
        {"empty key usage", [](CertRecipe &r) { r.keyUsage = 0; }, SSLCERT_ERR_CERT_PARSE, "", "",
         0, {{31, 3, 2, "Invalid keyusage.\n"}}},
        {"version 4", [](CertRecipe &r) { r.rawVersion = 3; r.keyUsage = kKuDigitalSignature; },
         SSLCERT_ERR_CERT_PARSE, "Digital Signature", "", 0, {{31, 3, 2, "Not support version 3.\n"}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        CertRecipe recipe;
        c.edit(recipe);
        EXPECT_EQ(Extract(MakeCertPem(recipe)), c.result);
        EXPECT_STREQ(config_.stIssueFrom.szCommonName, "bmc.test");
        EXPECT_STREQ(config_.stIssueTo.szOrganisation, "Test Works");
        EXPECT_STREQ(config_.szKeyUsage, c.keyUsage);
        EXPECT_STREQ(config_.szVersion, c.version);
        EXPECT_EQ(config_.uiPublicKeyLen, c.bits);
        EXPECT_EQ(ReadDiags(), c.diags);
    }
}

TEST_F(X509ExtractTest, NamesTakeFirstEntryAndAreCutToTheirFields) {
    CertRecipe recipe;
    const std::string longName(100, 'n');
    recipe.subject = {{"CN", "first"}, {"CN", "second"}, {"C", "DEU"},   {"L", "Town"},
                      {"ST", "State"}, {"OU", "Unit"},   {"O", longName}};
    recipe.issuer = NameEntries{{"CN", longName}, {"emailAddress", "ca@my-bmc.example.com"}};
    ASSERT_EQ(Extract(MakeCertPem(recipe)), 0u);

    const SSLCertGenParam &to = config_.stIssueTo;
    EXPECT_STREQ(to.szCommonName, "first");
    EXPECT_STREQ(to.szCountryCode, "DE");
    EXPECT_STREQ(to.szLocalityName, "Town");
    EXPECT_STREQ(to.szStateName, "State");
    EXPECT_STREQ(to.szOrganisationUnit, "Unit");
    EXPECT_EQ(std::string(to.szOrganisation), longName.substr(0, 64));
    EXPECT_STREQ(to.szEmailAddress, "");
    EXPECT_EQ(std::string(config_.stIssueFrom.szCommonName), longName.substr(0, 64));
    EXPECT_STREQ(config_.stIssueFrom.szEmailAddress, "ca@my-bmc.example.com");
    EXPECT_STREQ(config_.stIssueFrom.szOrganisation, "");
}

TEST_F(X509ExtractTest, FilesThatHoldNoUsableCertificate) {
    CertRecipe other;
    other.subject = {{"CN", "second.test"}};
    ASSERT_EQ(Extract(MakeCertPem({}) + MakeCertPem(other)), 0u);
    EXPECT_STREQ(config_.stIssueTo.szCommonName, "bmc.test");

    for (const std::string &content : {KeyPem(KeyKind::Rsa2048), std::string()}) {
        EXPECT_EQ(Extract(content), SSLCERT_ERR_CERT_PARSE);
        EXPECT_EQ(ReadDiags(), (std::vector<Diag>{{31, 3, 2, "Unable to parse certificate\n"}}));
    }

    ClearDiagLog();
    RemoveFile(kFactoryCert);
    EXPECT_EQ(SECURITY_SSL_GetSSLCertX509_Parse(kFactory, &config_), SSLCERT_ERR_FILE_OPEN);
    EXPECT_EQ(SECURITY_SSL_GetSSLCertX509_Parse(0, &config_), SSLCERT_ERR_GENERAL);
    EXPECT_EQ(ReadDiags(),
              (std::vector<Diag>{
                  {31, 3, 2, "Error is opening certificate\n"},
                  {31, 3, 2, "Unknown Cert type = 0.\n"},
                  {31, 3, 2,
                   "Failed to get Cert and Key Path. Func:[SECURITY_SSL_GetSSLCertX509_Parse]\n"},
              }));
}

} // namespace
} // namespace bmctest
