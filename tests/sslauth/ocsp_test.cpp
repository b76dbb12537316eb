// The revocation check against a real `openssl ocsp` responder, the issuer
// lookup in the web server's configuration, and hostile values in every
// place a command line takes one from.

#include <cstring>
#include <filesystem>

#include "tests/sslauth/auth_fixture.h"
#include "tests/sslauth/ocsp_responder.h"

namespace bmctest {
namespace {

namespace fs = std::filesystem;
constexpr const char *kWebConfig = "/conf/lighttpd/lighttpd.conf";
constexpr const char *kWebCa = "/conf/certs/client/ca.pem";

class OcspTest : public AuthTest {
  protected:
    void SetUp() override {
        AuthTest::SetUp();
        webConfig_ = ReadFile(kWebConfig);
        rootPem_ = RootPem();
        WriteFile(kWebCa, rootPem_);
        fs::create_directories(kWork);
    }
    void TearDown() override {
        WriteFile(kWebConfig, webConfig_);
        fs::remove_all(kWork);
        AuthTest::TearDown();
    }
    // A client certificate with this OCSP address as entry id, file name.
    void PlaceClient(uint32_t id, const std::string &name, long serial, const std::string &url) {
        WriteFile("/conf/certs/client/" + name, ClientPem(serial, url));
        PlaceRecord(id, name);
    }
    static void PlaceRecord(uint32_t id, const std::string &name) {
        CliCertList list = Clients();
        list.astCliCert[id - 1] = ClientEntry(id, 1, "");
        std::snprintf(list.astCliCert[id - 1].szFileName, 33, "%s", name.c_str());
        Put(SSL_AUTH_DB_KEY_CLIENT_LIST, list);
    }
    // The factory configuration with its ssl.ca-file line replaced.
    void SetCaLine(const std::string &line) const {
        std::string config = webConfig_;
        const size_t at = config.find("    ssl.ca-file");
        config.replace(at, config.find('\n', at) - at, line);
        WriteFile(kWebConfig, config);
    }
    static constexpr const char *kWork = "/var/certs/ocsp-test";
    std::string webConfig_, rootPem_;
};

TEST_F(OcspTest, OnlyAnExplicitGoodPasses) {
    OcspResponder responder(kWork, rootPem_, {{'V', "0ABCDE"}, {'R', "0ABCDF"}});
    PlaceClient(1, "good.pem", 0x0ABCDE, responder.Url());
    PlaceClient(2, "revoked.pem", 0x0ABCDF, responder.Url());
    PlaceClient(3, "unknown.pem", 0x0ABCE0, responder.Url());
    PlaceClient(6, "secure.pem", 0x0ABCE3, "https://127.0.0.1:1/");

    EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), 0u);
    EXPECT_TRUE(ReadDiags().empty());
    for (uint32_t id : {2u, 3u}) {
        SCOPED_TRACE(id);
        ClearDiagLog();
        EXPECT_EQ(LIB_SSL_CertRevokeCheck(id), 0x9200002Du);
        const auto diags = ReadDiags();
        ASSERT_EQ(diags.size(), 2u);
        EXPECT_EQ(diags[0].message.rfind("Verify cert is revoked or unknowed, OutBuffer=", 0), 0u);
        const std::string client =
            "/conf/certs/client/" + std::string(Clients().astCliCert[id - 1].szFileName);
        EXPECT_EQ(diags[1], (Diag{31, 2, 4,
                                  "Failed to check cert revoke_state, iRet=" + Signed(0x9200002D) +
                                      ", RootCertPath=" + kWebCa + ", CliCertPath=" + client +
                                      ", OCSPUrl=" + responder.Url() + ".\n"}));
    }
    // https is refused before anybody is contacted.
    ClearDiagLog();
    EXPECT_EQ(LIB_SSL_CertRevokeCheck(6), 0x92000028u);
    EXPECT_EQ(ReadDiags(),
              Handling({"Parse OutBuffer=https://127.0.0.1:1/\n not have link_str:http://.\n"}));

