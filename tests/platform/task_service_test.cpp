// Task service: ids given out in turn across processes, the last report
// kept per task, and the exact lines of tasks.log.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "platform/host/bmc_sim.h"

namespace {

std::vector<std::string> LogLines() {
    std::vector<std::string> lines;
    std::ifstream in(BMCSIM_TASKS_LOG);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

std::string Hex(const void *data, size_t size) {
    std::string out;
    char digits[3];
    for (size_t i = 0; i < size; ++i) {
        std::snprintf(digits, sizeof digits, "%02x", static_cast<const unsigned char *>(data)[i]);
        out += digits;
    }
    return out;
}

uint32_t Register(const char *description) {
    TaskRegisterRecord record{};
    std::snprintf(record.szTaskDesc, sizeof record.szTaskDesc, "%s", description);
    uint32_t id = 0, tag = 0;
    EXPECT_EQ(TASK_TaskServiceRegister(&record, &id, &tag, 0x01000A05), 0);
    return id;
}

TEST(TaskService, IdsFollowEachOtherAcrossProcesses) {
    const uint32_t first = Register("first");
    ASSERT_GT(first, 0u);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) _exit(Register("in a child") == first + 1 ? 0 : 1);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(Register("third"), first + 2);

    BMCSIM_TaskState state{};
    ASSERT_EQ(BMCSIM_TaskGet(first + 1, &state), 0);
    EXPECT_STREQ(state.szDescription, "in a child");
    EXPECT_EQ(state.uiTaskType, 0x01000A05u);
    EXPECT_EQ(state.ucState, 0);
}

TEST(TaskService, KeepsTheLastReportAndLogsWholeRecords) {
    TaskRegisterRecord reg{};
    std::snprintf(reg.szTaskDesc, sizeof reg.szTaskDesc, "Server Cert import task");
    reg.uiTaskType = 0x01000A05;
    uint32_t id = 0, tag = 0;
    ASSERT_EQ(TASK_TaskServiceRegister(&reg, &id, &tag, 0x01000A05), 0);

    TaskUpdateRecord update{};
    update.uiTaskId = id;
    update.ucState = 4;
    update.ucProgress = 100;
    std::snprintf(update.szAbnormalInfo, sizeof update.szAbnormalInfo, "tab\there\\");
    ASSERT_EQ(TASK_TaskServiceUpdate(&update), 0);
    update.ucState = 2;
    std::snprintf(update.szAbnormalInfo, sizeof update.szAbnormalInfo, "done");
    ASSERT_EQ(TASK_TaskServiceUpdate(&update), 0);

    BMCSIM_TaskState state{};
    ASSERT_EQ(BMCSIM_TaskGet(id, &state), 0);
    EXPECT_EQ(state.ucState, 2);
    EXPECT_EQ(state.ucProgress, 100);
    EXPECT_STREQ(state.szText, "done");
    EXPECT_EQ(state.uiTaskTag, tag);

    // Ids never given out are refused and leave no line.
    const size_t before = LogLines().size();
    update.uiTaskId = id + 1000;
    EXPECT_NE(TASK_TaskServiceUpdate(&update), 0);
    EXPECT_NE(BMCSIM_TaskGet(id + 1000, &state), 0);
    auto lines = LogLines();
    ASSERT_EQ(lines.size(), before);
    ASSERT_GE(lines.size(), 3u);

    update.uiTaskId = id;
    update.ucState = 4;
    std::snprintf(update.szAbnormalInfo, sizeof update.szAbnormalInfo, "tab\there\\");
    const std::string expectedFailed = "update\t" + std::to_string(id) +
                                       "\t4\t100\ttab\\there\\\\\t" + Hex(&update, sizeof update);
    EXPECT_EQ(lines[lines.size() - 3], "register\t" + std::to_string(id) + "\t" +
                                           std::to_string(tag) + "\t0x01000A05\t" +
                                           Hex(&reg, sizeof reg));
    EXPECT_EQ(lines[lines.size() - 2], expectedFailed);
    EXPECT_EQ(
        lines[lines.size() - 1].rfind("update\t" + std::to_string(id) + "\t2\t100\tdone\t", 0), 0u);
}

} // namespace
