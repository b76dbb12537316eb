// The information record: served from the database, rebuilt from the files
// when the database has none, refreshed after an installation.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>

#include "lib_security_sslcert.h"
#include "platform/host/bmc_sim.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

class CertInfoTest : public ControllerTest {
  protected:
    static bool StoredRecord(SSLCertInfo &record) {
        return DB_Get(DB_GetCurrentDb(), SSLCERT_INFO_DB_KEY, sizeof record, &record) == 0;
    }
};

TEST_F(CertInfoTest, FirstGetReadsTheFilesThenTheDatabaseServesWithoutAProcess) {
    SSLCertInfo first{};
    ASSERT_EQ(LIB_SECURITY_GetCertInfo(&first), 0u);
    EXPECT_EQ(first.stKeyFileInfo.ucCertType, SSL_CERT_TYPE_DEFAULT);
    EXPECT_EQ(first.stSSLConfig.uiPublicKeyLen, 2048u);
    EXPECT_STREQ(first.stSSLConfig.szSSLServer, "Yes");

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
    EXPECT_EQ(ReadDiags(), (std::vector<Diag>{{31, 3, 2,
                                               "Failed to get cert config data from DB. iRet=" +
                                                   Signed(0x81000001) + "."}}));
}

TEST_F(CertInfoTest, NoRecordAndNoCertificateIsUnavailable) {
    RemoveFile(kFactoryCert);
    SSLCertInfo info{};
    EXPECT_EQ(LIB_SECURITY_GetCertInfo(&info), SSLCERT_MGMT_INFO_UNAVAILABLE);
    EXPECT_EQ(
        ReadDiags(),
        (std::vector<Diag>{
            {31, 3, 2, "Failed to get cert config data from DB. iRet=" + Signed(0x81000001) + "."},
            {31, 3, 2, "No SSL certificate found.\n"},
            {31, 3, 2, "Get SSL cert type failed! Cert type = 0."},
            {31, 3, 2,
             "Failed to get cert config data from DB and file. iRet=" + Signed(0x81000001) + "."},
        }));
    EXPECT_EQ(LIB_SECURITY_GetCertLeftExpires(), 0);
}

TEST_F(CertInfoTest, DatabaseFaultsStillServeTheFiles) {
    const Diag readFailed{
        31, 3, 2, "Failed to get cert config data from DB. iRet=" + Signed(0x81000001) + "."};
    struct Case {
        const char *faults;
        std::vector<Diag> diags;
        const char *nullReport; // the module-0 report expected, if any
    } cases[] = {
        {"DB_PutInternal=0x81000001",
         {readFailed,
          {31, 3, 2, "Filed to put data to db, iRet = " + Signed(0x81000001) + "."},
          {31, 3, 2, "Failed to put cert config data to DB. iRet=" + Signed(0x81000007) + "."}},
         nullptr},
        {"DB_GetCurrentDb=0",
         {{31, 3, 2, "Get db handle failed"},
          {31, 3, 2, "Failed to put cert config data to DB. iRet=" + Signed(0x81000005) + "."}},
         "Pointer pDb is Null, File:cert_info.cpp Func:SECURITY_PutCertInfo Line:"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.faults);
        SetUp();
        SetFaults(c.faults);
        SSLCertInfo info{};
        ASSERT_EQ(LIB_SECURITY_GetCertInfo(&info), 0u);
        EXPECT_EQ(info.stSSLConfig.uiPublicKeyLen, 2048u);
        auto diags = ReadDiags();
        const auto nullReports = std::erase_if(diags, [&](const Diag &d) {
            return d.module == 0 && c.nullReport && d.message.rfind(c.nullReport, 0) == 0;
        });
        EXPECT_EQ(nullReports, c.nullReport ? 1u : 0u);
        EXPECT_EQ(diags, c.diags);
        unsetenv(BMCSIM_ENV_FAULTS);
        SSLCertInfo stored{};
        EXPECT_FALSE(StoredRecord(stored));
    }
}

TEST_F(CertInfoTest, RefreshReplacesTheRecordOnlyWhenTheFilesRead) {
    ASSERT_EQ(SECURITY_UpdateCertInfo(), 0);
    CertRecipe user;
    user.subject = {{"CN", "installed.test"}};
    user.serial = 0x1234;
    PlaceCert(SSL_CERT_TYPE_USER, MakeCertPem(user));
    ASSERT_EQ(SECURITY_UpdateCertInfo(), 0);
    SSLCertInfo stored{};
    ASSERT_TRUE(StoredRecord(stored));
    EXPECT_EQ(stored.stKeyFileInfo.ucCertType, SSL_CERT_TYPE_USER);
    EXPECT_STREQ(stored.stSSLConfig.stIssueTo.szCommonName, "installed.test");
    EXPECT_STREQ(stored.stSSLConfig.szSerialNum, "1234");

    // An empty key usage fails the file read after the attributes and the
    // dump have been written; nothing is stored.
    ClearDiagLog();
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
    const std::string parseFailed =
        "Get SSL cert X509_Parse info failed! Ret = " + Signed(SSLCERT_ERR_CERT_PARSE) + ".";
    EXPECT_EQ(ReadDiags(), (std::vector<Diag>{{31, 3, 2, "Invalid keyusage.\n"},
                                              {31, 3, 2, parseFailed},
                                              {31, 3, 2, "Invalid keyusage.\n"},
                                              {31, 3, 2, parseFailed},
                                              {31, 3, 2,
                                               "Failed to get cert info from file, iRet = " +
                                                   Signed(SSLCERT_ERR_CERT_PARSE) + "."}}));
}

TEST_F(CertInfoTest, DaysLeftCountsWholeDays) {
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
        PlaceCert(SSL_CERT_TYPE_DEFAULT, MakeCertPem(recipe));
        EXPECT_EQ(LIB_SECURITY_GetCertLeftExpires(), c.days);
    }
}

TEST_F(CertInfoTest, StoredDatesAreRenderedAgainOnRead) {
    PlaceCert(SSL_CERT_TYPE_DEFAULT, MakeCertPem({}));
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
