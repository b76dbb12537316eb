// Revocation under the verified methods: a real `openssl ocsp` responder
// whose answers are believed only when the record's root stands behind
// them, and revocation lists installed per root.

#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "lib_security_sslcert_ext.h"
#include "platform/host/bmc_sim.h"
#include "tests/sslauth/auth_fixture.h"
#include "tests/sslauth/ocsp_responder.h"

namespace bmctest {
namespace {

namespace fs = std::filesystem;
constexpr const char *kWork = "/var/certs/verified-test";
const NameEntries kRoot = {{"O", "Test Works"}, {"CN", "Test Root CA"}};
constexpr int64_t kDay = 86400;

class VerifiedRevocationTest : public AuthTest {
  protected:
    void SetUp() override {
        AuthTest::SetUp();
        fs::create_directories(kWork);
        AddOperator(true); // root 1, client 1 with serial 0ABCDE, bound to user 3
        PutBytes(SSL_AUTH_DB_KEY_REVOKE_CHECK, "\1", 1);
    }
    void TearDown() override {
        fs::remove_all(kWork);
        AuthTest::TearDown();
    }
    static void Choose(uint32_t method, uint32_t onFailure = SSLCERT_EXT_ON_FAILURE_REFUSE,
                       uint32_t maxAge = 604800, uint32_t skew = 300) {
        const SSLRevocationPolicy policy{method, onFailure, maxAge, skew};
        ASSERT_EQ(LIB_SECURITY_SSL_SetRevocationPolicy(&policy), 0u);
    }
    // Client 1's file replaced by a certificate with this serial and address.
    static void PlaceClient(long serial, const std::string &url) {
        WriteFile("/conf/certs/client/" + std::string(Clients().astCliCert[0].szFileName),
                  ClientPem(serial, url));
    }
    static std::string CrlPath() {
        return "/conf/certs/root/" + std::string(Roots().astRootCert[0].szFileName) + ".crl";
    }
    static uint32_t AddCrl(const std::string &pem) {
        return LIB_SECURITY_SSL_AddRootCRL(1, pem.data(), static_cast<uint32_t>(pem.size()));
    }
    static uint32_t Login() {
        char name[33] = {}, password[41] = {};
        return LIB_SSL_GetNamePwdBySerial("0ABCDE", sizeof name, name, sizeof password, password);
    }
};

TEST_F(VerifiedRevocationTest, OnlyTheRootsAnswerAboutThisCertificateCounts) {
    const std::string root = RootPem();
    struct Row {
        const char *name;
        std::vector<IndexEntry> index; // no responder when empty and url given
        Signer signer;
        long serial;
        const char *url; // "" for the responder's
        uint32_t onFailure;
        uint32_t expected;
    } rows[] = {
        {"good", {{'V', "0ABCDE"}}, Signer::kDelegated, 0x0ABCDE, "", 0, 0},
        {"revoked",
         {{'R', "0ABCDE"}},
         Signer::kDelegated,
         0x0ABCDE,
         "",
         0,
         SSLCERT_EXT_ERR_REVOKED},
        {"unknown",
         {{'V', "0ABCDF"}},
         Signer::kDelegated,
         0x0ABCDE,
         "",
         0,
         SSLCERT_EXT_ERR_STATUS_UNKNOWN},
        // The forgery the published command lets through: "good" for a
        // revoked certificate from a key the root never certified.
        {"rogue responder",
         {{'V', "0ABCDE"}},
         Signer::kRogue,
         0x0ABCDE,
         "",
         0,
         SSLCERT_EXT_ERR_OCSP_SIGNER},
        {"signer without OCSP signing",
         {{'V', "0ABCDE"}},
         Signer::kWithoutOcspSigning,
         0x0ABCDE,
         "",
         0,
         SSLCERT_EXT_ERR_OCSP_SIGNER},
        // A record that names another, good certificate.
        {"another certificate",
         {{'V', "0ABCDF"}},
         Signer::kDelegated,
         0x0ABCDF,
         "",
         0,
         SSLCERT_EXT_ERR_CERT_NOT_RECORD},
        {"https responder",
         {},
         Signer::kDelegated,
         0x0ABCDE,
         "https://127.0.0.1:1/",
         0,
         SSLCERT_EXT_ERR_NO_RESPONDER},
        {"address too long",
         {},
         Signer::kDelegated,
         0x0ABCDE,
         "http://127.0.0.1:1/aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa",
         0,
         SSLCERT_EXT_ERR_NO_RESPONDER},
        {"nobody listens",
         {},
         Signer::kDelegated,
         0x0ABCDE,
         "http://127.0.0.1:1/",
         0,
         SSLCERT_EXT_ERR_UNREACHABLE},
        {"nobody listens, allowed", {}, Signer::kDelegated, 0x0ABCDE, "http://127.0.0.1:1/", 1, 0},
        {"revoked, allowed",
         {{'R', "0ABCDE"}},
         Signer::kDelegated,
         0x0ABCDE,
         "",
         1,
         SSLCERT_EXT_ERR_REVOKED},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        Choose(SSLCERT_EXT_REVOCATION_OCSP, row.onFailure);
        std::unique_ptr<OcspResponder> responder;
        if (row.url[0] == '\0')
            responder = std::make_unique<OcspResponder>(kWork, root, row.index, row.signer);
        PlaceClient(row.serial, responder ? responder->Url() : row.url);
        const size_t logged = ReadLines(BMCSIM_OPERATE_LOG).size();
        EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), row.expected);
        EXPECT_EQ(Login(), row.expected == 0 ? 0u : 0x18000E17u);
        // Let in without an answer: on the record, once per check.
        const bool allowed = row.onFailure == 1 && row.expected == 0;
        EXPECT_EQ(ReadLines(BMCSIM_OPERATE_LOG).size(), logged + (allowed ? 2 : 0));
    }
}

