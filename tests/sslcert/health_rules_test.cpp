// What the health check reads from the services' configurations and says
// about a certificate: a wrong port probes the wrong listener, a wrong
// threshold hides a weak or expiring certificate.
#include <gtest/gtest.h>

#include <openssl/pem.h>

#include <ctime>
#include <optional>
#include <string>

#include "sslcert/health_internal.h"
#include "tests/support/lab_ca.h"

namespace bmccert::health {
namespace {

// The controller's own form (plain HTTP on port 80, TLS on :443) is read
// end to end against the sandbox's web server.
TEST(ServicePorts, WebServerTakesTheListenerThatServesTls) {
    struct Row {
        const char *name;
        const char *config;
        std::optional<int> port;
    };
    const Row rows[] = {
        {"a plain socket block first",
         "$SERVER[\"socket\"] == \":8080\" {\n  server.tag = \"\"\n}\n"
         "$SERVER[\"socket\"] == \"[::]:4443\"\n{\n  ssl.engine = \"enable\" }\n",
         4443},
        {"TLS set in a nested block of the socket",
         "$SERVER[\"socket\"] == \"0.0.0.0:8443\" {\n $HTTP[\"host\"] == \"a\" {\n"
         "  ssl.engine = \"enable\"\n }\n}\n",
         8443},
        {"TLS everywhere on server.port", "server.port = 8443\nssl.engine = \"enable\"\n", 8443},
        {"TLS everywhere, no port", "ssl.engine = \"enable\" # on\n", 443},
        {"TLS only in a comment", "server.port = 80\n# ssl.engine = \"enable\"\n", std::nullopt},
        {"TLS switched off", "$SERVER[\"socket\"] == \":443\" {\n ssl.engine = \"disable\"\n}\n",
         std::nullopt},
        {"a setting of another block",
         "$HTTP[\"url\"] == \"/x\" {\n ssl.engine = \"enable\"\n}\nserver.port = 80\n",
         std::nullopt},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(WebTlsPort(row.config), row.port);
    }
}

UniquePtr<X509> Cert(const bmctest::CertRecipe &recipe) {
    return bmctest::ReadPem(bmctest::MakeCertPem(recipe), PEM_read_bio_X509);
}

TEST(CertFindings, KeySignatureAndNames) {
    using bmctest::KeyKind;
    constexpr uint32_t kOk = SSLCERT_EXT_SEVERITY_OK;
    constexpr uint32_t kWarn = SSLCERT_EXT_SEVERITY_WARNING;
    struct Row {
        const char *name;
        KeyKind key;
        const char *digest;
        const char *commonName; // none when empty
        const char *altNames;
        uint32_t keyFinding, signature, names;
    };
    const Row rows[] = {
        {"sound", KeyKind::Rsa2048, "SHA256", "bmc.test", "DNS:other,DNS:BMC.test", kOk, kOk, kOk},
        {"1024-bit RSA", KeyKind::Rsa1024, "SHA256", "bmc.test", "DNS:bmc.test", kWarn, kOk, kOk},
        {"256-bit EC", KeyKind::Ec256, "SHA256", "bmc.test", "DNS:bmc.test", kOk, kOk, kOk},
        {"SHA-1", KeyKind::Rsa2048, "SHA1", "bmc.test", "DNS:bmc.test", kOk, kWarn, kOk},
        {"MD5", KeyKind::Rsa2048, "MD5", "bmc.test", "DNS:bmc.test", kOk, SSLCERT_EXT_SEVERITY_FAULT, kOk},
        {"names without the common name", KeyKind::Rsa2048, "SHA256", "bmc.test",
         "DNS:bmc.local,IP:127.0.0.1", kOk, kOk, kWarn},
        {"an address listed as an address", KeyKind::Rsa2048, "SHA256", "10.0.0.1", "IP:10.0.0.1",
         kOk, kOk, kOk},
        {"an address listed as another", KeyKind::Rsa2048, "SHA256", "10.0.0.1",
         "IP:10.0.0.10,DNS:10.0.0.1x", kOk, kOk, kWarn},
        {"no alternative names", KeyKind::Rsa2048, "SHA256", "bmc.test", "", kOk, kOk, kWarn},
        {"no common name", KeyKind::Rsa2048, "SHA256", "", "DNS:bmc.test", kOk, kOk, kOk},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        bmctest::CertRecipe recipe;
        recipe.key = row.key;
        recipe.digest = row.digest;
        recipe.subject = {{"O", "Test Works"}};
        if (*row.commonName != '\0') recipe.subject.emplace_back("CN", row.commonName);
        recipe.subjectAltName = row.altNames;
        const UniquePtr<X509> cert = Cert(recipe);
        ASSERT_TRUE(cert);
        EXPECT_EQ(KeyStrengthFinding(cert.get()).severity, row.keyFinding);
        EXPECT_EQ(SignatureFinding(cert.get()).severity, row.signature);
        EXPECT_EQ(NamesFinding(cert.get()).severity, row.names);
    }
    // The host name clients use: listed in any case, missing, or none set.
    bmctest::CertRecipe named;
    named.subjectAltName = "DNS:BMC-07.example.org,IP:10.0.0.1";
    EXPECT_EQ(HostNameFinding(Cert(named).get(), "bmc-07.example.org")->severity, kOk);
    EXPECT_EQ(HostNameFinding(Cert(named).get(), "bmc-08.example.org")->severity, kWarn);
    EXPECT_FALSE(HostNameFinding(Cert(named).get(), "localhost").has_value());
    bmctest::CertRecipe recipe;
    recipe.subjectAltName = "DNS:bmc.local";
    EXPECT_EQ(NamesFinding(Cert(recipe).get()).text,
              "clients check the alternative names, which do not list the common name bmc.test");
    recipe.key = KeyKind::Rsa1024;
    EXPECT_EQ(KeyStrengthFinding(Cert(recipe).get()).text,
              "RSA key of 1024 bits: TLS stacks at security level 2 refuse RSA keys under 2048 "
              "bits");
}

TEST(CertFindings, ValidityAgainstNow) {
    constexpr int64_t kDay = 86400;
    struct Row {
        const char *name;
        int64_t notBefore, notAfter; // from now
        uint32_t severity;
        int32_t daysLeft;
        const char *text; // what the text holds
    };
    const Row rows[] = {
        {"30 days left", -kDay, 30 * kDay + 3600, SSLCERT_EXT_SEVERITY_OK, 30, "expires in 30 days ("},
        {"29 days left", -kDay, 29 * kDay + 3600, SSLCERT_EXT_SEVERITY_WARNING, 29, "in 29 days"},
        {"expired a minute ago", -kDay, -60, SSLCERT_EXT_SEVERITY_FAULT, -1, "expired today"},
        {"expired 3 days ago", -10 * kDay, -3 * kDay - 60, SSLCERT_EXT_SEVERITY_FAULT, -3, "expired 3 days ago"},
        {"not yet valid", kDay, 365 * kDay, SSLCERT_EXT_SEVERITY_FAULT, 0, "not valid before"},
    };
    const int64_t now = std::time(nullptr);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        bmctest::CertRecipe recipe;
        recipe.notBefore = now + row.notBefore;
        recipe.notAfter = now + row.notAfter;
        const Finding finding = ValidityFinding(SSLCERT_EXT_FINDING_ROOT_VALIDITY,
                                                "/conf/certs/root/a.pem", Cert(recipe).get());
        EXPECT_EQ(finding.severity, row.severity);
        EXPECT_EQ(finding.daysLeft, row.daysLeft);
        EXPECT_EQ(finding.subject, "/conf/certs/root/a.pem");
        EXPECT_EQ(finding.text.rfind("serial 0A1B: ", 0), 0u) << finding.text;
        EXPECT_NE(finding.text.find(row.text), std::string::npos) << finding.text;
    }
}

} // namespace
} // namespace bmccert::health
