// A temporary certificate's fitness (purpose, signature algorithm, expiry),
// the validation chain of an uploaded pair (its order, each refusal with its
// code and reports, the size limits), the fetch of the uploaded files, the
// installation of a pair and the tunnel configuration rewrite.
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <ctime>

#include "lib_security_sslcert_ext.h"
#include "tests/support/controller.h"
#include "tests/support/example_request.h"

namespace bmctest {
namespace {

constexpr const char *kGenCert = "/var/certs/TmpCertGen.pem";
constexpr const char *kCert = "/var/certs/actualcert.pem";
constexpr const char *kKey = "/var/certs/actualprivkey.pem";
constexpr const char *kScratchConfig = "/conf/adviserd/tmp_stunnel.conf";

std::string Pem(void (*edit)(CertRecipe &)) {
    CertRecipe recipe;
    edit(recipe);
    return MakeCertPem(recipe);
}

// The PEM text followed by line feeds up to exactly the given size.
std::string PaddedTo(std::string pem, size_t size) {
    pem.resize(size, '\n');
    return pem;
}

class InstallTest : public ControllerTest {
  protected:
    static uint32_t Validate(const std::string &cert, const std::string &key) {
        WriteFile(kCert, cert);
        WriteFile(kKey, key);
        ClearDiagLog();
        return SECURITY_SSL_ValidateSSLCert();
    }
};

TEST_F(InstallTest, EachCheckRefusesWithItsOwnCodeAndReport) {
    const Diag valid{31, 3, 6, "Valid SSL certificate \n"};
    struct Case {
        const char *name;
        std::string pem;
        uint32_t result;
        std::vector<Diag> diags; // of the verification itself
    } cases[] = {
        // clang-format off
        {"not for servers", Pem([](CertRecipe &r) { r.extendedKeyUsage = "clientAuth"; }),
         0x98000001, {{31, 3, 2, "May not be a Webserver certificate \n"}}},
        {"expired", Pem([](CertRecipe &r) { r.notAfter = std::time(nullptr) - 1; }),
         0x98000004, {valid, {31, 3, 2, "The uploaded SSL Certificate is EXPIRED \n"}}},
        {"not yet valid passes", Pem([](CertRecipe &r) {
             r.notBefore = std::time(nullptr) + 86400;
             r.notAfter = std::time(nullptr) + 5; }), 0, {valid}},
        {"no certificate", "not a certificate\n", 0x98000002,
         {{31, 3, 2, "Error spawning x509 in order to get certificate info or invalid certfiicate on SSL.\n"},
          {31, 3, 2, "Failed in get Tmp Cert Type = 6.Func:[SECURITY_SSL_VerifyTmpCert].\n"}}},
        // clang-format on
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
            expected.push_back(
                {31, 3, 2,
                 "Failed to verify Gen TMP certificate. iRet=" + Signed(c.result) + ".\n"});
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
    EXPECT_EQ(ReadDiags(), Failures({"File /var/certs/TmpCertGen.pem is not exist!\n"}));
}

TEST_F(InstallTest, EachStepRefusesWithItsCodeAndReports) {
    const std::string cert = MakeCertPem({});
    const std::string key = KeyPem(KeyKind::Rsa2048);
    CertRecipe md5;
    md5.digest = "MD5";
    const Diag valid{31, 3, 6, "Valid SSL certificate \n"};
    const auto sizeFailed = [](uint32_t code) {
        return Diag{31, 3, 2, "SSL verify file size failed! iRet = " + Signed(code) + ".\n"};
    };
    struct Case {
        const char *name;
        std::string cert, key;
        uint32_t result;
        std::vector<Diag> diags;
    } cases[] = {
        // clang-format off
        {"8191 bytes each", PaddedTo(cert, 8191), PaddedTo(key, 8191), 0, {valid}},
        {"certificate of 8192 bytes", PaddedTo(cert, 8192), key, 0x98000005,
         {{31, 3, 2, "Cert /var/certs/actualcert.pem stat size exceeds!"}, sizeFailed(0x98000005)}},
        {"key of 8192 bytes", cert, PaddedTo(key, 8192), 0x98000005,
         {{31, 3, 2, "Privkey /var/certs/actualprivkey.pem stat size exceeds!"}, sizeFailed(0x98000005)}},
        {"pass-phrase key", cert, EncryptedKeyPem(KeyKind::Rsa2048, KeyEncryption::Pkcs8), 0x98000006,
         {{31, 3, 2, "The certificate is encrypted.  PEM pass phrase encrypted certificates are not "
                     "supported.  Please upload unencrypted certificates.\n"},
          {31, 3, 2, "SSL verify private key file encrypted status failed! iRet = " + Signed(0x98000006) + ".\n"}}},
        // Only the first line is scanned: the older form passes that step
        // and is refused when read, since no pass phrase is ever supplied.
        {"older pass-phrase key", cert, EncryptedKeyPem(KeyKind::Rsa2048, KeyEncryption::Legacy), 0x81000001,
         {valid, {31, 3, 4, "Failed to read private key."},
          {31, 3, 4, "Failed to verify cert and privatekey, iRet=" + Signed(0x81000001) + "."},
          {31, 3, 2, "Error in validating the CombinedTmpCert::" + Signed(0x81000001)}}},
        {"MD5", MakeCertPem(md5), key, 0x9800000A,
         {valid, {31, 3, 2, "Signature algorithm should not be md5."},
          {31, 3, 2, "Failed to verify Upload TMP certificate. iRet=" + Signed(0x9800000A) + ".\n"},
          {31, 3, 2, "Error in validating the SSL Certificate::" + Signed(0x9800000A)}}},
        // A pair that does not belong together reads fine and is refused
        // by the TLS context alone.
        {"key of another certificate", cert, KeyPem(KeyKind::Rsa1024), 0x98000007,
         {valid, {31, 3, 4, "SSL CTX use privateKey file failed!\n"}}},
        // clang-format on
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Validate(c.cert, c.key), c.result);
        EXPECT_EQ(ReadDiags(), c.diags);
    }
    // Validation never removes the files it checked.
    EXPECT_EQ(access("/var/certs/TmpCombinedCert.pem", F_OK), 0);
    EXPECT_EQ(access(kKey, F_OK), 0);
}

TEST_F(InstallTest, MissingAndEmptyFiles) {
    EXPECT_EQ(Validate(MakeCertPem({}), ""), 0x81000001u);
    const auto diags = ReadDiags();
    ASSERT_EQ(diags.size(), 2u);
    EXPECT_EQ(diags[0].message.rfind("Get privkey file size failed!Err:", 0), 0u);
    EXPECT_EQ(diags[1].message,
              "SSL verify file size failed! iRet = " + Signed(0x81000001) + ".\n");

    RemoveFile(kCert);
    RemoveFile(kKey);
    ClearDiagLog();
    EXPECT_EQ(SECURITY_SSL_ValidateSSLCert(), 0x98000009u);
    EXPECT_EQ(
        ReadDiags(),
        Failures({"File /var/certs/actualcert.pem is not exist!\n",
                  "SSL verify file exist failed! iRet = " + Signed(0x98000009) + ".\n"}));
}

TEST_F(InstallTest, FetchStopsAtTheFirstFailedTransfer) {
    WriteFile("/var/certs/upload.crt", MakeCertPem({}));
    UploadParam request{};
    std::strcpy(request.CertSrcPath, "/var/certs/upload.crt");
    std::strcpy(request.PrivkeySrcPath, "/var/certs/missing.key");
    EXPECT_EQ(SECURITY_SSL_GetUploadCert(&request), 0x81000001u);
    EXPECT_EQ(ReadFile(kCert), ReadFile("/var/certs/upload.crt"));
    EXPECT_EQ(
        ReadDiags(),
        (std::vector<Diag>{{31, 3, 4,
                            "Failed to download Server Privkey. FileStr:/var/certs/missing.key, "
                            "FileDst:/var/certs/actualprivkey.pem, iRet=" +
                                Signed(0x81000001) + "."}}));
}

TEST_F(InstallTest, FailedStepsStopBeforeTheKeyIsInstalled) {
    struct Case {
        const char *name;
        bool key;
        const char *faults;
        uint32_t level;
        std::string report; // the start of the only report
    } cases[] = {
        // clang-format off
        {"no key", false, "", 2, "Tmp Privkey File /var/certs/actualprivkey.pem is not exist!\n"},
        {"certificate copy fails", true, "BMC_CopyFile=0x81000001", 4,
         "Copy certificate file from /var/certs/actualcert.pem to /conf/certs/server/user/actualcert.pem "
         "failed! strerrno:"},
        {"merge command fails", true, "BMC_System=0x81000001", 4,
         "Merging cert file and privkey failed! strerrno:none, the command reports only its status\n"},
        // clang-format on
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        WriteFile(kCert, MakeCertPem({}));
        if (c.key) WriteFile(kKey, KeyPem(KeyKind::Rsa2048));
        SetFaults(c.faults);
        EXPECT_EQ(SECURITY_SSL_UpdateSSLCert(kCert, kKey), 0x81000001u);
        const auto diags = ReadDiags();
        ASSERT_EQ(diags.size(), 1u);
        EXPECT_EQ(diags[0].level, c.level);
        EXPECT_EQ(diags[0].message.substr(0, c.report.size()), c.report);
        EXPECT_NE(access("/conf/certs/server/user/actualprivkey.pem", F_OK), 0);
        EXPECT_NE(access(kCombinedFile, F_OK), 0);
    }
}

// A temporary key that cannot be made private stops the installation
// before anything installed changes.
TEST_F(InstallTest, KeyThatCannotBeMadePrivateChangesNothing) {
    WriteFile(kCert, MakeCertPem({}));
    EXPECT_EQ(SECURITY_SSL_UpdateSSLCert(kCert, "/proc/self/status"), 0x81000001u);
    EXPECT_EQ(ReadDiags(), (std::vector<Diag>{{31, 3, 4,
                                               "Restrict key file /proc/self/status to its owner "
                                               "failed! strerrno:Operation not permitted\n"}}));
    EXPECT_NE(access("/conf/certs/server/user/actualcert.pem", F_OK), 0);
}

// The installation lock's file replaced by a link: no entry runs unlocked,
// each fails with its code and installs nothing.
TEST_F(InstallTest, LockThatCannotBeTakenStartsNothing) {
    const SSLCertRequest request = ExampleRequest();
    char pem[SSLCERT_EXT_CSR_PEM_SIZE];
    OperateDesc desc;
    struct Case {
        const char *name;
        uint32_t (*call)(const SSLCertRequest &, char *, OperateDesc &);
        uint32_t code;
    } cases[] = {
        {"install", [](const SSLCertRequest &, char *, OperateDesc &) {
             return SECURITY_SSL_UpdateSSLCert(kCert, kKey); }, 0x81000001u},
        {"generate and restart", [](const SSLCertRequest &, char *, OperateDesc &d) {
             SSLCertGenParam gen = GenRequest(2048);
             return LIB_SECURITY_GenAndRestartService(&gen, &d); }, SSLCERT_MGMT_GEN_FAILED},
        {"self-signed", [](const SSLCertRequest &r, char *, OperateDesc &d) {
             return LIB_SECURITY_SSL_GenSelfSignedAndRestart(&r, &d); }, SSLCERT_EXT_ERR_LOCK},
        {"signing request", [](const SSLCertRequest &r, char *p, OperateDesc &) {
             return LIB_SECURITY_SSL_GenerateCSR(&r, p, SSLCERT_EXT_CSR_PEM_SIZE); },
         SSLCERT_EXT_ERR_LOCK},
        {"recovery", [](const SSLCertRequest &, char *, OperateDesc &) {
             return LIB_SECURITY_SSL_CompleteInstallation(); }, SSLCERT_EXT_ERR_LOCK},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        WriteFile(kCert, MakeCertPem({}));
        WriteFile(kKey, KeyPem(KeyKind::Rsa2048));
        const std::string lock = std::string(BMCSIM_LOCK_DIR) + "/sslcert_install.lock";
        (void)mkdir(BMCSIM_LOCK_DIR, 0755);
        (void)unlink(lock.c_str());
        ASSERT_EQ(symlink("/tmp/elsewhere.lock", lock.c_str()), 0);
        const std::unique_ptr<const char, int (*)(const char *)> relink(lock.c_str(), unlink);
        const std::string before = ReadFile(kTunnelConfig);
        EXPECT_EQ(c.call(request, pem, desc), c.code);
        EXPECT_EQ(ReadFile(kTunnelConfig), before);
        EXPECT_NE(access("/conf/certs/server/user/actualcert.pem", F_OK), 0);
        EXPECT_NE(access("/conf/certs/server/pending/csr.pem", F_OK), 0);
        EXPECT_EQ(ReadDiags().at(0).message,
                  "Take the installation lock sslcert_install.lock failed!\n");
    }
}

// The rewrite rule itself (which pieces are replaced, the 255-character
// pieces) is the tunnel-rewrite fuzz target's model.
// A path that is not one absolute line of its own never reaches the
// configuration, which stays byte for byte; one that just fits is whole.
TEST_F(InstallTest, TunnelRewriteRefusesAPathThatIsNotOneAbsoluteLine) {
    const std::string config = "[svc]\ncert = /c\nkey = /k\n";
    const std::string longest = "/" + std::string(247, 'k'); // "key = ", it, "\n": 255
    const std::pair<std::string, std::string> refused[] = {
        {"/conf/x.pem\nexec = /bin/sh\nexecArgs = sh -c id", "/k"},
        {"/c", "/k.pem\r"}, {"x.pem", "/k"}, {"/c", longest + "k"}};
    for (const auto &[cert, key] : refused) {
        WriteFile(kTunnelConfig, config);
        EXPECT_EQ(LIB_SECURITY_SSL_ModStunnelConfFile(cert.c_str(), key.c_str()), 0x81000001u);
        EXPECT_EQ(ReadFile(kTunnelConfig), config) << cert << key;
    }
    EXPECT_EQ(ReadDiags().at(0), (Diag{31, 3, 2, "Tunnel configuration path for cert refused: it "
                                                 "must be absolute, of printable characters and "
                                                 "fit its line.\n"}));
    EXPECT_EQ(LIB_SECURITY_SSL_ModStunnelConfFile("/c", longest.c_str()), 0u);
    EXPECT_EQ(ReadFile(kTunnelConfig), "[svc]\ncert = /c\nkey = " + longest + "\n");
}

TEST_F(InstallTest, TunnelRewriteKeepsTheModeAndReportsAMissingConfiguration) {
    ASSERT_EQ(chmod(kTunnelConfig, 0640), 0);
    EXPECT_EQ(LIB_SECURITY_SSL_ModStunnelConfFile("/new/cert.pem", "/new/key.pem"), 0u);
    EXPECT_NE(access(kScratchConfig, F_OK), 0);
    EXPECT_EQ(ModeOf(kTunnelConfig), 0640u);

    RemoveFile(kTunnelConfig);
    ClearDiagLog();
    EXPECT_EQ(LIB_SECURITY_SSL_ModStunnelConfFile("/c", "/k"), 0x81000001u);
    EXPECT_EQ(ReadDiags(),
              (std::vector<Diag>{{31, 3, 4, "/conf/adviserd/stunnel.conf open failed.\n"}}));
    // The lock was given back: a second rewrite does not wait forever.
    EXPECT_EQ(LIB_SECURITY_SSL_ModStunnelConfFile("/c", "/k"), 0x81000001u);
}

} // namespace
} // namespace bmctest