// Answers that a responder once gave, served again, and answers no
// responder gives.
TEST_F(VerifiedRevocationTest, ReplayedOrBrokenAnswersAreRefused) {
    const std::string rootPath = std::string(kWork) + "/root.pem";
    const std::string certPath = std::string(kWork) + "/client.pem";
    WriteFile(rootPath, RootPem());
    WriteFile(certPath, ClientPem(0x0ABCDE));
    std::string stale, replayed;
    {
        OcspResponder responder(std::string(kWork), RootPem(), {{'V', "0ABCDE"}});
        stale = FetchOcspAnswer(rootPath, certPath, responder.Url(), false);
        replayed = FetchOcspAnswer(rootPath, certPath, responder.Url(), true);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2100));
    const std::string ok = "HTTP/1.0 200 OK\r\n";
    const struct Row {
        const char *name;
        std::string raw;
        uint32_t expected;
    } rows[] = {
        {"older than the maximum age", stale, SSLCERT_EXT_ERR_OCSP_STALE},
        {"another question's nonce", replayed, SSLCERT_EXT_ERR_OCSP_NONCE},
        {"redirected", "HTTP/1.0 302 Found\r\nLocation: http://127.0.0.1:1/\r\n\r\n",
         SSLCERT_EXT_ERR_UNREACHABLE},
        {"not OCSP", ok + "Content-Length: 4\r\n\r\ngood", SSLCERT_EXT_ERR_ANSWER_MALFORMED},
        {"cut short", ok + "Content-Length: 400\r\n\r\n0", SSLCERT_EXT_ERR_ANSWER_MALFORMED},
        {"too big", ok + "Content-Length: 10485760\r\n\r\n" + std::string(70000, 'x'),
         SSLCERT_EXT_ERR_ANSWER_TOO_BIG},
    };
    Choose(SSLCERT_EXT_REVOCATION_OCSP, SSLCERT_EXT_ON_FAILURE_REFUSE, 1, 0);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        const CannedServer server(row.raw);
        PlaceClient(0x0ABCDE, server.Url());
        EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), row.expected);
    }
    // Out-of-range settings are refused and change nothing.
    for (const SSLRevocationPolicy bad :
         {SSLRevocationPolicy{4, 0, 60, 0}, SSLRevocationPolicy{1, 2, 60, 0},
          SSLRevocationPolicy{1, 0, 0, 0}, SSLRevocationPolicy{1, 0, 60, 3601}})
        EXPECT_EQ(LIB_SECURITY_SSL_SetRevocationPolicy(&bad), SSLCERT_EXT_ERR_REVOCATION_SETTING);
    SSLRevocationState state{};
    ASSERT_EQ(LIB_SECURITY_SSL_GetRevocationState(&state), 0u);
    EXPECT_EQ(state.stPolicy.uiMaxAgeSeconds, 1u);
}

