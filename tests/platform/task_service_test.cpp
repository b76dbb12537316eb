// Task service: ids given out in turn across processes, and updates of ids
// never given out refused. The records and log lines of a task are checked
// byte for byte through the server certificate import.
#include <gtest/gtest.h>

#include <cstdio>

#include <sys/wait.h>
#include <unistd.h>

#include "platform/host/bmc_sim.h"

namespace {

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

    TaskUpdateRecord update{};
    update.uiTaskId = first + 1000;
    update.ucState = 2;
    EXPECT_NE(TASK_TaskServiceUpdate(&update), 0);
    EXPECT_NE(BMCSIM_TaskGet(first + 1000, &state), 0);
}

} // namespace
