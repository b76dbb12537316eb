// Certificate requests: what a refused request reports and leaves, the
// signing requests and pending keys of the five key types, the checks of a
// CA's answer, its installation as a task, and self-signed certificates
// for a request's names.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <ctime>
#include <algorithm>
#include <functional>

#include <openssl/pem.h>
#include <openssl/x509v3.h>

#include "frame/frame.h"
#include "lib_security_sslcert_ext.h"
#include "platform/host/bmc_sim.h"
#include "tests/support/controller.h"
#include "tests/support/diag_log.h"
#include "tests/support/example_request.h"
#include "tests/support/lab_ca.h"
#include "tests/support/test_certs.h"

namespace bmctest {
namespace {

constexpr const char *kPending = kPendingRequest;
constexpr const char *kDns = kExampleHost;

std::string Generate(const SSLCertRequest &request, uint32_t expected = 0) {
    static char pem[SSLCERT_EXT_CSR_PEM_SIZE];
    EXPECT_EQ(LIB_SECURITY_SSL_GenerateCSR(&request, pem, sizeof pem), expected);
    return pem;
}

int DigestOf(int signatureNid) {
    int digest = 0, key = 0;
    OBJ_find_sigid_algs(signatureNid, &digest, &key);
    return digest;
}

class CertRequestTest : public ControllerTest {
  protected:
    void SetUp() override {
        ControllerTest::SetUp();
        for (const char *log : {kPending, BMCSIM_OPERATE_LOG, BMCSIM_TASKS_LOG}) RemoveFile(log);
    }
};

TEST_F(CertRequestTest, RefusedRequestsNameTheFieldAndMakeNothing) {
    const std::string names = "Certificate request astAltNames[1] verify failed! Type = ";
    const std::string notHost = names + "1, not a host name.\n";
    const std::string longest = std::string(63, 'a') + '.' + std::string(63, 'b') + '.' +
                                std::string(63, 'c') + '.' + std::string(61, 'd');
    struct Case {
        const char *name;
        std::function<void(SSLCertRequest &)> change;
        uint32_t code;
        std::string report;
        uint32_t field = SSLCERT_EXT_FIELD_ALT_NAME + 1;
    };
    auto name = [](uint32_t type, std::string text) {
        return [=](SSLCertRequest &r) {
            r.astAltNames[1].uiType = type, std::strcpy(r.astAltNames[1].szName, text.c_str());
        };
    };
    auto key = [](uint32_t algorithm, uint32_t bits, uint32_t curve) {
        return [=](SSLCertRequest &r) {
            r.uiKeyAlgorithm = algorithm, r.uiKeyBitLength = bits, r.uiKeyCurve = curve;
        };
    };
    const Case cases[] = {
        {"subject", [](SSLCertRequest &r) { std::strcpy(r.szCommonName, "a+b"); },
         SSLCERT_EXT_ERR_BAD_SUBJECT, "SSL cert Gen Common Name verify failed! CommonName = a+b.\n",
         SSLCERT_EXT_FIELD_COMMON_NAME},
        {"17 names", [](SSLCertRequest &r) { r.uiAltNameCount = 17; }, SSLCERT_EXT_ERR_BAD_ALT_NAME,
         "Certificate request uiAltNameCount verify failed! Count = 17, at most 16.\n",
         SSLCERT_EXT_FIELD_ALT_NAME_COUNT},
        {"shell", name(1, "a;reboot"), SSLCERT_EXT_ERR_BAD_ALT_NAME, notHost},
        {"label of 64", name(1, std::string(64, 'a') + ".org"), SSLCERT_EXT_ERR_BAD_ALT_NAME,
         notHost},
        {"254 characters", name(1, longest + "d"), SSLCERT_EXT_ERR_BAD_ALT_NAME, notHost},
        {"unterminated", [](SSLCertRequest &r) { std::memset(r.astAltNames[1].szName, 'a', 256); },
         SSLCERT_EXT_ERR_BAD_ALT_NAME, names + "2, it fills its field without a terminator.\n"},
        {"ipv6", name(2, "2001:db8::g"), SSLCERT_EXT_ERR_BAD_ALT_NAME,
         names + "2, not an IPv4 or IPv6 address.\n"},
        {"type", name(3, "192.0.2.7"), SSLCERT_EXT_ERR_BAD_ALT_NAME, names + "3, unknown type.\n"},
        {"rsa 1024", key(1, 1024, 0), SSLCERT_EXT_ERR_BAD_KEY_TYPE,
         "Certificate request key verify failed! Algorithm = 1, BitLength = 1024, Curve = 0.\n",
         SSLCERT_EXT_FIELD_KEY_TYPE},
        {"rsa with curve", key(1, 2048, 1), SSLCERT_EXT_ERR_BAD_KEY_TYPE,
         "Certificate request key verify failed! Algorithm = 1, BitLength = 2048, Curve = 1.\n",
         SSLCERT_EXT_FIELD_KEY_TYPE},
        {"p384 of 256", key(2, 256, 2), SSLCERT_EXT_ERR_BAD_KEY_TYPE,
         "Certificate request key verify failed! Algorithm = 2, BitLength = 256, Curve = 2.\n",
         SSLCERT_EXT_FIELD_KEY_TYPE},
        {"dsa", key(3, 2048, 0), SSLCERT_EXT_ERR_BAD_KEY_TYPE,
         "Certificate request key verify failed! Algorithm = 3, BitLength = 2048, Curve = 0.\n",
         SSLCERT_EXT_FIELD_KEY_TYPE},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        ClearDiagLog();
        SSLCertRequest request = ExampleRequest();
        c.change(request);
        char pem[16] = "untouched";
        EXPECT_EQ(LIB_SECURITY_SSL_GenerateCSR(&request, pem, sizeof pem), c.code);
        EXPECT_EQ(ReadDiags(), (std::vector<Diag>{{31, 3, 2, c.report}}));
        EXPECT_NE(access(kPending, F_OK), 0);
        OperateDesc desc{};
        EXPECT_EQ(LIB_SECURITY_SSL_GenSelfSignedAndRestart(&request, &desc), c.code);
        EXPECT_STREQ(desc.szOperateDesc, "Failed to generate SSL certificate.");
        uint32_t field = 0;
        const uint32_t code = LIB_SECURITY_SSL_CheckCertRequestField(&request, 1, &field);
        EXPECT_EQ((std::vector<uint32_t>{code, field}), (std::vector<uint32_t>{c.code, c.field}));
    }
    EXPECT_EQ(LIB_SECURITY_GetCertType(), SSL_CERT_TYPE_DEFAULT);
    EXPECT_EQ(ServicesLog(), "");
    // The longest host name and a wildcard pass.
    SSLCertRequest request = ExampleRequest();
    std::strcpy(request.astAltNames[0].szName, longest.c_str());
    std::strcpy(request.astAltNames[2].szName, "*.Example.ORG");
    request.astAltNames[2].uiType = SSLCERT_EXT_ALT_NAME_DNS;
    Generate(request);
}

// The field a check names is the first its rules refuse, in the check's
// order (the e-mail address before the names); the days only for a
// self-signed certificate.
TEST_F(CertRequestTest, TheFieldCheckNamesTheFirstRefusedField) {
    const struct {
        const char *name;
        void (*change)(SSLCertRequest &);
        uint8_t selfSigned;
        uint32_t field;
    } rows[] = {
        {"organisation", [](SSLCertRequest &r) { std::strcpy(r.szOrganisation, "a+b"); }, 0,
         SSLCERT_EXT_FIELD_ORGANISATION},
        {"unit", [](SSLCertRequest &r) { std::strcpy(r.szOrganisationUnit, " "); }, 0,
         SSLCERT_EXT_FIELD_UNIT},
        {"locality", [](SSLCertRequest &r) { std::strcpy(r.szLocalityName, "12"); }, 0,
         SSLCERT_EXT_FIELD_LOCALITY},
        {"state", [](SSLCertRequest &r) { std::memset(r.szStateName, 'a', 129); }, 0,
         SSLCERT_EXT_FIELD_STATE},
        {"country", [](SSLCertRequest &r) { std::strcpy(r.szCountryCode, "D1"); }, 0,
         SSLCERT_EXT_FIELD_COUNTRY},
        {"e-mail before the common name",
         [](SSLCertRequest &r) { std::strcpy(r.szEmailAddress, "ops"), r.szCommonName[0] = 0; }, 0,
         SSLCERT_EXT_FIELD_EMAIL},
        {"days of a self-signed", [](SSLCertRequest &r) { r.uiValidDays = 0; }, 1,
         SSLCERT_EXT_FIELD_VALID_DAYS},
        {"days of a signing request", [](SSLCertRequest &r) { r.uiValidDays = 0; }, 0,
         SSLCERT_EXT_FIELD_NONE},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        SSLCertRequest request = ExampleRequest();
        row.change(request);
        uint32_t field = 99;
        (void)LIB_SECURITY_SSL_CheckCertRequestField(&request, row.selfSigned, &field);
        EXPECT_EQ(field, row.field);
    }
    // The published request's key length comes first of all.
    SSLCertGenParam published{};
    published.uiKeyLength = 4096;
    uint32_t field = 0;
    EXPECT_EQ(
        (std::vector<uint32_t>{LIB_SECURITY_SSL_CheckGenParamField(&published, &field), field}),
        (std::vector<uint32_t>{SSLCERT_ERR_GENERAL, SSLCERT_EXT_FIELD_KEY_TYPE}));
}

TEST_F(CertRequestTest, EachKeyTypeGivesASignedRequestAndAPrivatePendingKey) {
    struct Case {
        uint32_t algorithm, bits, curve;
        int type, keyBits, digest;
    };
    const Case cases[] = {
        {1, 2048, 0, EVP_PKEY_RSA, 2048, NID_sha256}, {1, 3072, 0, EVP_PKEY_RSA, 3072, NID_sha256},
        {1, 4096, 0, EVP_PKEY_RSA, 4096, NID_sha256}, {2, 0, 1, EVP_PKEY_EC, 256, NID_sha256},
        {2, 384, 2, EVP_PKEY_EC, 384, NID_sha384},
    };
    const mode_t umask_before = umask(0);
    for (const Case &c : cases) {
        SCOPED_TRACE(c.keyBits);
        const SSLCertRequest request = ExampleRequest(c.algorithm, c.bits, c.curve);
        const std::string pem = Generate(request);
        const auto csr = ReadPem(pem, PEM_read_bio_X509_REQ);
        ASSERT_NE(csr, nullptr);
        EVP_PKEY *key = X509_REQ_get0_pubkey(csr.get());
        EXPECT_EQ(X509_REQ_verify(csr.get(), key), 1);
        EXPECT_EQ((std::vector<int>{EVP_PKEY_base_id(key), EVP_PKEY_bits(key),
                                    DigestOf(X509_REQ_get_signature_nid(csr.get()))}),
                  (std::vector<int>{c.type, c.keyBits, c.digest}));

        EXPECT_EQ(ModeOf(kPending), 0600u);
        SSLCertRequest pending{};
        char again[SSLCERT_EXT_CSR_PEM_SIZE];
        ASSERT_EQ(LIB_SECURITY_SSL_GetPendingCSR(&pending, again, sizeof again), 0u);
        EXPECT_EQ(again, pem);
        SSLCertRequest expected = request;
        expected.uiValidDays = 0;
        expected.uiKeyBitLength = static_cast<uint32_t>(c.keyBits);
        EXPECT_EQ(std::memcmp(&pending, &expected, sizeof pending), 0);
    }
    umask(umask_before);
}

// Each new request of the key-type test replaces the pending one; one that
// does not fit its buffer does not.
TEST_F(CertRequestTest, OnlyAWholeNewRequestReplacesThePendingOne) {
    SSLCertRequest pending{};
    pending.uiKeyAlgorithm = 7;
    EXPECT_EQ(LIB_SECURITY_SSL_GetPendingCSR(&pending, nullptr, 0), SSLCERT_EXT_ERR_NO_PENDING_KEY);
    EXPECT_EQ(pending.uiKeyAlgorithm, 0u);

    const std::string first = Generate(ExampleRequest());
    char small[64];
    ClearDiagLog();
    const SSLCertRequest again = ExampleRequest();
    EXPECT_EQ(LIB_SECURITY_SSL_GenerateCSR(&again, small, sizeof small),
              SSLCERT_EXT_ERR_BUFFER_SMALL);
    EXPECT_EQ(ReadDiags().at(0).message.rfind("The signing request (", 0), 0u);
    char pem[SSLCERT_EXT_CSR_PEM_SIZE];
    ASSERT_EQ(LIB_SECURITY_SSL_GetPendingCSR(&pending, pem, sizeof pem), 0u);
    EXPECT_EQ(pem, first);
    EXPECT_EQ(LIB_SECURITY_SSL_GetPendingCSR(&pending, small, sizeof small),
              SSLCERT_EXT_ERR_BUFFER_SMALL);
}

TEST_F(CertRequestTest, EachCheckOfTheAnswerRefusesWithItsOwnCode) {
    Generate(ExampleRequest());
    const LabCa lab;
    const std::string leaf = MakeCertPem(lab.Leaf());
    auto changed = [&](std::function<void(CertRecipe &)> change) { return Changed(lab.Leaf(), change); };
    std::string nine;
    for (int i = 0; i < 9; ++i) nine += leaf;
    const std::string cert = "Signed certificate verify failed! Certificate ";
    const struct {
        const char *name;
        std::string pem;
        uint32_t code;
        std::string report;
    } cases[] = {
        {"leaf and chain", leaf + lab.intermediate, 0, ""},
        {"leaf alone", leaf, 0, ""},
        {"wrong order", lab.intermediate + leaf, SSLCERT_EXT_ERR_CHAIN_ORDER,
         cert + "1: not the issuer of the one before it.\n"},
        {"issuer not a CA", leaf + lab.plainIntermediate, SSLCERT_EXT_ERR_CHAIN_NOT_CA,
         cert + "1: not a CA.\n"},
        {"issuer with keyCertSign alone",
         leaf + LabCa::IntermediateWith([](CertRecipe &r) { r.ca = false, r.keyUsage = kKuKeyCertSign; }),
         SSLCERT_EXT_ERR_CHAIN_NOT_CA, cert + "1: not a CA.\n"},
        {"expired issuer",
         leaf + LabCa::IntermediateWith([](CertRecipe &r) { r.notAfter = std::time(nullptr) - 60; }),
         SSLCERT_EXT_ERR_CHAIN_INVALID, cert + "1: a CA that is not valid now.\n"},
        {"sha-1 issuer", leaf + LabCa::IntermediateWith([](CertRecipe &r) { r.digest = "SHA1"; }),
         SSLCERT_EXT_ERR_CHAIN_INVALID, cert + "1: a CA signed with MD5 or SHA-1.\n"},
        {"sha-1 root", leaf + lab.intermediate + [] {
             CertRecipe root = LabCa::Root("Lab Root", KeyKind::Rsa2048);
             root.digest = "SHA1";
             return MakeCertPem(root);
         }(), 0, ""},
        {"pathlen 0 exceeded",
         leaf + LabCa::IntermediateWith([](CertRecipe &r) {
             r.issuer = NameEntries{{"CN", "Lab Policy"}}, r.signer = KeyKind::Rsa1024;
             r.pathLength.reset();
         }) + LabCa::IntermediateWith([](CertRecipe &r) {
             r.subject = {{"CN", "Lab Policy"}}, r.key = KeyKind::Rsa1024;
         }),
         SSLCERT_EXT_ERR_CHAIN_INVALID, cert + "2: a CA whose path length is exceeded.\n"},
        {"a requested name dropped",
         changed([](CertRecipe &r) { r.subjectAltName = "DNS:bmc-07.example.org,IP:192.0.2.7"; }),
         SSLCERT_EXT_ERR_NAME_MISSING,
         cert + "0: it lacks the requested name IP Address:2001:DB8:0:0:0:0:0:7.\n"},
        {"other key", changed([](CertRecipe &r) { r.keyPem.clear(); }),
         SSLCERT_EXT_ERR_KEY_MISMATCH, cert + "0: its key is not the pending key.\n"},
        {"client only", changed([](CertRecipe &r) { r.extendedKeyUsage = "clientAuth"; }),
         SSLCERT_EXT_ERR_NOT_SERVER_CERT, cert + "0: it may not serve TLS servers.\n"},
        {"sha-1", changed([](CertRecipe &r) { r.digest = "SHA1"; }),
         SSLCERT_EXT_ERR_WEAK_SIGNATURE, cert + "0: it is signed with MD5 or SHA-1.\n"},
        {"nine", nine, SSLCERT_EXT_ERR_CHAIN_TOO_LONG, cert + "8: more than 8 certificates.\n"},
        {"cut short", leaf.substr(0, leaf.size() / 2), SSLCERT_EXT_ERR_SIGNED_NOT_PEM,
         cert + "0: not a whole PEM certificate.\n"},
        {"damaged second", leaf + "-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n",
         SSLCERT_EXT_ERR_SIGNED_NOT_PEM, cert + "1: not a whole PEM certificate.\n"},
        {"empty", "", SSLCERT_EXT_ERR_SIGNED_NOT_PEM, cert + "0: not a whole PEM certificate.\n"},
        {"over 64 KiB", leaf + std::string(65537 - leaf.size(), '\n'),
         SSLCERT_EXT_ERR_SIGNED_TOO_BIG,
         "Signed certificate verify failed! 65537 bytes, at most 65536.\n"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        ClearDiagLog();
        EXPECT_EQ(LIB_SECURITY_SSL_CheckSignedCert(c.pem.data(), static_cast<uint32_t>(c.pem.size())),
                  c.code);
        const std::vector<Diag> expected{{31, 3, 2, c.report}};
        EXPECT_EQ(ReadDiags(), c.report.empty() ? std::vector<Diag>{} : expected);
    }
    RemoveFile(kPending);
    EXPECT_EQ(LIB_SECURITY_SSL_CheckSignedCert(leaf.data(), static_cast<uint32_t>(leaf.size())),
              SSLCERT_EXT_ERR_NO_PENDING_KEY);
}

TEST_F(CertRequestTest, APinnedRootMustAnchorTheAnswer) {
    Generate(ExampleRequest());
    const LabCa lab;
    const std::string leaf = MakeCertPem(lab.Leaf());
    const std::string otherRoot = MakeCertPem(LabCa::Root("Other Root", KeyKind::Rsa1024));
    auto check = [](const std::string &pem) {
        return LIB_SECURITY_SSL_CheckSignedCert(pem.data(), static_cast<uint32_t>(pem.size()));
    };
    auto pin = [](const std::string &pem) {
        return LIB_SECURITY_SSL_SetPinnedCA(pem.data(), static_cast<uint32_t>(pem.size()));
    };
    char pem[SSLCERT_EXT_SIGNED_MAX_BYTES];
    EXPECT_EQ(LIB_SECURITY_SSL_GetPinnedCA(pem, sizeof pem), SSLCERT_EXT_ERR_NO_PIN);
    for (const std::string &refused : {lab.intermediate, leaf, lab.root + lab.root, std::string("x")})
        EXPECT_EQ(pin(refused), SSLCERT_EXT_ERR_PIN_BAD);

    ASSERT_EQ(pin(lab.root), 0u);
    EXPECT_EQ(ModeOf("/conf/certs/server/pinned_ca.pem"), 0644u);
    EXPECT_EQ(LIB_SECURITY_SSL_GetPinnedCA(pem, sizeof pem), 0u);
    EXPECT_EQ(pem, lab.root);
    EXPECT_EQ(LIB_SECURITY_SSL_GetPinnedCA(pem, 64), SSLCERT_EXT_ERR_BUFFER_SMALL);
    EXPECT_EQ(check(leaf + lab.intermediate), 0u);
    EXPECT_EQ(check(leaf + lab.intermediate + lab.root), 0u);
    EXPECT_EQ(check(leaf), SSLCERT_EXT_ERR_NOT_PINNED);

    ASSERT_EQ(pin(otherRoot), 0u);
    ClearDiagLog();
    EXPECT_EQ(check(leaf + lab.intermediate), SSLCERT_EXT_ERR_NOT_PINNED);
    EXPECT_EQ(ReadDiags(), (std::vector<Diag>{{31, 3, 2,
                                               "Signed certificate verify failed! The chain does "
                                               "not end at the pinned CA: unable to get local "
                                               "issuer certificate.\n"}}));
    EXPECT_EQ(LIB_SECURITY_SSL_ClearPinnedCA(), 0u);
    EXPECT_EQ(LIB_SECURITY_SSL_ClearPinnedCA(), 0u);
    EXPECT_EQ(LIB_SECURITY_SSL_GetPinnedCA(pem, sizeof pem), SSLCERT_EXT_ERR_NO_PIN);
    EXPECT_EQ(check(leaf + lab.intermediate), 0u);
}

TEST_F(CertRequestTest, AnAcceptedAnswerIsInstalledByATaskAndConsumesThePendingKey) {
    Generate(ExampleRequest());
    const LabCa lab;
    const std::string leaf = MakeCertPem(lab.Leaf());
    const std::string keyPem = PendingKeyPem();
    LogOrigin origin{};
    std::strcpy(origin.szUserName, "admin");
    origin.uiInterface = 5;

    // A refused answer writes the operation log and starts no task.
    TaskHandle task{};
    SignedCertUpload upload{};
    std::strcpy(upload.CertSrcPath, "/var/lib/bmc-sim/no-such-answer.pem");
    EXPECT_EQ(LIB_SECURITY_SSL_ImportSignedCert(&upload, &task), SSLCERT_EXT_ERR_SIGNED_FETCH);
    EXPECT_EQ(ReadLines(BMCSIM_OPERATE_LOG).at(0).rfind(
                  "0\t67\tFailed to install the signed SSL certificate.\t\t", 0),
              0u);
    EXPECT_NE(access(BMCSIM_TASKS_LOG, F_OK), 0);
    // A path the transfer record cannot hold whole is refused, not cut.
    std::memset(upload.CertSrcPath, 'a', sizeof upload.CertSrcPath - 1);
    ClearDiagLog();
    EXPECT_EQ(LIB_SECURITY_SSL_ImportSignedCert(&upload, &task), SSLCERT_EXT_ERR_SIGNED_FETCH);
    EXPECT_EQ(ReadDiags().at(0).message, "Signed Cert:the source path of 1024 bytes does not fit "
                                         "the transfer record of 1024!\n");
    // An answer the checks refuse (here for another key) is installed by nobody.
    const std::string other = Changed(lab.Leaf(), [](CertRecipe &r) { r.keyPem.clear(); });
    EXPECT_EQ(LIB_SECURITY_SSL_ImportSignedCertPem(&origin, other.data(),
                                                   static_cast<uint32_t>(other.size()), &task),
              SSLCERT_EXT_ERR_KEY_MISMATCH);
    EXPECT_NE(access(CertPath(SSL_CERT_TYPE_USER).c_str(), F_OK), 0);

    // The answer as an uploaded file, leaf and chain.
    WriteFile("/var/lib/bmc-sim/answer.pem", leaf + lab.intermediate);
    std::strcpy(upload.CertSrcPath, "/var/lib/bmc-sim/answer.pem");
    upload.LogOrigin = origin;
    ASSERT_EQ(LIB_SECURITY_SSL_ImportSignedCert(&upload, &task), 0u);
    const BMCSIM_TaskState state = AwaitTask(task.TaskId);
    EXPECT_EQ(state.ucState, 2);
    EXPECT_STREQ(state.szText, "Signed Server Cert installed");
    EXPECT_EQ(ReadFile(CertPath(SSL_CERT_TYPE_USER)), leaf + lab.intermediate);
    EXPECT_EQ(ReadFile(CertPath(SSL_CERT_TYPE_USER, true)), keyPem);
    EXPECT_EQ(ReadFile(kCombinedFile), leaf + lab.intermediate + keyPem);
    EXPECT_NE(access(kPending, F_OK), 0);
    EXPECT_EQ(ReadLines(BMCSIM_OPERATE_LOG).at(3).rfind(
                  "5\t99\tInstalled the signed SSL certificate successfully.\tadmin\t", 0),
              0u);
    const std::string both = "restart stunnel.service\nrestart lighttpd.service\n";
    EXPECT_EQ(ServicesLog(both), both);
    for (const char *scratch : {"/var/certs/SignedCert.pem", "/var/certs/SignedPrivkey.pem",
                                "/var/certs/SignedUpload.pem"})
        EXPECT_NE(access(scratch, F_OK), 0) << scratch;

    // A leaf alone without its issuer is installed as sent, and said to be.
    Generate(ExampleRequest());
    const std::string lone = MakeCertPem(lab.Leaf());
    ClearDiagLog();
    ASSERT_EQ(LIB_SECURITY_SSL_ImportSignedCertPem(&origin, lone.data(),
                                                   static_cast<uint32_t>(lone.size()), &task),
              0u);
    EXPECT_STREQ(AwaitTask(task.TaskId).szText, "Installed, chain incomplete");
    EXPECT_EQ(ReadFile(CertPath(SSL_CERT_TYPE_USER)), lone);
    EXPECT_EQ(ReadLines(BMCSIM_OPERATE_LOG).at(4).rfind(
                  "5\t99\tInstalled the signed SSL certificate successfully, but its chain is "
                  "incomplete: the issuer of the certificate is missing.\tadmin\t",
                  0),
              0u);
    const auto diags = ReadDiags();
    EXPECT_NE(std::find(diags.begin(), diags.end(),
                        Diag{31, 3, 6,
                             "Signed Cert:installed without the issuer of the certificate: the "
                             "chain is incomplete, clients may fail to verify it.\n"}),
              diags.end());

    // The information path describes the EC certificate in force.
    SSLCertInfo info{};
    ASSERT_EQ(LIB_SECURITY_GetCertInfo(&info), 0u);
    EXPECT_EQ(info.stSSLConfig.uiPublicKeyLen, 256u);
    EXPECT_STREQ(info.stSSLConfig.szSigAlgorithm, "ecdsa-with-SHA256");
}

TEST_F(CertRequestTest, SelfSignedForTheRequestsNamesAndKey) {
    Generate(ExampleRequest());
    const std::string pending = ReadFile(kPending);
    OperateDesc desc{};
    const SSLCertRequest p384 = ExampleRequest(2, 0, 2);
    ASSERT_EQ(LIB_SECURITY_SSL_GenSelfSignedAndRestart(&p384, &desc), 0u);
    EXPECT_STREQ(desc.szOperateDesc, "Generated SSL certificate successfully.");
    const std::string both = "restart stunnel.service\nrestart lighttpd.service\n";
    EXPECT_EQ(ServicesLog(both), both);
    EXPECT_EQ(ReadFile(kPending), pending);

    const auto cert = ReadPem(ReadFile(CertPath(SSL_CERT_TYPE_USER)), PEM_read_bio_X509);
    ASSERT_NE(cert, nullptr);
    EXPECT_EQ(X509_check_host(cert.get(), kDns, 0, 0, nullptr), 1);
    EXPECT_EQ(X509_check_ip_asc(cert.get(), "2001:db8::7", 0), 1);
    EXPECT_EQ(DigestOf(X509_get_signature_nid(cert.get())), NID_sha384);
    int days = 0, seconds = 0;
    ASSERT_EQ(ASN1_TIME_diff(&days, &seconds, X509_get0_notBefore(cert.get()),
                             X509_get0_notAfter(cert.get())),
              1);
    EXPECT_EQ(days, 365);
    SSLCertInfo info{};
    ASSERT_EQ(LIB_SECURITY_GetCertInfo(&info), 0u);
    EXPECT_EQ(info.stSSLConfig.uiPublicKeyLen, 384u);
    SSLCertRequest forever = ExampleRequest(); // past the generation's limit of days
    forever.uiValidDays = 5476;
    EXPECT_EQ(LIB_SECURITY_SSL_GenSelfSignedAndRestart(&forever, &desc), SSLCERT_EXT_ERR_BAD_SUBJECT);
}

} // namespace
} // namespace bmctest
