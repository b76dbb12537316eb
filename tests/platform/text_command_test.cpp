// Diagnostic lines, bounded copies, command results and output capture.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/bmc_sim.h"
#include "tests/support/diag_log.h"

namespace {

TEST(DiagLog, EscapedWholeLinesWithBaseName) {
    bmctest::ClearDiagLog();
    BMC_DiagLogOut(7, 2, 3, 42, "/src/sslcert/cert_info.cpp", "a\\b\n%s\t%d", "c", 5);
    std::ifstream in(BMCSIM_DIAG_LOG);
    std::string raw;
    ASSERT_TRUE(std::getline(in, raw));
    EXPECT_EQ(raw, "7\t2\t3\tcert_info.cpp\t42\ta\\\\b\\nc\\t5");

    // Writers in several threads never mix their lines; over-long text is cut.
    const std::string body(3000, 'x');
    std::vector<std::thread> writers;
    for (uint32_t t = 0; t < 4; ++t)
        writers.emplace_back([&, t] {
            for (int i = 0; i < 100; ++i)
                BMC_DiagLogOut(1, t, 2, i, "w.cpp", "%u%s", t, body.c_str());
        });
    for (auto &w : writers)
        w.join();
    BMC_DiagLogOut(1, 9, 1, 1, "w.cpp", "%s", std::string(10000, 'y').c_str());
    auto records = bmctest::ReadDiagLog();
    ASSERT_EQ(records.size(), 402u);
    for (size_t i = 1; i < 401; ++i)
        ASSERT_EQ(records[i].message, std::to_string(records[i].subModule) + body);
    EXPECT_EQ(records[401].message, std::string(4095, 'y'));
}

TEST(Text, BoundedCopiesCutAndTerminate) {
    char buf[6] = "#####";
    EXPECT_EQ(BMC_Strlcpy(buf, "abc", 0), 3u);
    EXPECT_EQ(buf[0], '#');
    EXPECT_EQ(BMC_Strlcpy(buf, "abcdefgh", sizeof buf), 8u);
    EXPECT_STREQ(buf, "abcde");

    BMC_Strlcpy(buf, "ab", sizeof buf);
    EXPECT_EQ(BMC_Strlcat(buf, "cdefg", sizeof buf), 7u);
    EXPECT_STREQ(buf, "abcde");
    EXPECT_EQ(BMC_Strlcat(buf, "q", 3), 4u); // no terminator within the size: left alone
    EXPECT_STREQ(buf, "abcde");

    EXPECT_EQ(BMC_Scnprintf(buf, sizeof buf, "%d-%s", 12, "xyz"), 5);
    EXPECT_STREQ(buf, "12-xy");
    EXPECT_EQ(BMC_Scnprintf(buf, sizeof buf, "%s", "ab"), 2);
    EXPECT_EQ(BMC_Scnprintf(buf, 0, "%s", "ab"), 0);
    EXPECT_EQ(BMC_Scnprintf(buf, 1, "%s", "ab"), 0);
    EXPECT_STREQ(buf, "");
}

TEST(Command, SystemResultAndSpawnCount) {
    uint64_t before = BMCSIM_SpawnCount();
    EXPECT_EQ(BMC_System("exit 0"), 0u);
    for (const char *failing : {"exit 3", "/nonexistent/program", "kill -9 $$"}) {
        SCOPED_TRACE(failing);
        EXPECT_EQ(BMC_System(failing), BMC_PLATFORM_FAIL);
    }
    EXPECT_EQ(BMC_System(nullptr), BMC_PLATFORM_FAIL);
    EXPECT_EQ(BMCSIM_SpawnCount(), before + 4);
}

TEST(Command, CaptureCutsToBufferAndDrainsTheRest) {
    const char *lots = "head -c 100000 /dev/zero | tr '\\0' x"; // more than a pipe holds
    struct Case {
        const char *cmd;
        bool firstLine;
        uint32_t size;
        std::string expected;
    } cases[] = {{"printf 'ab\\ncd\\n'; exit 5", false, 64, "ab\ncd\n"},
                 {"printf 'ab\\ncd\\n'", true, 64, "ab\n"},
                 {"printf 'abcdef\\n'", true, 4, "abc"},
                 {lots, false, 64, std::string(63, 'x')},
                 {lots, true, 1, ""}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.cmd);
        std::string buf(c.size + 8, '#');
        EXPECT_EQ(c.firstLine ? BMC_GetCmdOutLineBuffer(c.cmd, c.size, buf.data())
                              : BMC_GetCmdOutAllBuffer(c.cmd, c.size, buf.data()),
                  0);
        EXPECT_EQ(std::string(buf.c_str()), c.expected);
        EXPECT_EQ(buf.substr(c.size), std::string(8, '#'));
    }
    char buf[4];
    EXPECT_NE(BMC_GetCmdOutAllBuffer("true", 0, buf), 0);
    EXPECT_NE(BMC_GetCmdOutLineBuffer("true", sizeof buf, nullptr), 0);
}

} // namespace
