// The generation request check: each rule at its boundary, the order of
// the rules, and the e-mail dialect of the platform's pattern engine.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "lib_security_sslcert.h"
#include "platform/bmc_platform.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

template <size_t N> void Set(char (&field)[N], const char *text) {
    (void)BMC_Strlcpy(field, text, N);
}

class GenRequestTest : public ControllerTest {};

TEST_F(GenRequestTest, EachRuleAtItsBoundary) {
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
        {"e-mail with a line feed", [](auto &r) { Set(r.szEmailAddress, "a@b.de\n"); }, false},
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
        {"asterisk", [](auto &r) { Set(r.szCommonName, "*.bmc"); }, false},
        {"comma in the common name", [](auto &r) { Set(r.szCommonName, "a,b"); }, false},
        {"spaces, dot, underscore", [](auto &r) { Set(r.szCommonName, " A.B_c node 7 "); }, true},
        {"digits with a letter", [](auto &r) { Set(r.szLocalityName, "2nd floor"); }, true},
        {"tab between letters", [](auto &r) { Set(r.szStateName, "a\tb"); }, false},
        {"line feed in a unit", [](auto &r) { Set(r.szOrganisationUnit, "a\nCN = x"); }, false},
        {"empty organisation", [](auto &r) { Set(r.szOrganisation, ""); }, false},
    };
    for (const Case &c : cases) {
        SSLCertGenParam request = GenRequest(2048);
        c.edit(request);
        EXPECT_EQ(SECURITY_SSL_GenSSLCert_Check(&request), c.passes ? 0u : 0x81000001u) << c.name;
    }
}

TEST_F(GenRequestTest, FirstFailingRuleAloneIsReported) {
    SSLCertGenParam request = GenRequest(2048);
    request.uiKeyLength = 512;
    Set(request.szEmailAddress, "not an address");
    EXPECT_EQ(SECURITY_SSL_GenSSLCert_Check(&request), 0x81000001u);

    request = GenRequest(2048);
    Set(request.szOrganisation, "Works; Inc");
    Set(request.szStateName, "");
    EXPECT_EQ(SECURITY_SSL_GenSSLCert_Check(&request), 0x81000001u);

    request = GenRequest(2048);
    request.uiValidDays = 0;
    EXPECT_EQ(SECURITY_SSL_GenSSLCert_Check(&request), 0x81000001u);
    EXPECT_EQ(
        ReadDiags(),
        (std::vector<Diag>{
            {31, 3, 2, "SSL cert Gen Keylength verify failed! Keylength = 512.\n"},
            {31, 3, 2, "SSL cert Gen Organisation verify failed! Organisation = Works; Inc.\n"},
            {31, 3, 2, "SSL cert Gen ValidDays verify failed! ValidDays = 0.\n"}}));
}

} // namespace
} // namespace bmctest
