// Rendering and argument parsing of the command-line tool, where a wrong
// byte would make its JSON unreadable or its terminal output unsafe.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <string>

#include "cert_type.h"
#include "csr_request.h"
#include "info_format.h"
#include "json_writer.h"
#include "lib_security_sslcert_ext.h"
#include "result_codes.h"
#include "frame/field_text.h"
#include "platform/bmc_platform.h"
#include "platform/owner_protocol.h"

namespace bmccert::cli {
namespace {

std::string Quoted(std::string_view text) {
    std::string out;
    AppendJsonString(out, text);
    return out;
}

TEST(JsonString, EscapesWhatJsonForbidsKeepsUtf8AndReplacesEachBrokenByte) {
    EXPECT_EQ(Quoted("a\"b\\c"), R"("a\"b\\c")");
    EXPECT_EQ(Quoted(std::string_view("\0\x01\x1f", 3)), R"("\u0000\u0001\u001f")");
    EXPECT_EQ(Quoted("\n\t\r\b\f"), R"("\n\t\r\b\f")");
    EXPECT_EQ(Quoted("\x7f/"), "\"\x7f/\"");
    EXPECT_EQ(Quoted("M\xc3\xbcnchen \xe2\x82\xac"), "\"M\xc3\xbcnchen \xe2\x82\xac\"");
    EXPECT_EQ(Quoted("\x80"), R"("\ufffd")");
    EXPECT_EQ(Quoted("\xff\xfe"), R"("\ufffd\ufffd")");
    // Truncated at the end of the field: no read past it.
    EXPECT_EQ(Quoted("x\xe2\x82"), R"("x\ufffd\ufffd")");
    EXPECT_EQ(Quoted("\xc0\xaf"), R"("\ufffd\ufffd")");           // overlong
    EXPECT_EQ(Quoted("\xed\xa0\x80"), R"("\ufffd\ufffd\ufffd")"); // surrogate
    EXPECT_EQ(Quoted("\xf4\x90\x80\x80"), R"("\ufffd\ufffd\ufffd\ufffd")");
    // A lead byte followed by a quote keeps the quote escaped.
    EXPECT_EQ(Quoted("\xc3\""), R"("\ufffd\"")");
}

TEST(CertType, AcceptsOnlyPlainDecimalIn32Bits) {
    EXPECT_EQ(ParseUnsignedDecimal("0"), 0u);
    EXPECT_EQ(ParseUnsignedDecimal("7"), 7u);
    EXPECT_EQ(ParseUnsignedDecimal("010"), 10u);
    EXPECT_EQ(ParseUnsignedDecimal("4294967295"), 4294967295u);
    for (const char *bad : {"", "abc", "4294967296", "99999999999999999999", "-1", "+1", " 1", "1 ",
                            "0x7", "1.5", "6a"}) {
        EXPECT_FALSE(ParseUnsignedDecimal(bad).has_value()) << '"' << bad << '"';
    }
}

// A record whose text fields carry no NUL at all: every field must end at
// its own array, not run on into the next one.
SSLCertInfo UnterminatedRecord() {
    SSLCertInfo info;
    std::memset(&info, 'A', sizeof info);
    info.stKeyFileInfo.ucCertType = 4;
    info.stSSLConfig.uiPublicKeyLen = 2048;
    info.stSSLConfig.stIssueTo.uiValidDays = 365;
    std::memset(info.stSSLConfig.stIssueTo.szCountryCode, 'C',
                sizeof info.stSSLConfig.stIssueTo.szCountryCode);
    return info;
}

TEST(InfoFormat, JsonAndTextBoundEveryFieldByItsArray) {
    SSLCertInfo dated = UnterminatedRecord();
    std::strcpy(dated.stSSLConfig.szExpDate, "2026-01-11T00:00:00Z");
    const std::string json = FormatInfoJson(dated, 1767916800 + 3600); // 2026-01-09T01:00:00Z
    EXPECT_EQ(json.rfind(R"({"type":4,"type_name":"factory-default",)", 0), 0u);
    EXPECT_EQ(json.back(), '\n');
    for (const std::string &piece : {"\"version\":\"" + std::string(64, 'A') + "\",",
                                     "\"key_usage\":\"" + std::string(255, 'A') + "\",",
                                     "\"cert_file_time\":\"" + std::string(126, 'A') + "\",",
                                     std::string(R"("country":"CCC","email")"),
                                     std::string(R"("not_after":1768089600,"not_after_text":"2026-01-11T00:00:00Z","days_left":1,)"),
                                     std::string(R"("certificate":{"version")"),
                                     std::string(R"("key_bits":2048,)")})
        EXPECT_NE(json.find(piece), std::string::npos) << piece;
    // An unreadable date keeps its text and gives no number.
    EXPECT_EQ(json.find(R"("not_before":)"), std::string::npos) << json;

    // The text also shows control bytes escaped, never raw to a terminal.
    SSLCertInfo info = UnterminatedRecord();
    std::strcpy(info.stSSLConfig.stIssueFrom.szCommonName, "\x1b[2Jroot\tca");
    const std::string text = FormatInfoText(info);
    for (const std::string &piece :
         {std::string("Type:                     4 factory-default\n"),
          std::string("Public key length (bits): 2048\n"),
          "Version:                  " + std::string(64, 'A') + "\n",
          std::string("Issuer:\n  CN:                     \\x1B[2Jroot\\x09ca\n"),
          std::string("Subject:\n"), std::string("  C:                      CCC\n")})
        EXPECT_NE(text.find(piece), std::string::npos) << piece;
    EXPECT_EQ(text.find('\x1b'), std::string::npos);
}

// The pending request as the library hands it back: a count past the
// array and unterminated names must not be read past; a subject's control
// bytes reach neither the terminal nor the JSON raw.
TEST(RequestFormat, BoundedByTheArrayAndEscaped) {
    SSLCertRequest request{};
    std::strcpy(request.szCommonName, "bmc\x1b[2J");
    request.uiAltNameCount = 1000;
    for (SSLCertAltName &entry : request.astAltNames) {
        entry.uiType = SSLCERT_EXT_ALT_NAME_IP;
        std::memset(entry.szName, 'n', sizeof entry.szName);
    }
    const std::string text = FormatRequestText(request);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 8 + 1 + 1 + 16) << text;
    EXPECT_NE(text.find("  CN:                     bmc\\x1B[2J\n"), std::string::npos);
    const std::string unterminated(256, 'n');
    EXPECT_NE(text.find("  IP:                     " + unterminated + "\n"), std::string::npos);
    const std::string json = FormatRequestJson(request, "PEM\n");
    EXPECT_EQ(json.rfind(R"({"subject":{"common_name":"bmc\u001b[2J",)", 0), 0u) << json;
    EXPECT_NE(json.find(R"({"type":"ip","name":")" + unterminated + R"("}],"pem":"PEM\n"})"),
              std::string::npos);
    EXPECT_EQ(FormatRequestJson(request, "").find("\"pem\""), std::string::npos);
}

// Every result code a header names, found by parsing the three headers, so
// that a code added to a header without a line in `bmccert explain` fails
// here.
TEST(ExplainTable, KnowsEveryCodeTheHeadersName) {
    const std::regex define(R"(#define\s+(\w+)\s+(0x[0-9A-Fa-f]{8})u)");
    const std::regex codeName(R"(.*_(ERR|MGMT)_.*|SSLCERT_OK)");
    size_t codes = 0;
    for (const char *header :
         {"lib_security_sslcert.h", "lib_ssl_auth.h", "lib_security_sslcert_ext.h"}) {
        std::ifstream in(std::string(BMCCERT_INCLUDE_DIR "/") + header);
        ASSERT_TRUE(in) << header;
        std::stringstream text;
        text << in.rdbuf();
        const std::string body = text.str();
        for (std::sregex_iterator it(body.begin(), body.end(), define), end; it != end; ++it) {
            const std::string name = (*it)[1];
            const auto value = static_cast<uint32_t>(std::stoul((*it)[2], nullptr, 16));
            SCOPED_TRACE(std::string(header) + ": " + name);
            const uint32_t family = value >> 24;
            const bool inFamily = family == 0x18 || family == 0x81 || family == 0x82 ||
                                  family == 0x8A || family == 0x92 || family == 0x98;
            if (!std::regex_match(name, codeName)) {
                EXPECT_FALSE(inFamily) << "a code value under a name that is not a code's";
                continue;
            }
            ++codes;
            const auto entry = FindResultCode(value);
            ASSERT_TRUE(entry.has_value());
            EXPECT_EQ(entry->name, name);
        }
    }
    EXPECT_GE(codes, 70u); // the parse found the headers' codes at all
}

// Codes the library logs or hands on without a header's name: the record
// owner's refusals and the platform's failures. (The unit's own codes and
// its maps are the headers' names, which the test above holds.)
TEST(ExplainTable, KnowsTheCodesTheLibraryHandsOn) {
    using namespace owner_protocol;
    for (const uint32_t code :
         {kRefusedBadCertificate, kRefusedListFull, kRefusedInUse, kRefusedAbsent,
          kRefusedRootExpired, kRefusedRootAbsent, kRefusedCaInstall, uint32_t{BMC_PLATFORM_FAIL},
          uint32_t{BMC_PLATFORM_RPC_FAIL}, uint32_t{BMC_PLATFORM_RPC_TIMEOUT}}) {
        SCOPED_TRACE(code);
        EXPECT_TRUE(FindResultCode(code).has_value());
    }
}

// What a code tells a front end of the certificate in force, and a value
// that is no code leaves the caller's pointers alone.
TEST(ExplainTable, TellsWhetherTheCertificateInForceChanged) {
    const std::pair<uint32_t, uint32_t> rows[] = {
        {SSLCERT_EXT_ERR_RESTART, SSLCERT_EXT_IN_FORCE_CHANGED},
        {SSLCERT_EXT_ERR_INSTALL, SSLCERT_EXT_IN_FORCE_UNCHANGED},
        {SSLCERT_EXT_ERR_INSTALL_PENDING, SSLCERT_EXT_IN_FORCE_DEPENDS},
    };
    for (const auto &[code, inForce] : rows) {
        uint32_t told = 99;
        EXPECT_EQ(LIB_SECURITY_SSL_DescribeResult(code, nullptr, nullptr, &told), 0u);
        EXPECT_EQ(told, inForce) << code;
    }
    const char *name = "kept";
    EXPECT_EQ(LIB_SECURITY_SSL_DescribeResult(0x8A0000FFu, &name, nullptr, nullptr),
              SSLCERT_EXT_ERR_UNKNOWN_CODE);
    EXPECT_STREQ(name, "kept");
}

TEST(ExplainParse, TakesHexadecimalAndTheLogsSignedDecimal) {
    struct Row {
        const char *text;
        std::optional<uint32_t> code;
    };
    const Row rows[] = {
        {"0x98000004", 0x98000004u},
        {"0X1800e15", 0x01800E15u},
        {"98000004", 0x98000004u}, // hexadecimal without 0x, as before
        {"0", 0u},
        {"-1744830456", 0x98000008u},
        {"-1", 0xFFFFFFFFu},
        {"iRet=-1744830456", 0x98000008u},
        {"iRet = -2130706431,", 0x81000001u},
        {"Ret = 0", 0u},
        {"iRet: 402656789", 0x18000E15u},
        {"iRet=4294967295", 0xFFFFFFFFu},
        {"-2147483649", std::nullopt},
        {"iRet=4294967296", std::nullopt},
        {"iRet=0x98000004", std::nullopt},
        {"iRet=", std::nullopt},
        {"-", std::nullopt},
        {"-0x5", std::nullopt},
        {"", std::nullopt},
        {"0x123456789", std::nullopt},
        {"98000004 ", std::nullopt},
        {"+5", std::nullopt},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(ParseResultCode(row.text), row.code);
    }
}

} // namespace
} // namespace bmccert::cli
