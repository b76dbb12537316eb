// The enrolment settings as a front end stores them: each refusal leaves
// nothing stored and no secret file; the MAC key is kept private and never
// read back; no enrolment starts without an account; the timer asks a CA
// that offers renewal information for its window.
#include <sys/stat.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <optional>

#include "lib_security_sslcert_ext.h"
#include "platform/bmc_platform.h"
#include "platform/controller_paths.h"
#include "tests/acme/tls_test_server.h"
#include "tests/support/example_request.h"
#include "tests/support/test_certs.h"

namespace bmctest {
namespace {

namespace fs = std::filesystem;

SSLAcmeEnrollment GoodSettings() {
    SSLAcmeEnrollment settings{};
    std::strcpy(settings.szServerUri, "https://ca.example.org/acme/directory");
    std::strcpy(settings.szEmail, "ops@example.org");
    settings.ucVerifyCertificate = 1;
    settings.ucChallengeType = SSLCERT_EXT_ACME_HTTP01;
    settings.stRequest = ExampleRequest();
    return settings;
}

TEST(AcmeSettings, RefusedWholeAndSecretsKept) {
    struct Row {
        const char *name;
        void (*spoil)(SSLAcmeEnrollment &);
        const char *macKey;
        const char *caPem;
        uint32_t expected;
    } rows[] = {
        {"plain http", [](SSLAcmeEnrollment &s) { std::strcpy(s.szServerUri, "http://ca/dir"); },
         nullptr, nullptr, SSLCERT_EXT_ERR_ACME_SETTING},
        {"URI filling its field",
         [](SSLAcmeEnrollment &s) { std::memset(s.szServerUri, 'a', sizeof s.szServerUri); },
         nullptr, nullptr, SSLCERT_EXT_ERR_ACME_SETTING},
        {"e-mail without @", [](SSLAcmeEnrollment &s) { std::strcpy(s.szEmail, "ops"); }, nullptr,
         nullptr, SSLCERT_EXT_ERR_ACME_SETTING},
        {"key id with a line feed",
         [](SSLAcmeEnrollment &s) { std::strcpy(s.szEabKeyId, "kid\nx"); }, nullptr, nullptr,
         SSLCERT_EXT_ERR_ACME_SETTING},
        {"dns-01", [](SSLAcmeEnrollment &s) { s.ucChallengeType = SSLCERT_EXT_ACME_DNS01; },
         nullptr, nullptr, SSLCERT_EXT_ERR_ACME_SETTING},
        {"a flag of 2", [](SSLAcmeEnrollment &s) { s.ucEnabled = 2; }, nullptr, nullptr,
         SSLCERT_EXT_ERR_ACME_SETTING},
        {"days past ten years", [](SSLAcmeEnrollment &s) { s.uiRenewBeforeExpiryDays = 3651; },
         nullptr, nullptr, SSLCERT_EXT_ERR_ACME_SETTING},
        {"a request without names", [](SSLAcmeEnrollment &s) { s.stRequest.uiAltNameCount = 0; },
         nullptr, nullptr, SSLCERT_EXT_ERR_ACME_SETTING},
        {"a request the rules refuse",
         [](SSLAcmeEnrollment &s) { s.stRequest.szCountryCode[0] = '\0'; }, nullptr, nullptr,
         SSLCERT_EXT_ERR_BAD_SUBJECT},
        {"a MAC key of neither alphabet", [](SSLAcmeEnrollment &) {}, "not*base64", nullptr,
         SSLCERT_EXT_ERR_ACME_SETTING},
        {"a CA root that is no certificate", [](SSLAcmeEnrollment &) {}, nullptr,
         "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n",
         SSLCERT_EXT_ERR_ACME_SETTING},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        SSLAcmeEnrollment settings = GoodSettings();
        row.spoil(settings);
        EXPECT_EQ(LIB_SECURITY_SSL_AcmeSetEnrollment(&settings, row.macKey, row.caPem),
                  row.expected);
        EXPECT_FALSE(fs::exists("/conf/acme/eab.key"));
        EXPECT_FALSE(fs::exists("/conf/acme/server-ca.pem"));
    }
    SSLAcmeEnrollment stored{};
    SSLAcmeStatus status{};
    ASSERT_EQ(LIB_SECURITY_SSL_AcmeGetEnrollment(&stored, &status), 0u);
    EXPECT_EQ(stored.szServerUri[0], '\0');

    // Standard Base64 as the management schema gives it.
    const SSLAcmeEnrollment settings = GoodSettings();
    ASSERT_EQ(
        LIB_SECURITY_SSL_AcmeSetEnrollment(
            &settings, "zWNDZM6eQGHWpSRTPal5eIUYFTu7EajVIoguysqZ9wG44nMEtx3MUAsUDkMTQ12W", nullptr),
        0u);
    struct stat st {};
    ASSERT_EQ(stat("/conf/acme/eab.key", &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    ASSERT_EQ(LIB_SECURITY_SSL_AcmeGetEnrollment(&stored, &status), 0u);
    EXPECT_EQ(std::memcmp(&stored, &settings, sizeof stored), 0);
    EXPECT_EQ(status.ucHasEabKey, 1);

    // No account: nothing starts, and the timer's call starts nothing quietly.
    const LogOrigin origin{};
    TaskHandle task{};
    uint8_t started = 1;
    EXPECT_EQ(LIB_SECURITY_SSL_AcmeEnroll(&origin, &task), SSLCERT_EXT_ERR_ACME_NO_ACCOUNT);
    EXPECT_EQ(LIB_SECURITY_SSL_AcmeRenewIfDue(&origin, &task, &started), 0u);
    EXPECT_EQ(started, 0);
}

// The renewal window a CA offers (RFC 9773), which the packaged test CA
// does not: asked by the timer's call once the time the CA gave has passed,
// from a CA of the test's own, for the certificate in force (the RFC's
// example, by its identifier); the due time moves into the window. Unusable
// windows are the readers' refusal rows.
TEST(AcmeRenewalInfo, TheTimerAsksTheCasWindowAndDrawsInIt) {
    const int64_t start = 4102444800, end = start + 86400; // 2100-01-01, a day
    std::string asked;
    CertRecipe recipe;
    recipe.key = KeyKind::Ec256;
    recipe.subjectAltName = "IP:127.0.0.1";
    const std::string serverCert = MakeCertPem(recipe);
    std::optional<TlsTestServer> ca;
    ca.emplace(serverCert, KeyPem(KeyKind::Ec256), [&](const TlsRequest &request) {
        const std::string origin = ca->Origin();
        std::string body = R"({"status":"valid"})";
        if (request.path == "/dir") {
            body = R"({"newNonce":"@/n","newAccount":"@/newAccount","newOrder":"@/n",)"
                   R"("revokeCert":"@/n","keyChange":"@/n","renewalInfo":"@/renewalInfo"})";
            for (size_t at = body.find('@'); at != std::string::npos; at = body.find('@'))
                body.replace(at, 1, origin);
        } else if (request.path != "/newAccount") {
            asked = request.path;
            body =
                R"({"suggestedWindow":{"start":"2100-01-01T00:00:00Z","end":"2100-01-02T00:00:00Z"}})";
        }
        return "HTTP/1.1 " + std::string(request.path == "/newAccount" ? "201" : "200") +
               " X\r\nReplay-Nonce: nonce_ok\r\nRetry-After: 7200\r\nContent-Type: "
               "application/json\r\nLocation: " +
               origin + "/account/1\r\nContent-Length: " + std::to_string(body.size()) +
               "\r\n\r\n" + body;
    });
    SSLAcmeEnrollment settings = GoodSettings();
    std::snprintf(settings.szServerUri, sizeof settings.szServerUri, "%s/dir",
                  ca->Origin().c_str());
    settings.ucEnabled = 1;
    ASSERT_EQ(LIB_SECURITY_SSL_AcmeSetEnrollment(&settings, "", serverCert.c_str()), 0u);
    ASSERT_EQ(LIB_SECURITY_SSL_AcmeRegister(), 0u);
    fs::create_directories("/conf/certs/server/user");
    WriteFile(controller_paths::kUserCertPath,
              ReadFile(BMCCERT_TEST_DATA_DIR "/acme-renewal-id.pem"));
    SSLAcmeStatus status{};
    ASSERT_EQ(LIB_SECURITY_SSL_AcmeGetEnrollment(&settings, &status), 0u);
    const int64_t now = std::time(nullptr);
    status.llNextRenewal = now + 86400;  // drawn before, without a window
    status.llRenewalInfoCheck = now - 1; // the time the CA gave has passed
    ASSERT_EQ(DB_PutInternal(__FILE__, __LINE__, DB_GetCurrentDb(), SSLCERT_EXT_ACME_STATUS_DB_KEY,
                             sizeof status, &status),
              0);

    const LogOrigin origin{};
    TaskHandle task{};
    uint8_t started = 1;
    EXPECT_EQ(LIB_SECURITY_SSL_AcmeRenewIfDue(&origin, &task, &started), 0u);
    EXPECT_EQ(asked, "/renewalInfo/aYhba4dGQEHhs3uEe6CuLN4ByNQ.AIdlQyE");
    ASSERT_EQ(LIB_SECURITY_SSL_AcmeGetEnrollment(&settings, &status), 0u);
    EXPECT_GE(status.llNextRenewal, start);
    EXPECT_LE(status.llNextRenewal, end);
    EXPECT_NEAR(static_cast<double>(status.llRenewalInfoCheck), now + 7200.0, 60.0);
}

} // namespace
} // namespace bmctest