    // The status is matched on the whole path: a revoked certificate at a
    // path too long for the expected text still fails.
    const std::string longPath = std::string(kWork) + "/" + std::string(100, 'd') + "/r.pem";
    fs::create_directories(fs::path(longPath).parent_path());
    WriteFile(longPath, ClientPem(0x0ABCDF, responder.Url()));
    EXPECT_EQ(LIB_SSL_CheckCertRevokeState(kWebCa, longPath.c_str(), responder.Url().c_str()),
              0x9200002Du);

    // A command that cannot run, and an id outside the list.
    SetFaults("BMC_GetCmdOutLineBuffer=1");
    ClearDiagLog();
    EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), 0x92000027u);
    EXPECT_EQ(ReadDiags(), Handling({"Failed to run SSLCmd=openssl x509 -in "
                                     "'/conf/certs/client/good.pem' -noout -ocsp_uri.\n"}));
    SetFaults("BMC_GetCmdOutAllBuffer=1");
    EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), 0x92000027u);
    unsetenv(BMCSIM_ENV_FAULTS);
    EXPECT_EQ(LIB_SSL_CertRevokeCheck(0), 0x92000019u);
    EXPECT_EQ(LIB_SSL_CertRevokeCheck(21), 0x92000019u);
}

TEST_F(OcspTest, HostileValuesRunNothingAndTheIssuerComesFromTheWebServer) {
    const char *payloads[] = {"$(touch /var/certs/mk)",     "`touch /var/certs/mk`",
                              ";touch /var/certs/mk;",      "|touch /var/certs/mk",
                              "&touch /var/certs/mk&",      "'$(touch /var/certs/mk)'",
                              "\"$(touch /var/certs/mk)\"", "\ntouch /var/certs/mk\n"};
    // A live responder answers at once (the payload is its URL's path).
    OcspResponder responder(kWork, rootPem_, {});
    uint32_t id = 0;
    for (const char *payload : payloads) {
        SCOPED_TRACE(payload);
        // In the certificate's OCSP address.
        ++id;
        PlaceClient(id, "h" + std::to_string(id) + ".pem", 0x100 + id, responder.Url() + payload);
        EXPECT_EQ(LIB_SSL_CertRevokeCheck(id), 0x9200002Du);
        // In the issuer path of the web server's configuration (one line).
        if (payload[0] != '\n') {
            SetCaLine(std::string("    ssl.ca-file = \"/x") + payload + "\"");
            EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), 0x9200002Du);
            SetCaLine("    ssl.ca-file = \"/conf/certs/client/ca.pem\"");
        }
        EXPECT_FALSE(fs::exists("/var/certs/mk"));
    }
    // Quoting can make a command line too long for its buffer: it is then
    // not run at all, never cut inside a quoted word.
    SetCaLine("    ssl.ca-file = \"/" + std::string(58, '\'') + "\"");
    ClearDiagLog();
    EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), 0x92000027u);
    EXPECT_EQ(ReadDiags().at(0).message.rfind(
                  "Failed to run SSLCmd=openssl ocsp -timeout 2 -issuer '/", 0),
              0u);
    EXPECT_FALSE(fs::exists("/var/certs/mk"));

    // The issuer from the web server's configuration.
    char out[64] = "untouched";
    LIB_SSL_GetConfCertPath("    ssl.ca-file = \"/conf/certs/root.pem\"\n", sizeof out, out);
    EXPECT_STREQ(out, "/conf/certs/root.pem");
    const std::string fits = "\"/" + std::string(59, 'p') + "\"\n"; // tail of 63
    LIB_SSL_GetConfCertPath(("x = " + fits).c_str(), sizeof out, out);
    EXPECT_EQ(std::string(out), "/" + std::string(59, 'p'));
    std::strcpy(out, "untouched");
    LIB_SSL_GetConfCertPath(("x = \"/" + std::string(60, 'p') + "\"\n").c_str(), sizeof out, out);
    LIB_SSL_GetConfCertPath("no quote\n", sizeof out, out);
    LIB_SSL_GetConfCertPath("x = \"/p\"", 0, out);
    EXPECT_STREQ(out, "untouched");
    LIB_SSL_GetConfCertPath("x = \"/open\n", sizeof out, out);
    EXPECT_STREQ(out, "/open\n");

    PlaceClient(1, "op.pem", 0x0ABCDE, "http://127.0.0.1:1/");
    SetCaLine("    # ssl.ca-file = \"/conf/certs/client/ca.pem\"");
    char path[64] = {};
    EXPECT_EQ(LIB_SSL_GetAuthRootCertPath(sizeof path, path), 0u);
    EXPECT_STREQ(path, kWebCa); // a commented-out setting counts
    SetCaLine("    ssl.verify = 1");
    std::strcpy(path, "untouched");
    EXPECT_EQ(LIB_SSL_GetAuthRootCertPath(sizeof path, path), 0u);
    EXPECT_STREQ(path, "untouched");
    ClearDiagLog();
    EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), 0x9200002Bu);
    EXPECT_EQ(ReadDiags(), Handling({"RootCert not found.\n"}));
    fs::remove(kWebConfig);
    EXPECT_EQ(LIB_SSL_GetAuthRootCertPath(sizeof path, path), 0x92000022u);
    EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), 0x92000022u);
}

