// The enrolment settings as a front end stores them: each refusal leaves
// nothing stored and no secret file; the MAC key is kept private and never
// read back; no enrolment starts without an account.
#include <sys/stat.h>

#include <cstring>
#include <filesystem>

#include "lib_security_sslcert_ext.h"
#include "tests/support/example_request.h"

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

} // namespace
} // namespace bmctest
