// The information of the certificate in force: which certificate that is,
// its fields read with OpenSSL and from the openssl tool's text dump, its
// files' times, and the record served from the database, rebuilt from the
// files when the database has none and refreshed after an installation.
// The scratch-file lock of the dump is held by the installation race test,
// which fails without it.
#include <cstring>
#include <ctime>
#include <filesystem>

#include "tests/support/controller.h"

namespace bmctest {
namespace {

constexpr uint32_t kFactory = SSL_CERT_TYPE_DEFAULT;
constexpr const char *kScratch = "/var/certs/certtmp";

class InfoTest : public ControllerTest {
  protected:
    // Runs the extraction over a certificate placed as the factory default.
    uint32_t Extract(const std::string &pem) {
        PlaceCert(kFactory, pem);
        config_ = SSLConfig{};
        ClearDiagLog();
        return SECURITY_SSL_GetSSLCertX509_Parse(kFactory, &config_);
    }
    static bool StoredRecord(SSLCertInfo &record) {
        return DB_Get(DB_GetCurrentDb(), SSLCERT_INFO_DB_KEY, sizeof record, &record) == 0;
    }
    SSLConfig config_{};
};

TEST_F(InfoTest, FirstCertificateFoundDecidesAndMissingKeyStopsTheSearch) {
    struct Case {
        const char *name;
        uint32_t oemFlag;
        // Certificate (C) and key (K) present, or not (-), of the user, OEM
        // custom, OEM default and factory types.
        const char *files;
        uint32_t expected;
        const char *report; // nullptr: no report
    } cases[] = {
        {"user wins over factory", 0, "CK----CK", 1, nullptr},
        {"user key missing stops", 0, "C-----CK", 0, "No SSL actual key file found.\n"},
        {"oem custom", 3, "--CKCKCK", 2, nullptr},
        {"oem custom key missing stops", 3, "--C-CKCK", 0, "No SSL OEM custom key file found.\n"},
        {"oem default", 3, "----CKCK", 3, nullptr},
        {"oem default key missing", 3, "----C-CK", 0, "No SSL OEM default key file found.\n"},
        {"oem flag 3 falls back to factory", 3, "------CK", 4, nullptr},
        {"oem files ignored without flag 3", 2, "--CKCK--", 0, "No SSL certificate found.\n"},
        {"factory key missing", 0, "------C-", 0, "No SSL default key file found.\n"},
        {"a key alone counts as nothing", 0, "-K------", 0, "No SSL certificate found.\n"},
    };
    const std::string pem = MakeCertPem({});
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        setenv(BMCSIM_ENV_OEM_FLAG, std::to_string(c.oemFlag).c_str(), 1);
        for (uint32_t type = 1; type <= 4; ++type) {
            PlaceCert(type, pem);
            if (c.files[2 * type - 2] != 'C') RemoveFile(CertPath(type));
            if (c.files[2 * type - 1] != 'K') RemoveFile(CertPath(type, true));
        }
        EXPECT_EQ(LIB_SECURITY_GetCertType(), c.expected);
        std::vector<Diag> expected;
        if (c.report) expected.push_back({31, 3, 2, c.report});
        EXPECT_EQ(ReadDiags(), expected);
    }
}

TEST_F(InfoTest, PathLookupCutsToTheBuffersAndRefusesUnknownTypes) {
    char cert[SSLCERT_PATH_BUF_SIZE];
    char key[SSLCERT_PATH_BUF_SIZE];
    // A short buffer gets the path cut to size - 1 and still succeeds.
    EXPECT_EQ(LIB_SECURITY_GetSSLCertKeyPath(1, 11, 6, cert, key), 0u);
    EXPECT_STREQ(cert, "/conf/cert");
    EXPECT_STREQ(key, "/conf");
    // Type 0 is refused through the extraction below.
    std::memset(cert, 'c', sizeof cert);
    std::memset(key, 'k', sizeof key);
    EXPECT_EQ(LIB_SECURITY_GetSSLCertKeyPath(7, sizeof cert, sizeof key, cert, key),
              SSLCERT_ERR_GENERAL);
    EXPECT_EQ(cert[0] + std::string(1, key[0]), "ck");
    EXPECT_EQ(ReadDiags(), (std::vector<Diag>{{31, 3, 2, "Unknown Cert type = 7.\n"}}));
}

// The extractors run in the order names, key usage, version, key length;
// the first failure ends the run with the fields before it written.
TEST_F(InfoTest, ExtractorsRunInOrderUntilTheFirstFailure) {
    const Diag noUsage{31, 3, 7, "Cert may not have keyusage."};
    struct Case {
        const char *name;
        void (*edit)(CertRecipe &);
        uint32_t result;
        const char *keyUsage, *version;
        uint32_t bits;
        std::vector<Diag> diags;
    } cases[] = {
        // clang-format off
        {"no key usage", [](CertRecipe &) {}, 0, "", "3", 2048, {noUsage}},
        {"all usages", [](CertRecipe &r) { r.keyUsage = 0x80FF; }, 0,
         "Digital Signature, Non Repudiation, Key Encipherment, Data Encipherment, Key Agreement, "
         "Certificate Sign, CRL Sign, Encipher Only, Decipher Only", "3", 2048, {}},
        {"version 1", [](CertRecipe &r) { r.rawVersion = 0; r.extendedKeyUsage.clear(); },
         0, "", "1", 2048, {noUsage}},
        {"EC key", [](CertRecipe &r) { r.key = KeyKind::Ec256; }, 0, "", "3", 256, {noUsage}},
        {"empty key usage", [](CertRecipe &r) { r.keyUsage = 0; },
         SSLCERT_ERR_CERT_PARSE, "", "", 0, {{31, 3, 2, "Invalid keyusage.\n"}}},
        {"version 4", [](CertRecipe &r) { r.rawVersion = 3; r.keyUsage = kKuDigitalSignature; },
         SSLCERT_ERR_CERT_PARSE, "Digital Signature", "", 0, {{31, 3, 2, "Not support version 3.\n"}}},
        // clang-format on
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        CertRecipe recipe;
        c.edit(recipe);
        EXPECT_EQ(Extract(MakeCertPem(recipe)), c.result);
        EXPECT_STREQ(config_.stIssueFrom.szCommonName, "bmc.test");
        EXPECT_STREQ(config_.stIssueTo.szOrganisation, "Test Works");
        EXPECT_STREQ(config_.szKeyUsage, c.keyUsage);
        EXPECT_STREQ(config_.szVersion, c.version);
        EXPECT_EQ(config_.uiPublicKeyLen, c.bits);
        EXPECT_EQ(ReadDiags(), c.diags);
    }
}

TEST_F(InfoTest, NamesTakeTheFirstEntryAndAreCutToTheirFields) {
    CertRecipe recipe;
    const std::string longName(100, 'n');
    recipe.subject = {{"CN", "first"}, {"CN", "second"}, {"C", "DEU"},   {"L", "Town"},
                      {"ST", "State"}, {"OU", "Unit"},   {"O", longName}};
    recipe.issuer = NameEntries{{"CN", longName}, {"emailAddress", "ca@my-bmc.example.com"}};
    ASSERT_EQ(Extract(MakeCertPem(recipe)), 0u);
    const SSLCertGenParam &to = config_.stIssueTo, &from = config_.stIssueFrom;
    EXPECT_EQ((std::vector<std::string>{to.szCommonName, to.szCountryCode, to.szLocalityName,
                                        to.szStateName, to.szOrganisationUnit, to.szOrganisation,
                                        to.szEmailAddress}),
              (std::vector<std::string>{"first", "DE", "Town", "State", "Unit",
                                        longName.substr(0, 64), ""}));
    EXPECT_EQ(
        (std::vector<std::string>{from.szCommonName, from.szEmailAddress, from.szOrganisation}),
        (std::vector<std::string>{longName.substr(0, 64), "ca@my-bmc.example.com", ""}));
}

TEST_F(InfoTest, FilesThatHoldNoUsableCertificate) {
    CertRecipe other;
    other.subject = {{"CN", "second.test"}};
    ASSERT_EQ(Extract(MakeCertPem({}) + MakeCertPem(other)), 0u);
    EXPECT_STREQ(config_.stIssueTo.szCommonName, "bmc.test");
    EXPECT_EQ(Extract(KeyPem(KeyKind::Rsa2048)), SSLCERT_ERR_CERT_PARSE);
    EXPECT_EQ(ReadDiags(), (std::vector<Diag>{{31, 3, 2, "Unable to parse certificate\n"}}));
    ClearDiagLog();
    RemoveFile(kFactoryCert);
    EXPECT_EQ(SECURITY_SSL_GetSSLCertX509_Parse(kFactory, &config_), SSLCERT_ERR_FILE_OPEN);
    EXPECT_EQ(SECURITY_SSL_GetSSLCertX509_Parse(0, &config_), SSLCERT_ERR_GENERAL);
    EXPECT_EQ(ReadDiags(),
              Failures({"Error is opening certificate\n", "Unknown Cert type = 0.\n",
                        "Failed to get Cert and Key Path. "
                        "Func:[SECURITY_SSL_GetSSLCertX509_Parse]\n"}));

    // No record and no certificate: the information is unavailable.
    ClearDiagLog();
    SSLCertInfo info{};
    EXPECT_EQ(LIB_SECURITY_GetCertInfo(&info), SSLCERT_MGMT_INFO_UNAVAILABLE);
    EXPECT_EQ(ReadDiags(),
              Failures({"Failed to get cert config data from DB. iRet=" + Signed(0x81000001) + ".",
                        "No SSL certificate found.\n", "Get SSL cert type failed! Cert type = 0.",
                        "Failed to get cert config data from DB and file. iRet=" +
                            Signed(0x81000001) + "."}));
    EXPECT_EQ(LIB_SECURITY_GetCertLeftExpires(), 0);
}

TEST_F(InfoTest, CutOutRuleTakesTheValueAfterTheFirstDelimiter) {
    const CertTextParseRow serial{"serial=", 1, '='};
    const CertTextParseRow sigAlg{"Signature Algorithm:", 2, ':'};
    const CertTextParseRow server{"SSL server :", 2, ':'};
    const std::string longValue(300, 'v');
    struct Case {
        const char *name;
        const CertTextParseRow *row;
        std::string line;
        std::string expected; // the slot starts as "old"
    } cases[] = {
        // The plain serial, signature and purpose lines are the dump test's.
        {"keyword inside a longer purpose name", &server, "Netscape SSL server : No\n", "No"},
        {"no keyword", &serial, "notAfter=Jan  1 00:00:00 2034 GMT\n", "old"},
        {"delimiter before the keyword counts", &sigAlg, "x: Signature Algorithm: md5\n",
         "Signature Algorithm: md5"},
        {"last line without line feed loses a character", &serial, "serial=0A1B", "0A1"},
        {"a lone character without line feed empties the slot", &serial, "serial=5", ""},
        {"nothing after the skip", &serial, "serial=", "old"},
        {"skip past the end", &sigAlg, "Signature Algorithm:", "old"},
        {"long value cut to the slot", &serial, "serial=" + longValue, longValue.substr(0, 255)},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        char slot[256] = "old";
        SECURITY_SSL_ParseCommon(c.line.c_str(), c.row, sizeof slot, slot);
        EXPECT_EQ(std::string(slot), c.expected);
    }
}

TEST_F(InfoTest, DumpFillsItsSixFieldsOnlyAndRemovesTheScratchFile) {
    PlaceCert(kFactory, MakeCertPem({}));
    SSLConfig config;
    std::memset(&config, 'x', sizeof config);
    config.szVersion[63] = '\0';
    ASSERT_EQ(SECURITY_SSL_GetSSLCertCommon(kFactory, &config), 0);
    EXPECT_EQ(
        (std::vector<std::string>{config.szSerialNum, config.szSigAlgorithm, config.szPublicKey,
                                  config.szStartDate, config.szExpDate, config.szSSLServer}),
        (std::vector<std::string>{"0A1B", "sha256WithRSAEncryption",
                                  "", // the tool prints "Public-Key:"
                                  "2024-01-01T00:00:00Z", "2034-01-01T00:00:00Z", "Yes"}));
    EXPECT_EQ(config.szVersion[0], 'x');
    EXPECT_EQ(config.uiPublicKeyLen, 0x78787878u);
    EXPECT_FALSE(std::filesystem::exists(kScratch)); // silent: held by the installation race
}

TEST_F(InfoTest, DumpToolFailureLeavesTheScratchFileAndReports) {
    WriteFile(CertPath(SSL_CERT_TYPE_UPLOAD_TMP), "not a certificate\n");
    SSLConfig config{};
    const auto failed = static_cast<int32_t>(SSLCERT_ERR_GENERAL);
    EXPECT_EQ(SECURITY_SSL_GetSSLCertCommon(SSL_CERT_TYPE_UPLOAD_TMP, &config), failed);
    EXPECT_TRUE(std::filesystem::exists(kScratch));
    SetFaults("BMC_System=0x81000001");
    EXPECT_EQ(SECURITY_SSL_GetSSLCertCommon(kFactory, &config), failed);
    const Diag spawnFailure{31, 3, 2,
                            "Error spawning x509 in order to get certificate info or invalid "
                            "certfiicate on SSL.\n"};
    EXPECT_EQ(ReadDiags(), (std::vector<Diag>{spawnFailure, spawnFailure}));
}

TEST_F(InfoTest, AttributesRecordTheTypeFirstAndStopAtAMissingFile) {
    SSLCertKeyFileInfo info{};
    ASSERT_EQ(SECURITY_SSL_GetSSLCertAttributes(kFactory, &info), 0u);
    EXPECT_EQ(info.ucCertType, kFactory);
    EXPECT_EQ(std::strlen(info.szCertFileTime) + std::strlen(info.szKeyFileTime), 40u);

    info = SSLCertKeyFileInfo{};
    RemoveFile(kFactoryKey);
    EXPECT_EQ(SECURITY_SSL_GetSSLCertAttributes(kFactory, &info), SSLCERT_ERR_FILE_TIME);
    EXPECT_EQ(info.ucCertType, kFactory);
    EXPECT_NE(info.szCertFileTime[0], '\0');
    EXPECT_EQ(info.szKeyFileTime[0], '\0');

    info = SSLCertKeyFileInfo{};
    SetFaults("BMC_GetFileModifyTimeStamp=1");
    EXPECT_EQ(SECURITY_SSL_GetSSLCertAttributes(SSL_CERT_TYPE_USER, &info), SSLCERT_ERR_FILE_TIME);
    EXPECT_EQ(info.ucCertType, SSL_CERT_TYPE_USER);
    EXPECT_EQ(info.szCertFileTime[0], '\0');
    EXPECT_EQ(ReadDiags(),
              Failures({"Get privatekey file time failed!\n", "Get cert file time failed!\n"}));
}

TEST_F(InfoTest, FirstGetReadsTheFilesThenTheDatabaseServesWithoutAProcess) {
    SSLCertInfo first{};
    ASSERT_EQ(LIB_SECURITY_GetCertInfo(&first), 0u);
    SSLCertInfo stored{};
    ASSERT_TRUE(StoredRecord(stored));
    EXPECT_EQ(std::memcmp(&stored, &first, sizeof stored), 0);

    // The stored record wins over changed and even removed files.
    PlaceCert(SSL_CERT_TYPE_USER, MakeCertPem({}));
    RemoveFile(kFactoryCert);
    const uint64_t spawns = BMCSIM_SpawnCount();
    SSLCertInfo second{};
    ASSERT_EQ(LIB_SECURITY_GetCertInfo(&second), 0u);
    EXPECT_EQ(BMCSIM_SpawnCount(), spawns);
    EXPECT_EQ(std::memcmp(&second, &first, sizeof second), 0);
}

TEST_F(InfoTest, DatabaseFaultsStillServeTheFiles) {
    struct Case {
        const char *faults;
        std::vector<Diag> diags;
    } cases[] = {
        {"DB_PutInternal=0x81000001",
         {{31, 3, 2, "Failed to get cert config data from DB. iRet=" + Signed(0x81000001) + "."},
          {31, 3, 2, "Filed to put data to db, iRet = " + Signed(0x81000001) + "."},
          {31, 3, 2, "Failed to put cert config data to DB. iRet=" + Signed(0x81000007) + "."}}},
        {"DB_GetCurrentDb=0",
         {{31, 3, 2, "Get db handle failed"},
          {0, 0, 7, "Pointer pDb is Null, File:cert_info.cpp Func:SECURITY_PutCertInfo Line:"},
          {31, 3, 2, "Failed to put cert config data to DB. iRet=" + Signed(0x81000005) + "."}}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.faults);
        SetUp();
        SetFaults(c.faults);
        SSLCertInfo info{};
        ASSERT_EQ(LIB_SECURITY_GetCertInfo(&info), 0u);
        auto diags = ReadDiags();
        for (Diag &d : diags) // the null report names its own source line
            if (d.module == 0) d.message.resize(d.message.rfind(':') + 1);
        EXPECT_EQ(diags, c.diags);
        unsetenv(BMCSIM_ENV_FAULTS);
        SSLCertInfo stored{};
        EXPECT_FALSE(StoredRecord(stored));
    }
}

// A refresh that stores the pair in force is held by the crash tests.
TEST_F(InfoTest, RefreshReplacesTheRecordOnlyWhenTheFilesRead) {
    ASSERT_EQ(SECURITY_UpdateCertInfo(), 0);
    SSLCertInfo stored{};
    ASSERT_TRUE(StoredRecord(stored));
    ClearDiagLog();
    // An empty key usage fails the file read after the attributes and the
    // dump have been written; nothing is stored.
    CertRecipe broken;
    broken.keyUsage = 0;
    PlaceCert(SSL_CERT_TYPE_USER, MakeCertPem(broken));
    SSLCertInfo fromFile{};
    EXPECT_EQ(SECURITY_GetCertInfoFromFile(&fromFile), SSLCERT_ERR_CERT_PARSE);
    EXPECT_EQ(fromFile.stKeyFileInfo.ucCertType, SSL_CERT_TYPE_USER);
    EXPECT_STREQ(fromFile.stSSLConfig.szSerialNum, "0A1B");
    EXPECT_EQ(SECURITY_UpdateCertInfo(), static_cast<int32_t>(SSLCERT_ERR_CERT_PARSE));
    SSLCertInfo after{};
    ASSERT_TRUE(StoredRecord(after));
    EXPECT_EQ(std::memcmp(&after, &stored, sizeof after), 0);
    const std::string usage = "Invalid keyusage.\n", failed = Signed(SSLCERT_ERR_CERT_PARSE) + ".";
    const std::string parse = "Get SSL cert X509_Parse info failed! Ret = " + failed;
    EXPECT_EQ(ReadDiags(), Failures({usage, parse, usage, parse,
                                     "Failed to get cert info from file, iRet = " + failed}));
}

TEST_F(InfoTest, DaysLeftCountsWholeDays) {
    const int64_t now = std::time(nullptr);
    struct Case {
        const char *name;
        int64_t expiresIn;
        int32_t days;
    } cases[] = {
        {"36 hours", 36 * 3600, 1},
        {"23 hours", 23 * 3600, 0},
        {"expired", -3600, 0},
        {"ten years", 3650LL * 86400 + 60, 3650},
        {"past 2100: the seconds saturate", 28000LL * 86400 + 60, INT32_MAX / 86400},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        CertRecipe recipe;
        recipe.notBefore = now - 86400;
        recipe.notAfter = now + c.expiresIn;
        PlaceCert(kFactory, MakeCertPem(recipe));
        EXPECT_EQ(LIB_SECURITY_GetCertLeftExpires(), c.days);
    }
}

TEST_F(InfoTest, StoredDatesAreRenderedAgainOnRead) {
    PlaceCert(kFactory, MakeCertPem({}));
    ASSERT_EQ(SECURITY_UpdateCertInfo(), 0);
    SSLCertInfo stored{};
    ASSERT_TRUE(StoredRecord(stored));
    // A stored date that does not parse reads back as time stamp 0.
    std::strcpy(stored.stSSLConfig.szStartDate, "garbage");
    ASSERT_EQ(
        DB_PutInternal("test", 0, DB_GetCurrentDb(), SSLCERT_INFO_DB_KEY, sizeof stored, &stored),
        0);
    SSLCertInfo info{};
    ASSERT_EQ(SECURITY_GetCertInfoFromDB(&info), 0u);
    EXPECT_STREQ(info.stSSLConfig.szStartDate, "1970-01-01T00:00:00Z");
    EXPECT_STREQ(info.stSSLConfig.szExpDate, "2034-01-01T00:00:00Z");
}

} // namespace
} // namespace bmctest
