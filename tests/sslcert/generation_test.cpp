// Generation of a server certificate: the request check (each rule at its
// boundary, their order, the e-mail dialect of the platform's pattern
// engine), the key and self-signed certificate made with the openssl tool
// and installed (the request configuration, the exact command lines, which
// files exist after each failure, key modes whatever the umask, the
// refresh), and the management entry that restarts the services. A refused
// request is held by the hostile-request test.

#include <sys/stat.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <thread>

#include "tests/support/controller.h"

namespace bmctest {
namespace {

constexpr const char *kRequestConfig = "/var/certs/sslconf";
constexpr const char *kGenCert = "/var/certs/TmpCertGen.pem";
constexpr const char *kGenKey = "/var/certs/TmpPrivkeyGen.pem";
constexpr const char *kUserCert = "/conf/certs/server/user/actualcert.pem";
constexpr const char *kUserKey = "/conf/certs/server/user/actualprivkey.pem";

template <size_t N> void Set(char (&field)[N], const char *text) {
    (void)BMC_Strlcpy(field, text, N);
}

class GenerationTest : public ControllerTest {};

TEST_F(GenerationTest, EachRuleAtItsBoundary) {
    using Edit = std::function<void(SSLCertGenParam &)>;
    struct Case {
        const char *name;
        Edit edit;
        bool passes;
    } cases[] = {
        {"1024 bits", [](auto &r) { r.uiKeyLength = 1024; }, true},
        {"1023 bits", [](auto &r) { r.uiKeyLength = 1023; }, false},
        {"4096 bits", [](auto &r) { r.uiKeyLength = 4096; }, false},
        {"1 day", [](auto &r) { r.uiValidDays = 1; }, true},
        {"5475 days", [](auto &r) { r.uiValidDays = 5475; }, true},
        {"0 days", [](auto &r) { r.uiValidDays = 0; }, false},
        {"5476 days", [](auto &r) { r.uiValidDays = 5476; }, false},
        {"no e-mail", [](auto &r) { Set(r.szEmailAddress, ""); }, false},
        {"e-mail without domain", [](auto &r) { Set(r.szEmailAddress, "a@b"); }, false},
        {"e-mail with double dot", [](auto &r) { Set(r.szEmailAddress, "a..b@c.de"); }, false},
        // Refused at once, not after a backtracking search of every split.
        {"long e-mail without @",
         [](auto &r) { Set(r.szEmailAddress, (std::string(40, 'a') + "!").c_str()); }, false},
        {"hyphen and underscore in a label",
         [](auto &r) { Set(r.szEmailAddress, "a_b@x-y.z_w.de"); }, true},
        {"lower-case country", [](auto &r) { Set(r.szCountryCode, "us"); }, true},
        {"country with a digit", [](auto &r) { Set(r.szCountryCode, "D1"); }, false},
        {"empty country", [](auto &r) { Set(r.szCountryCode, ""); }, false},
        {"digits-only name", [](auto &r) { Set(r.szCommonName, "12345"); }, false},
        {"blank name", [](auto &r) { Set(r.szCommonName, "   "); }, false},
        {"comma in the common name", [](auto &r) { Set(r.szCommonName, "a,b"); }, false},
        {"spaces, dot, underscore", [](auto &r) { Set(r.szCommonName, " A.B_c node 7 "); }, true},
        {"digits with a letter", [](auto &r) { Set(r.szLocalityName, "2nd floor"); }, true},
        {"tab between letters", [](auto &r) { Set(r.szStateName, "a\tb"); }, false},
        {"empty organisation", [](auto &r) { Set(r.szOrganisation, ""); }, false},
    };
    for (const Case &c : cases) {
        SSLCertGenParam request = GenRequest(2048);
        c.edit(request);
        EXPECT_EQ(SECURITY_SSL_GenSSLCert_Check(&request), c.passes ? 0u : 0x81000001u) << c.name;
    }
}

TEST_F(GenerationTest, FirstFailingRuleAloneIsReported) {
    // Four rules broken; mended one by one, each comes up alone in turn.
    SSLCertGenParam request = GenRequest(2048);
    request.uiKeyLength = 512;
    request.uiValidDays = 0;
    Set(request.szOrganisation, "Works; Inc");
    Set(request.szStateName, "");
    EXPECT_EQ(SECURITY_SSL_GenSSLCert_Check(&request), 0x81000001u);
    request.uiKeyLength = 2048;
    EXPECT_EQ(SECURITY_SSL_GenSSLCert_Check(&request), 0x81000001u);
    request.uiValidDays = 365;
    EXPECT_EQ(SECURITY_SSL_GenSSLCert_Check(&request), 0x81000001u);
    EXPECT_EQ(
        ReadDiags(),
        Failures({"SSL cert Gen Keylength verify failed! Keylength = 512.\n",
                  "SSL cert Gen ValidDays verify failed! ValidDays = 0.\n",
                  "SSL cert Gen Organisation verify failed! Organisation = Works; Inc.\n"}));
}

TEST_F(GenerationTest, GeneratesAndInstallsWithPrivateKeysWhateverTheUmask) {
    for (const mode_t mask : {mode_t{022}, mode_t{0}}) {
        SCOPED_TRACE("umask " + std::to_string(mask));
        const mode_t saved = umask(mask);
        RemoveFile(BMCSIM_COMMANDS_LOG);
        const SSLCertGenParam request = GenRequest(1024);
        const uint32_t result = LIB_SECURITY_GenCert(&request);
        umask(saved);
        ASSERT_EQ(result, 0u) << testing::PrintToString(ReadDiags());

        EXPECT_EQ(ReadFile(kRequestConfig), "[req]\n"
                                            "distinguished_name = req_distinguished_name\n"
                                            "prompt = no\n"
                                            "[ req_distinguished_name ]\n"
                                            " C = DE\n"
                                            " ST = North\n"
                                            " L = Old Town\n"
                                            " O = Test Works, Inc.\n"
                                            "OU = Platform\n"
                                            "CN = bmc-07.lab\n"
                                            "emailAddress = ops@bmc-07.example.org\n");
        const auto commands = ReadLines(BMCSIM_COMMANDS_LOG);
        ASSERT_GE(commands.size(), 2u);
        EXPECT_EQ(commands[0], "openssl req -newkey rsa:1024 -keyout /var/certs/TmpPrivkeyGen.pem "
                               "-out /var/certs/cert_tmp.csr -config /var/certs/sslconf -nodes");
        EXPECT_EQ(commands[1],
                  "openssl x509 -req -days 365 -in /var/certs/cert_tmp.csr -signkey "
                  "/var/certs/TmpPrivkeyGen.pem -sha256 -extfile "
                  "/conf/certs/server/cert_v3_extfile.ext -out /var/certs/TmpCertGen.pem");

        EXPECT_EQ(ModeOf(kGenKey), 0600u);
        EXPECT_EQ(ModeOf(kUserKey), 0600u);
        EXPECT_EQ(ModeOf(kCombinedFile), 0600u);
        EXPECT_EQ(ReadFile(kUserCert), ReadFile(kGenCert));
        EXPECT_EQ(ReadFile(kUserKey), ReadFile(kGenKey));
        EXPECT_EQ(ReadFile(kCombinedFile), ReadFile(kUserCert) + ReadFile(kUserKey));
        // The tunnel configuration and the refreshed record are held by the
        // end-to-end and crash tests.
        EXPECT_EQ(LIB_SECURITY_GetCertType(), SSL_CERT_TYPE_USER);
    }
}

// Called on its own, the configuration writer reads no further than each
// field and lets no line break of a field start a line of its own. Without
// the extension file a generation stops once the configuration is written.
TEST_F(GenerationTest, RequestConfigurationKeepsEachFieldOnItsLine) {
    SSLCertGenParam request = GenRequest(2048);
    std::memset(request.szEmailAddress, 'e', sizeof request.szEmailAddress);
    EXPECT_EQ(SECURITY_SSL_ConfFile_Check(&request), 0u);
    const std::string email(sizeof request.szEmailAddress - 1, 'e');
    EXPECT_NE(ReadFile(kRequestConfig).find("\nemailAddress = " + email + "\n"), std::string::npos);

    std::strcpy(request.szCommonName, "bmc\nCN = another.host");
    RemoveFile(kRequestConfig);
    ClearDiagLog();
    EXPECT_EQ(SECURITY_SSL_ConfFile_Check(&request), 0x81000001u);
    EXPECT_FALSE(Exists(kRequestConfig));
    EXPECT_EQ(ReadDiags(), Failures({"SSL request conf field CN holds a line break!\n"}));

    RemoveFile(kExtensionFile);
    request = GenRequest(2048);
    EXPECT_EQ(SECURITY_SSL_ConfFile_Check(&request), 0x81000017u);
    RemoveFile(kRequestConfig);
    ClearDiagLog();
    const uint64_t spawns = BMCSIM_SpawnCount();
    EXPECT_EQ(LIB_SECURITY_GenCert(&request), 0x81000001u);
    EXPECT_EQ(BMCSIM_SpawnCount(), spawns);
    EXPECT_TRUE(Exists(kRequestConfig));
    EXPECT_FALSE(Exists(kGenKey));
    EXPECT_EQ(
        ReadDiags(),
        Failures({"SSL cert extension file /conf/certs/server/cert_v3_extfile.ext is not exist!\n",
                  "Gen cert conf file check failed! iRet = " + Signed(0x81000017) + ".\n"}));
}

TEST_F(GenerationTest, OnlyTheFailureCodeOfACommandCountsAsFailure) {
    const SSLCertGenParam request = GenRequest(1024);
    SetFaults("BMC_System=0x81000001");
    EXPECT_EQ(LIB_SECURITY_GenCert(&request), 0x81000001u);
    EXPECT_EQ(ReadDiags().back(), (Diag{31, 3, 2, "Error creating privkey key and csr!\n"}));

    // Any other answer lets the sequence go on, here to an installation
    // that finds no temporary certificate and copies nothing.
    ClearDiagLog();
    SetFaults("BMC_System=5");
    EXPECT_EQ(LIB_SECURITY_GenCert(&request), 0x81000001u);
    EXPECT_EQ(ReadDiags(),
              Failures({"Tmp Cert File /var/certs/TmpCertGen.pem is not exist!\n",
                        "SSL cert gen update failed! iRet=" + Signed(0x81000001) + ".\n"}));
}

// A success restarts both services: the end-to-end and tool tests.
// The request check's own reports are held by the request tests.
TEST_F(GenerationTest, RefusedRequestIsMappedAndBothTemporariesAreStillRemoved) {
    const SSLCertGenParam request = GenRequest(512);
    OperateDesc desc{};
    EXPECT_EQ(LIB_SECURITY_GenAndRestartService(&request, &desc), 0x1800041Cu);
    EXPECT_STREQ(desc.szOperateDesc, "Failed to generate SSL certificate.");
    EXPECT_EQ(desc.ucLogClass, 37);
    EXPECT_EQ(ServicesLog(), "");
    const auto diags = ReadDiags();
    ASSERT_EQ(diags.size(), 5u);
    EXPECT_EQ(
        std::vector<Diag>(diags.begin() + 2, diags.end()),
        (std::vector<Diag>{
            {31, 3, 2, "Generate Cert:gen cert failed! iRet=-1744830456\n"},
            {31, 3, 6, "File /var/certs/TmpCertGen.pem unlink failed. No such file or directory\n"},
            {31, 3, 6,
             "File /var/certs/TmpPrivkeyGen.pem unlink failed. No such file or directory\n"},
        }));
}

// A restart that fails with a plain status (0x1800001A) is the tool's tests'.
TEST_F(GenerationTest, FailedTunnelRestartKeepsTheNewCertificateAndSkipsTheWebServer) {
    const SSLCertGenParam request = GenRequest(1024);
    SetFaults("systemd_run=0x82000002");
    OperateDesc desc{};
    EXPECT_EQ(LIB_SECURITY_GenAndRestartService(&request, &desc), 0x1800081Bu);
    EXPECT_STREQ(desc.szOperateDesc, "Failed to generate SSL certificate.");
    EXPECT_EQ(LIB_SECURITY_GetCertType(), SSL_CERT_TYPE_USER);
    EXPECT_EQ(ReadDiags().at(0).message, "Generate Cert:Restart stunnel service failed! iRet=" +
                                              Signed(0x82000002) +
                                              ". ERR:none, the restart reports only its status.\n");
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    EXPECT_EQ(ServicesLog(), "");
}

} // namespace
} // namespace bmctest
