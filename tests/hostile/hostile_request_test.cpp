// Callers' records whose texts hold shell syntax, configuration syntax,
// invalid UTF-8, or fill their field to the last byte. Generation requests
// are refused with the field's own report before any file is written or
// any process started; the texts of upload requests and log origins are
// read no further than their fields.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>

#include "lib_security_sslcert.h"
#include "lib_ssl_auth.h"
#include "platform/host/bmc_sim.h"
#include "tests/support/controller.h"

namespace bmctest {
namespace {

class HostileRequestTest : public ControllerTest {};

template <size_t N> void Fill(char (&field)[N], const std::string &text) {
    std::memset(field, 0, N);
    std::memcpy(field, text.data(), std::min(N, text.size()));
}

TEST_F(HostileRequestTest, EveryFieldRefusesWhatCouldEscapeIt) {
    struct Field {
        const char *report;
        void (*set)(SSLCertGenParam &, const std::string &);
        size_t size;
    } fields[] = {
        // clang-format off
        {"Email Address verify failed! EmailAddress", [](auto &r, const auto &t) { Fill(r.szEmailAddress, t); }, 129},
        {"Country Code verify failed! CountryCode", [](auto &r, const auto &t) { Fill(r.szCountryCode, t); }, 3},
        {"Common Name verify failed! CommonName", [](auto &r, const auto &t) { Fill(r.szCommonName, t); }, 65},
        {"Organisation verify failed! Organisation", [](auto &r, const auto &t) { Fill(r.szOrganisation, t); }, 65},
        {"Organisation Unit verify failed! OrganisationUnit", [](auto &r, const auto &t) { Fill(r.szOrganisationUnit, t); }, 65},
        {"Locality Name verify failed! LocalityName", [](auto &r, const auto &t) { Fill(r.szLocalityName, t); }, 129},
        {"State Name verify failed! StateName", [](auto &r, const auto &t) { Fill(r.szStateName, t); }, 129},
        // clang-format on
    };
    const uint64_t spawned = BMCSIM_SpawnCount();
    for (const Field &field : fields) {
        SCOPED_TRACE(field.report);
        // The last one fills the field to its last byte: the report shows
        // the text cut to the field.
        // The character rules themselves are the generation test's table.
        for (const std::string &payload :
             std::vector<std::string>{"a$(touch /var/certs/mk)", std::string(field.size, 'a')}) {
            SCOPED_TRACE(payload);
            SSLCertGenParam request = GenRequest(2048);
            field.set(request, payload);
            ClearDiagLog();
            EXPECT_EQ(LIB_SECURITY_GenCert(&request), 0x98000008u);
            EXPECT_EQ(ReadDiags(),
                      (std::vector<Diag>{{31, 3, 2,
                                          std::string("SSL cert Gen ") + field.report + " = " +
                                              payload.substr(0, field.size - 1) + ".\n"},
                                         {31, 3, 2, "Gen cert check data failed!\n"}}));
        }
    }
    // An engine that gives up (here at 60 steps: the e-mail needs 42, a
    // 128-letter name 136) clears no name of its rejection pattern.
    SetFaults("BMC_RegularJudge=60");
    SSLCertGenParam request = GenRequest(2048);
    Fill(request.szLocalityName, std::string(128, 'a'));
    ClearDiagLog();
    EXPECT_EQ(LIB_SECURITY_GenCert(&request), 0x98000008u);
    unsetenv(BMCSIM_ENV_FAULTS);
    EXPECT_EQ(ReadDiags().at(0).message,
              "SSL cert Gen Locality Name verify failed! LocalityName = " + std::string(128, 'a') +
                  ".\n");
    EXPECT_EQ(BMCSIM_SpawnCount(), spawned);
    EXPECT_FALSE(std::filesystem::exists("/var/certs/mk"));
    EXPECT_FALSE(std::filesystem::exists("/var/certs/sslconf"));
}

TEST_F(HostileRequestTest, FullFieldsOfUploadsAndOriginsAreCutToTheirFields) {
    UploadParam upload;
    std::memset(&upload, 'u', sizeof upload);
    ClearDiagLog();
    EXPECT_EQ(SECURITY_SSL_GetUploadCert(&upload), 0x81000001u);
    const auto diags = ReadDiags();
    ASSERT_EQ(diags.size(), 1u);
    EXPECT_EQ(diags[0].message,
              "Failed to download Server Cert. FileStr:" + std::string(1023, 'u') +
                  ", FileDst:/var/certs/actualcert.pem, iRet=-2130706431.");

    LogOrigin origin;
    std::memset(&origin, 'o', sizeof origin);
    origin.uiInterface = 7;
    TaskHandle task{};
    EXPECT_EQ(LIB_SSL_ImportRootCert(&origin, "no-slash.pem", 1000, &task), 0x18000006u);
    const std::string entry = ReadLines(BMCSIM_OPERATE_LOG).at(0);
    EXPECT_EQ(entry.rfind("7\t67\tFailed to import root certificate.\t" + std::string(32, 'o') +
                              "\t" + std::string(46, 'o') + "\t",
                          0),
              0u)
        << entry;
}

} // namespace
} // namespace bmctest
