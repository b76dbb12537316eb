// Diagnostic lines written at once and output capture. Bounded copies and
// command results are exercised by every library call that formats a text
// or runs a command.
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/host/bmc_sim.h"
#include "tests/support/diag_log.h"

namespace {

// The escaping, the base name and the fields are read back by every library
// test that asserts a report; what those never do is write from several
// threads at once or write more than a line holds.
TEST(DiagLog, WritersInSeveralThreadsNeverMixTheirLinesAndLongTextIsCut) {
    bmctest::ClearDiagLog();
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
    ASSERT_EQ(records.size(), 401u);
    for (size_t i = 0; i < 400; ++i)
        ASSERT_EQ(records[i].message, std::to_string(records[i].subModule) + body);
    EXPECT_EQ(records[400].message, std::string(4095, 'y'));
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