// Record names that lead out of the client directory, to a hidden file,
// into a subdirectory or through a link (the owner never writes them).
// Each place holds a certificate the responder calls good, yet revocation
// and login refuse the record, deletion refuses every name that is not
// plain, and the file stays.
TEST_F(OcspTest, RecordNamesStayInTheClientDirectory) {
    OcspResponder responder(kWork, rootPem_, {{'V', "0ABCDE"}});
    const std::string good = ClientPem(0x0ABCDE, responder.Url());
    AddOperator(true); // client 1 with serial 0ABCDE, bound to user 3
    PutBytes(SSL_AUTH_DB_KEY_REVOKE_CHECK, "\1", 1);
    const std::string dir = "/conf/certs/client/", outside = std::string(kWork) + "/out.pem";
    fs::create_directories(dir + "a");
    fs::create_symlink(outside, dir + "link.pem");
    const std::pair<std::string, std::string> cases[] = {
        // name, where the file lies
        {"op.pem", dir + "op.pem"}, // the plain name passes
        {"../x.pem", "/conf/certs/x.pem"},
        {".hidden.pem", dir + ".hidden.pem"},
        {"a/b.pem", dir + "a/b.pem"},
        {"x\x01.pem", dir + "x\x01.pem"},
        {"", ""},
        {"link.pem", outside}, // deleting it takes the link only
    };
    for (const auto &[fileName, file] : cases) {
        SCOPED_TRACE(fileName);
        if (!file.empty()) WriteFile(file, good);
        CliCertList list = Clients();
        std::snprintf(list.astCliCert[0].szFileName, 33, "%s", fileName.c_str());
        Put(SSL_AUTH_DB_KEY_CLIENT_LIST, list);
        const bool plain = fileName == "op.pem";
        EXPECT_EQ(LIB_SSL_CertRevokeCheck(1), plain ? 0u : 0x92000028u);
        char name[33] = {}, password[41] = {};
        EXPECT_EQ(
            LIB_SSL_GetNamePwdBySerial("0ABCDE", sizeof name, name, sizeof password, password),
            plain ? 0u : 0x18000E17u);
        if (plain) continue;
        OperateDesc desc{};
        EXPECT_EQ(LIB_SSL_DelClientCert(1, 1000, &desc), fileName == "link.pem" ? 0u : 0x1800060Fu);
        EXPECT_TRUE(file.empty() || fs::exists(file));
    }
    fs::remove("/conf/certs/x.pem");
}

} // namespace
} // namespace bmctest
