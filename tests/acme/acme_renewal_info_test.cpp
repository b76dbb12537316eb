// The renewal window a CA offers (RFC 9773), asked by the timer's call once
// the time it gave has passed: against a CA of the test's own whose
// directory offers renewal information, which the packaged test CA does
// not. The certificate in force is named by its identifier; a usable
// window moves the due time into it, an unusable one leaves it.
#include <openssl/pem.h>
#include <openssl/x509v3.h>

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

// A certificate in force whose authority key identifier is 01..08 and
// serial 0x0A1B: its identifier is "AQIDBAUGBwg.Chs".
std::string CertificateWithKeyId() {
    CertRecipe recipe;
    recipe.key = KeyKind::Ec256;
    const std::string pem = MakeCertPem(recipe);
    const bmccert::UniquePtr<BIO> in(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    const bmccert::UniquePtr<X509> cert(PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr));
    const std::string keyPem = KeyPem(KeyKind::Ec256);
    const bmccert::UniquePtr<BIO> keyIn(
        BIO_new_mem_buf(keyPem.data(), static_cast<int>(keyPem.size())));
    const bmccert::UniquePtr<EVP_PKEY> key(
        PEM_read_bio_PrivateKey(keyIn.get(), nullptr, nullptr, nullptr));
    AUTHORITY_KEYID *aki = AUTHORITY_KEYID_new();
    const unsigned char id[] = {1, 2, 3, 4, 5, 6, 7, 8};
    aki->keyid = ASN1_OCTET_STRING_new();
    ASN1_OCTET_STRING_set(aki->keyid, id, sizeof id);
    X509_add1_ext_i2d(cert.get(), NID_authority_key_identifier, aki, 0, X509V3_ADD_DEFAULT);
    AUTHORITY_KEYID_free(aki);
    X509_sign(cert.get(), key.get(), EVP_sha256());
    const bmccert::UniquePtr<BIO> out(BIO_new(BIO_s_mem()));
    PEM_write_bio_X509(out.get(), cert.get());
    char *data = nullptr;
    const long size = BIO_get_mem_data(out.get(), &data);
    return std::string(data, static_cast<size_t>(size));
}

std::string Rfc3339(int64_t seconds) {
    const auto clock = static_cast<time_t>(seconds);
    struct tm parts {};
    char text[32] = {};
    (void)gmtime_r(&clock, &parts);
    (void)std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

std::string Answer(int status, const std::string &headers, const std::string &body) {
    return "HTTP/1.1 " + std::to_string(status) +
           " X\r\nReplay-Nonce: nonce_ok\r\nContent-Type: application/json\r\n" + headers +
           "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

TEST(AcmeRenewalInfo, TheTimerAsksTheCasWindowAndDrawsInIt) {
    const int64_t now = std::time(nullptr);
    const int64_t start = now + 86400, end = now + 2 * 86400, unchanged = now + 100 * 86400;
    std::string window, retryAfter, asked;
    CertRecipe recipe;
    recipe.key = KeyKind::Ec256;
    recipe.subjectAltName = "IP:127.0.0.1";
    const std::string serverCert = MakeCertPem(recipe);
    std::optional<TlsTestServer> ca;
    ca.emplace(serverCert, KeyPem(KeyKind::Ec256), [&](const TlsRequest &request) {
        const std::string origin = ca->Origin();
        if (request.path == "/dir")
            return Answer(200, "",
                          R"({"newNonce":")" + origin + R"(/nonce","newAccount":")" + origin +
                              R"(/account","newOrder":")" + origin + R"(/order","revokeCert":")" +
                              origin + R"(/revoke","keyChange":")" + origin +
                              R"(/key","renewalInfo":")" + origin + R"(/renewal-info"})");
        if (request.path == "/nonce") return Answer(200, "", "");
        if (request.path == "/account")
            return Answer(201, "Location: " + origin + "/account/1\r\n", R"({"status":"valid"})");
        asked = request.path;
        return Answer(200, retryAfter, window);
    });

    SSLAcmeEnrollment settings{};
    std::snprintf(settings.szServerUri, sizeof settings.szServerUri, "%s/dir",
                  ca->Origin().c_str());
    settings.ucEnabled = 1;
    settings.ucVerifyCertificate = 1;
    settings.ucChallengeType = SSLCERT_EXT_ACME_HTTP01;
    settings.stRequest = ExampleRequest();
    ASSERT_EQ(LIB_SECURITY_SSL_AcmeSetEnrollment(&settings, "", serverCert.c_str()), 0u);
    ASSERT_EQ(LIB_SECURITY_SSL_AcmeRegister(), 0u);
    std::filesystem::create_directories("/conf/certs/server/user");
    WriteFile(controller_paths::kUserCertPath, CertificateWithKeyId());

    struct Row {
        const char *name;
        std::string window, retryAfter;
        bool moved;
        int64_t recheck;
    } rows[] = {
        {"a window",
         R"({"suggestedWindow":{"start":")" + Rfc3339(start) + R"(","end":")" + Rfc3339(end) +
             R"("}})",
         "Retry-After: 7200\r\n", true, 7200},
        {"a window that ends before it starts",
         R"({"suggestedWindow":{"start":")" + Rfc3339(end) + R"(","end":")" + Rfc3339(start) +
             R"("}})",
         "", false, 6 * 3600},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        window = row.window;
        retryAfter = row.retryAfter;
        asked.clear();
        SSLAcmeEnrollment stored{};
        SSLAcmeStatus status{};
        ASSERT_EQ(LIB_SECURITY_SSL_AcmeGetEnrollment(&stored, &status), 0u);
        status.llNextRenewal = unchanged;
        status.llRenewalInfoCheck = now - 1; // the time the CA gave has passed
        ASSERT_EQ(DB_PutInternal(__FILE__, __LINE__, DB_GetCurrentDb(),
                                 SSLCERT_EXT_ACME_STATUS_DB_KEY, sizeof status, &status),
                  0);
        const LogOrigin origin{};
        TaskHandle task{};
        uint8_t started = 1;
        EXPECT_EQ(LIB_SECURITY_SSL_AcmeRenewIfDue(&origin, &task, &started), 0u);
        EXPECT_EQ(started, 0);
        EXPECT_EQ(asked, "/renewal-info/AQIDBAUGBwg.Chs");
        ASSERT_EQ(LIB_SECURITY_SSL_AcmeGetEnrollment(&stored, &status), 0u);
        if (row.moved) {
            EXPECT_GE(status.llNextRenewal, start);
            EXPECT_LE(status.llNextRenewal, end);
        } else {
            EXPECT_EQ(status.llNextRenewal, unchanged);
        }
        EXPECT_NEAR(static_cast<double>(status.llRenewalInfoCheck),
                    static_cast<double>(std::time(nullptr) + row.recheck), 60.0);
    }
}

} // namespace
} // namespace bmctest
