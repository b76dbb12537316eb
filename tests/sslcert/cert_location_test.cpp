// Which certificate is in force, and the path lookup with its reports.
#include <gtest/gtest.h>

#include <cstring>

#include "lib_security_sslcert.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

class CertLocationTest : public ControllerTest {};

constexpr uint32_t kNone = SSL_CERT_TYPE_NONE;

struct TypeCase {
    const char *name;
    uint32_t oemFlag;
    bool user, userKey, custom, customKey, oemDefault, oemDefaultKey, factory, factoryKey;
    uint32_t expected;
    const char *report; // nullptr: no report
};

TEST_F(CertLocationTest, FirstCertificateFoundDecidesAndMissingKeyStopsTheSearch) {
    const TypeCase cases[] = {
        {"user wins over factory", 0, true, true, false, false, false, false, true, true, 1,
         nullptr},
        {"user key missing stops", 0, true, false, false, false, false, false, true, true, kNone,
         "No SSL actual key file found.\n"},
        {"oem custom", 3, false, false, true, true, true, true, true, true, 2, nullptr},
        {"oem custom key missing stops", 3, false, false, true, false, true, true, true, true,
         kNone, "No SSL OEM custom key file found.\n"},
        {"oem default", 3, false, false, false, false, true, true, true, true, 3, nullptr},
        {"oem default key missing", 3, false, false, false, false, true, false, true, true, kNone,
         "No SSL OEM default key file found.\n"},
        {"oem flag 3 falls back to factory", 3, false, false, false, false, false, false, true,
         true, 4, nullptr},
        {"oem files ignored without flag 3", 2, false, false, true, true, true, true, false, false,
         kNone, "No SSL certificate found.\n"},
        {"factory key missing", 0, false, false, false, false, false, false, true, false, kNone,
         "No SSL default key file found.\n"},
        {"a key alone counts as nothing", 0, false, true, false, false, false, false, false, false,
         kNone, "No SSL certificate found.\n"},
    };
    const std::string pem = MakeCertPem({});
    for (const TypeCase &c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        SetOemFlag(c.oemFlag);
        const bool files[4][2] = {{c.user, c.userKey},
                                  {c.custom, c.customKey},
                                  {c.oemDefault, c.oemDefaultKey},
                                  {c.factory, c.factoryKey}};
        for (uint32_t type = 1; type <= 4; ++type) {
            PlaceCert(type, pem);
            if (!files[type - 1][0]) RemoveFile(CertPath(type));
            if (!files[type - 1][1]) RemoveFile(KeyPath(type));
        }
        EXPECT_EQ(LIB_SECURITY_GetCertType(), c.expected);
        std::vector<Diag> expected;
        if (c.report) expected.push_back({31, 3, 2, c.report});
        EXPECT_EQ(ReadDiags(), expected);
    }
}

TEST_F(CertLocationTest, PathLookupCopiesBoundedAndRefusesUnknownTypes) {
    char cert[SSLCERT_PATH_BUF_SIZE];
    char key[SSLCERT_PATH_BUF_SIZE];

    // Temporary kinds resolve whether or not their files exist.
    EXPECT_EQ(LIB_SECURITY_GetSSLCertKeyPath(6, sizeof cert, sizeof key, cert, key), 0u);
    EXPECT_STREQ(cert, "/var/certs/TmpCertGen.pem");
    EXPECT_STREQ(key, "/var/certs/TmpPrivkeyGen.pem");
    EXPECT_EQ(LIB_SECURITY_GetSSLCertKeyPath(2, sizeof cert, sizeof key, cert, key), 0u);
    EXPECT_STREQ(cert, "/conf/certs/server/oem/custom/server.pem");
    EXPECT_STREQ(key, "/conf/certs/server/oem/custom/privkey.pem");

    // A short buffer gets the path cut to size - 1 and still succeeds.
    EXPECT_EQ(LIB_SECURITY_GetSSLCertKeyPath(1, 11, 6, cert, key), 0u);
    EXPECT_STREQ(cert, "/conf/cert");
    EXPECT_STREQ(key, "/conf");

    for (uint32_t type : {0u, 7u}) {
        SCOPED_TRACE(type);
        ClearDiagLog();
        std::memset(cert, 'c', sizeof cert);
        std::memset(key, 'k', sizeof key);
        EXPECT_EQ(LIB_SECURITY_GetSSLCertKeyPath(type, sizeof cert, sizeof key, cert, key),
                  SSLCERT_ERR_GENERAL);
        EXPECT_EQ(cert[0], 'c');
        EXPECT_EQ(key[0], 'k');
        EXPECT_EQ(
            ReadDiags(),
            (std::vector<Diag>{{31, 3, 2, "Unknown Cert type = " + std::to_string(type) + ".\n"}}));
    }
}

TEST_F(CertLocationTest, NullBuffersAreReportedInParameterOrder) {
    char key[SSLCERT_PATH_BUF_SIZE];
    EXPECT_EQ(LIB_SECURITY_GetSSLCertKeyPath(7, 1, 1, nullptr, nullptr), SSLCERT_ERR_NULL_POINTER);
    EXPECT_EQ(LIB_SECURITY_GetSSLCertKeyPath(1, 1, sizeof key, key, nullptr),
              SSLCERT_ERR_NULL_POINTER);
    const auto records = ReadDiagLog();
    ASSERT_EQ(records.size(), 2u) << Describe(records);
    for (size_t i = 0; i < records.size(); ++i) {
        const std::string name = i == 0 ? "pcCertPath" : "pcKeyPath";
        const std::string expected = "Pointer " + name +
                                     " is Null, File:cert_location.cpp Func:"
                                     "LIB_SECURITY_GetSSLCertKeyPath Line:" +
                                     std::to_string(records[i].line);
        EXPECT_EQ(records[i].message, expected);
        EXPECT_EQ(records[i].file, "cert_location.cpp");
        EXPECT_EQ((Diag{records[i].module, records[i].subModule, records[i].level, ""}),
                  (Diag{0, 0, 7, ""}));
    }
}

} // namespace
} // namespace bmctest
