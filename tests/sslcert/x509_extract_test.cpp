// Structured fields read with OpenSSL, and which fields a failing step
// leaves written.
#include <gtest/gtest.h>

#include <openssl/pem.h>

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
        return SECURITY_SSL_GetSSLCertX509_Parse(kFactory, &config_);
    }
    SSLConfig config_{};
};

TEST_F(X509ExtractTest, KeyUsageNamesJoinInTableOrder) {
    struct Case {
        const char *name;
        std::optional<uint32_t> bits;
        const char *text;
        std::vector<Diag> diags;
    } cases[] = {
        {"no extension", std::nullopt, "", {{31, 3, 7, "Cert may not have keyusage."}}},
        {"two",
         kKuDigitalSignature | kKuKeyEncipherment,
         "Digital Signature, Key Encipherment",
         {}},
        {"decipher only", kKuDecipherOnly, "Decipher Only", {}},
        {"all",
         0x80FF,
         "Digital Signature, Non Repudiation, Key Encipherment, Data Encipherment, Key Agreement, "
         "Certificate Sign, CRL Sign, Encipher Only, Decipher Only",
         {}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        ClearDiagLog();
        CertRecipe recipe;
        recipe.keyUsage = c.bits;
        ASSERT_EQ(Extract(MakeCertPem(recipe)), 0u);
        EXPECT_STREQ(config_.szKeyUsage, c.text);
        EXPECT_STREQ(config_.szVersion, "3");
        EXPECT_EQ(config_.uiPublicKeyLen, 2048u);
        EXPECT_EQ(ReadDiags(), c.diags);
    }
}

TEST_F(X509ExtractTest, FailingExtractorEndsTheRunWithEarlierFieldsKept) {
    CertRecipe emptyUsage;
    emptyUsage.keyUsage = 0;
    EXPECT_EQ(Extract(MakeCertPem(emptyUsage)), SSLCERT_ERR_CERT_PARSE);
    EXPECT_STREQ(config_.stIssueFrom.szCommonName, "bmc.test");
    EXPECT_STREQ(config_.stIssueTo.szOrganisation, "Test Works");
    EXPECT_STREQ(config_.szVersion, "");
    EXPECT_EQ(config_.uiPublicKeyLen, 0u);
    EXPECT_EQ(ReadDiags(), (std::vector<Diag>{{31, 3, 2, "Invalid keyusage.\n"}}));

    // An unsupported version stops before the key length.
    ClearDiagLog();
    CertRecipe version4;
    version4.rawVersion = 3;
    version4.keyUsage = kKuDigitalSignature;
    EXPECT_EQ(Extract(MakeCertPem(version4)), SSLCERT_ERR_CERT_PARSE);
    EXPECT_STREQ(config_.szKeyUsage, "Digital Signature");
    EXPECT_EQ(config_.uiPublicKeyLen, 0u);
    EXPECT_EQ(ReadDiags(), (std::vector<Diag>{{31, 3, 2, "Not support version 3.\n"}}));
}

TEST_F(X509ExtractTest, VersionOneAndEcKeys) {
    CertRecipe v1;
    v1.rawVersion = 0;
    v1.extendedKeyUsage.clear();
    ASSERT_EQ(Extract(MakeCertPem(v1)), 0u);
    EXPECT_STREQ(config_.szVersion, "1");

    CertRecipe ec;
    ec.key = KeyKind::Ec256;
    ASSERT_EQ(Extract(MakeCertPem(ec)), 0u);
    EXPECT_EQ(config_.uiPublicKeyLen, 256u);
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
    const std::string first = MakeCertPem({});
    CertRecipe other;
    other.subject = {{"CN", "second.test"}};
    ASSERT_EQ(Extract(first + MakeCertPem(other)), 0u);
    EXPECT_STREQ(config_.stIssueTo.szCommonName, "bmc.test");

    for (const std::string &content : {KeyPem(KeyKind::Rsa2048), std::string()}) {
        ClearDiagLog();
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
