// Configuration database writers in several processes, and the fault
// switch. Exact-size reads are checked through every reader of the records
// (tests/hostile); the cost of a cached read is measured by the benchmarks.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "platform/host/bmc_sim.h"

namespace {

TEST(ConfigDb, WritersInSeveralProcesses) {
    BMC_Db *db = DB_GetCurrentDb(); // opened before the fork on purpose
    ASSERT_NE(db, nullptr);
    constexpr uint32_t kEach = 100;
    std::vector<pid_t> children;
    for (uint32_t c = 0; c < 3; ++c) {
        pid_t pid = fork();
        ASSERT_GE(pid, 0);
        if (pid == 0) {
            if (DB_GetCurrentDb() == db) _exit(3); // a connection of its own
            bool ok = true;
            for (uint32_t i = 0; i < kEach; ++i) {
                uint32_t value = c * 1000 + i;
                ok &= DB_PutInternal(__FILE__, __LINE__, db, 1000 + value, 4, &value) == 0;
                ok &= DB_PutInternal(__FILE__, __LINE__, db, 999, 4, &value) == 0;
            }
            _exit(ok ? 0 : 1);
        }
        children.push_back(pid);
    }
    for (pid_t pid : children) {
        int status = 0;
        ASSERT_EQ(waitpid(pid, &status, 0), pid);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    uint32_t value = 0;
    for (uint32_t c = 0; c < 3; ++c)
        for (uint32_t i = 0; i < kEach; ++i) {
            ASSERT_EQ(DB_Get(db, 1000 + c * 1000 + i, 4, &value), 0);
            ASSERT_EQ(value, c * 1000 + i);
        }
    EXPECT_EQ(DB_Get(db, 999, 4, &value), 0);
    EXPECT_EQ(value % 1000, kEach - 1); // each child's last write is its last value
}

// The library tests switch faults on by name; a switch must answer without
// doing the work, match the whole name and ignore a value it cannot read.
TEST(Faults, WholeNamesAndReadableValuesOnly) {
    const uint64_t spawns = BMCSIM_SpawnCount();
    setenv(BMCSIM_ENV_FAULTS, "BMC_System=7", 1);
    EXPECT_EQ(BMC_System("exit 0"), 7u);
    EXPECT_EQ(BMCSIM_SpawnCount(), spawns);
    setenv(BMCSIM_ENV_FAULTS, "BMC_SystemX=1,BMC_System=junk", 1);
    EXPECT_EQ(BMC_System("exit 0"), 0u);
    unsetenv(BMCSIM_ENV_FAULTS);

    // The hardware flag reads its variable the same way.
    setenv(BMCSIM_ENV_OEM_FLAG, "0x1A", 1);
    EXPECT_EQ(HW_LIB_GetOemFlag(), 26u);
    setenv(BMCSIM_ENV_OEM_FLAG, "26x", 1);
    EXPECT_EQ(HW_LIB_GetOemFlag(), 0u);
    unsetenv(BMCSIM_ENV_OEM_FLAG);
}

} // namespace
