// Rendering and argument parsing of the command-line tool, where a wrong
// byte would make its JSON unreadable or its terminal output unsafe.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "cert_type.h"
#include "info_format.h"
#include "json_writer.h"

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
    EXPECT_EQ(ParseCertType("0"), 0u);
    EXPECT_EQ(ParseCertType("7"), 7u);
    EXPECT_EQ(ParseCertType("010"), 10u);
    EXPECT_EQ(ParseCertType("4294967295"), 4294967295u);
    for (const char *bad : {"", "abc", "4294967296", "99999999999999999999", "-1", "+1", " 1", "1 ",
                            "0x7", "1.5", "6a"}) {
        EXPECT_FALSE(ParseCertType(bad).has_value()) << '"' << bad << '"';
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
    const std::string json = FormatInfoJson(UnterminatedRecord());
    EXPECT_EQ(json.rfind(R"({"stKeyFileInfo":{"ucCertType":4,)", 0), 0u);
    EXPECT_EQ(json.back(), '\n');
    for (const std::string &piece : {"\"szVersion\":\"" + std::string(64, 'A') + "\",",
                                     "\"szKeyUsage\":\"" + std::string(255, 'A') + "\",",
                                     "\"szCertFileTime\":\"" + std::string(126, 'A') + "\",",
                                     std::string(R"("szCountryCode":"CCC","szEmailAddress")"),
                                     std::string(R"("uiValidDays":365}})"),
                                     std::string(R"("stSSLConfig":{"uiPublicKeyLen":2048,)")})
        EXPECT_NE(json.find(piece), std::string::npos) << piece;

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

} // namespace
} // namespace bmccert::cli