TEST_F(VerifiedRevocationTest, ListsAreTheRootsAndFresh) {
    const int64_t now = std::time(nullptr);
    const std::string listsOther =
        MakeCrlPem(kRoot, KeyKind::Rsa2048, {0x0ABCDF}, now - kDay, now + kDay);
    struct Row {
        const char *name;
        std::string crl;
        uint32_t expected;
    } rows[] = {
        {"not a list", "-----BEGIN X509 CRL-----\nAAAA\n-----END X509 CRL-----\n",
         SSLCERT_EXT_ERR_CRL_BAD},
        {"another key", MakeCrlPem(kRoot, KeyKind::Rsa1024, {}, now - kDay, now + kDay),
         SSLCERT_EXT_ERR_CRL_BAD},
        {"another issuer",
         MakeCrlPem({{"CN", "Other CA"}}, KeyKind::Rsa2048, {}, now - kDay, now + kDay),
         SSLCERT_EXT_ERR_CRL_BAD},
        {"past its next update",
         MakeCrlPem(kRoot, KeyKind::Rsa2048, {}, now - 2 * kDay, now - kDay),
         SSLCERT_EXT_ERR_CRL_STALE},
        {"the root's", listsOther, 0},
    };
    Choose(SSLCERT_EXT_REVOCATION_CRL);
    EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), SSLCERT_EXT_ERR_CRL_MISSING);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(AddCrl(row.crl), row.expected);
        EXPECT_EQ(fs::exists(CrlPath()), row.expected == 0);
    }
    struct stat st {};
    ASSERT_EQ(stat(CrlPath().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644u);
    EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), 0u);
    // A refused list leaves the one installed.
    EXPECT_EQ(AddCrl("garbage"), SSLCERT_EXT_ERR_CRL_BAD);
    EXPECT_EQ(ReadFile(CrlPath()), listsOther);

    ASSERT_EQ(
        AddCrl(MakeCrlPem(kRoot, KeyKind::Rsa2048, {0x0ABCDE, 0x0ABCDF}, now - kDay, now + kDay)),
        0u);
    EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), SSLCERT_EXT_ERR_REVOKED);
    EXPECT_EQ(Login(), 0x18000E17u);
    SSLRevocationState state{};
    ASSERT_EQ(LIB_SECURITY_SSL_GetRevocationState(&state), 0u);
    ASSERT_EQ(state.uiCrlCount, 1u);
    EXPECT_EQ(state.astCrl[0].uiRootCertId, 1u);
    EXPECT_EQ(state.astCrl[0].uiEntries, 2u);
    EXPECT_EQ(state.astCrl[0].llNextUpdate, now + kDay);

    // OCSP first, the list when the responder is silent.
    Choose(SSLCERT_EXT_REVOCATION_OCSP_CRL);
    PlaceClient(0x0ABCDE, "http://127.0.0.1:1/");
    EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), SSLCERT_EXT_ERR_REVOKED);
    EXPECT_EQ(LIB_SECURITY_SSL_AddRootCRL(2, "x", 1), SSLCERT_EXT_ERR_REVOCATION_SETTING);

    // Fetched from the distribution point a client certificate names;
    // what the point sends passes the same checks.
    CertRecipe client;
    client.subject = {{"CN", "operator"}};
    client.issuer = kRoot;
    client.signer = KeyKind::Rsa2048;
    client.serial = 0x0ABCDE;
    const std::string fresh =
        MakeCrlPem(kRoot, KeyKind::Rsa2048, {0x0ABCDF}, now - kDay, now + 2 * kDay);
    for (const auto &[body, expected] :
         {std::pair<std::string, uint32_t>{"garbage", SSLCERT_EXT_ERR_CRL_BAD}, {fresh, 0}}) {
        const CannedServer point("HTTP/1.0 200 OK\r\nContent-Length: " +
                                 std::to_string(body.size()) + "\r\n\r\n" + body);
        client.crlUrl = point.Url() + "root.crl";
        WriteFile("/conf/certs/client/" + std::string(Clients().astCliCert[0].szFileName),
                  MakeCertPem(client));
        EXPECT_EQ(LIB_SECURITY_SSL_FetchRootCRL(1), expected);
    }
    EXPECT_EQ(ReadFile(CrlPath()), fresh);

    // A list past its next update is renewed before the login uses it.
    WriteFile(CrlPath(), MakeCrlPem(kRoot, KeyKind::Rsa2048, {}, now - 2 * kDay, now - kDay));
    const std::string renewed =
        MakeCrlPem(kRoot, KeyKind::Rsa2048, {0x0ABCDE}, now - kDay, now + 2 * kDay);
    const CannedServer point("HTTP/1.0 200 OK\r\nContent-Length: " +
                             std::to_string(renewed.size()) + "\r\n\r\n" + renewed);
    client.crlUrl = point.Url() + "root.crl";
    WriteFile("/conf/certs/client/" + std::string(Clients().astCliCert[0].szFileName),
              MakeCertPem(client));
    EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), SSLCERT_EXT_ERR_REVOKED);
    EXPECT_EQ(ReadFile(CrlPath()), renewed);
}

} // namespace
} // namespace bmctest
