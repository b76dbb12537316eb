// Which certificate is in force, and the path lookup's bounds.
#include <gtest/gtest.h>

#include <cstring>

#include "lib_security_sslcert.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

class CertLocationTest : public ControllerTest {};

TEST_F(CertLocationTest, FirstCertificateFoundDecidesAndMissingKeyStopsTheSearch) {
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
        SetOemFlag(c.oemFlag);
        for (uint32_t type = 1; type <= 4; ++type) {
            PlaceCert(type, pem);
            if (c.files[2 * type - 2] != 'C') RemoveFile(CertPath(type));
            if (c.files[2 * type - 1] != 'K') RemoveFile(KeyPath(type));
        }
        EXPECT_EQ(LIB_SECURITY_GetCertType(), c.expected);
        std::vector<Diag> expected;
        if (c.report) expected.push_back({31, 3, 2, c.report});
        EXPECT_EQ(ReadDiags(), expected);
    }
}

TEST_F(CertLocationTest, PathLookupCutsToTheBuffersAndRefusesUnknownTypes) {
    char cert[SSLCERT_PATH_BUF_SIZE];
    char key[SSLCERT_PATH_BUF_SIZE];
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

} // namespace
} // namespace bmctest
