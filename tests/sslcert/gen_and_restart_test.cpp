// The generate-and-restart entry: restarts, clean-up of the temporary
// pair, description and management code on each path.
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <thread>

#include "lib_security_sslcert.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

std::string ServicesLog() {
    return access(kServicesLog, F_OK) == 0 ? ReadFile(kServicesLog) : "";
}

class GenAndRestartTest : public ControllerTest {};

TEST_F(GenAndRestartTest, SuccessRestartsTheTunnelNowAndTheWebServerLater) {
    const SSLCertGenParam request = GenRequest(1024);
    OperateDesc desc{};
    ASSERT_EQ(LIB_SECURITY_GenAndRestartService(&request, &desc), 0u) << testing::PrintToString(ReadDiags());
    EXPECT_EQ(ServicesLog(), "restart stunnel.service\n");
    EXPECT_STREQ(desc.szOperateDesc, "Generated SSL certificate successfully.");
    EXPECT_EQ(desc.ucLogClass, 37);
    EXPECT_NE(access("/var/certs/TmpCertGen.pem", F_OK), 0);
    EXPECT_NE(access("/var/certs/TmpPrivkeyGen.pem", F_OK), 0);
    EXPECT_EQ(LIB_SECURITY_GetCertType(), SSL_CERT_TYPE_USER);

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (ServicesLog().find("lighttpd") == std::string::npos &&
           std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    EXPECT_EQ(ServicesLog(), "restart stunnel.service\nrestart lighttpd.service\n");
}

// The request check's own reports are held by the request tests.
TEST_F(GenAndRestartTest, RefusedRequestIsMappedAndBothTemporariesAreStillRemoved) {
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

TEST_F(GenAndRestartTest, FailedTunnelRestartKeepsTheNewCertificateAndSkipsTheWebServer) {
    const SSLCertGenParam request = GenRequest(1024);
    struct Case {
        const char *fault;
        uint32_t restart, expected;
    } cases[] = {{"systemd_run=5", 5, 0x1800001A},
                 {"systemd_run=0x82000002", 0x82000002, 0x1800081B}};
    for (const Case &c : cases) {
        SCOPED_TRACE(c.fault);
        SetFaults(c.fault);
        ClearDiagLog();
        OperateDesc desc{};
        EXPECT_EQ(LIB_SECURITY_GenAndRestartService(&request, &desc), c.expected);
        EXPECT_STREQ(desc.szOperateDesc, "Failed to generate SSL certificate.");
        EXPECT_EQ(LIB_SECURITY_GetCertType(), SSL_CERT_TYPE_USER);
        const auto diags = ReadDiags();
        ASSERT_FALSE(diags.empty());
        EXPECT_EQ(diags[0].message.rfind("Generate Cert:Restart stunnel service failed! iRet=" +
                                             Signed(c.restart) + ". ERR:",
                                         0),
                  0u)
            << testing::PrintToString(ReadDiags());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2500));
    EXPECT_EQ(ServicesLog(), "");
}

} // namespace
} // namespace bmctest
