// Configuration database records (exact-size reads, erase, writers in
// several processes) and the fault switch. The cost of a cached read is
// measured by the benchmarks, not here.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "platform/host/bmc_sim.h"
#include "tests/support/diag_log.h"

namespace {

namespace fs = std::filesystem;

std::vector<uint8_t> Record(uint8_t seed) {
    std::vector<uint8_t> bytes(2156);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(seed + i * 31);
    return bytes;
}

TEST(ConfigDb, ExactSizeRoundTripAndErase) {
    BMC_Db *db = DB_GetCurrentDb();
    ASSERT_NE(db, nullptr);
    EXPECT_EQ(DB_GetCurrentDb(), db);
    ASSERT_EQ(DB_PutInternal(__FILE__, __LINE__, db, 10, 2156, Record(1).data()), 0);
    ASSERT_EQ(DB_PutInternal(__FILE__, __LINE__, db, 10, 2156, Record(9).data()), 0);
    std::vector<uint8_t> out(2156);
    EXPECT_EQ(DB_Get(db, 10, 2156, out.data()), 0);
    EXPECT_EQ(out, Record(9));

    const std::vector<uint8_t> untouched(2200, 0xEE);
    for (auto [key, size] : {std::pair{10u, 2155u}, {10u, 2157u}, {11u, 2156u}}) {
        SCOPED_TRACE(size);
        out = untouched;
        EXPECT_NE(DB_Get(db, key, size, out.data()), 0);
        EXPECT_EQ(out, untouched);
    }
    EXPECT_EQ(BMCSIM_DbErase(10), 0);
    EXPECT_EQ(BMCSIM_DbErase(10), 0);
    EXPECT_NE(DB_Get(db, 10, 2156, out.data()), 0);

    bmctest::ClearDiagLog();
    EXPECT_NE(DB_PutInternal("/x/caller.cpp", 77, nullptr, 10, 4, out.data()), 0);
    auto diags = bmctest::ReadDiagLog();
    ASSERT_EQ(diags.size(), 1u);
    EXPECT_EQ(std::tie(diags[0].module, diags[0].level, diags[0].file, diags[0].line),
              std::make_tuple(0u, 4u, std::string("caller.cpp"), 77));
}

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

TEST(Faults, NamedCallsAnswerTheValueWithoutWorking) {
    BMC_Db *db = DB_GetCurrentDb();
    ASSERT_NE(db, nullptr);
    const uint32_t stored = 0x1234;
    ASSERT_EQ(DB_PutInternal(__FILE__, __LINE__, db, 50, 4, &stored), 0);
    const fs::path src = fs::path(BMCSIM_STATE_DIR) / "fault-src";
    const fs::path dst = fs::path(BMCSIM_STATE_DIR) / "fault-dst";
    std::ofstream(src) << "x";

    uint32_t out = 0, other = 1;
    BMC_TimeStamp stamp = 7;
    uint64_t spawns = 0;
    auto nothing = [] { return true; };
    struct Case {
        const char *faults;
        std::function<int64_t()> call;
        int64_t result;
        std::function<bool()> untouched;
    } cases[] = {
        {"DB_GetCurrentDb=0", [] { return DB_GetCurrentDb() != nullptr; }, 0, nothing},
        {"DB_GetCurrentDb=5", [] { return DB_GetCurrentDb() != nullptr; }, 0, nothing},
        {"DB_Get=0x81000002", [&] { return DB_Get(db, 50, 4, &out); },
         static_cast<int32_t>(0x81000002), [&] { return out == 0; }},
        {"BMC_System=9,DB_PutInternal=0x10",
         [&] { return DB_PutInternal(__FILE__, __LINE__, db, 50, 4, &other); }, 0x10,
         [&] { return DB_Get(db, 50, 4, &out) == 0 && out == stored; }},
        {"BMC_System=7", [] { return BMC_System("exit 0"); }, 7,
         [&] { return BMCSIM_SpawnCount() == spawns; }},
        {"BMC_CopyFile=3", [&] { return BMC_CopyFile(src.c_str(), dst.c_str()); }, 3,
         [&] { return !fs::exists(dst); }},
        {"BMC_GetFileModifyTimeStamp=0",
         [&] { return BMC_GetFileModifyTimeStamp(src.c_str(), &stamp); }, 0,
         [&] { return stamp == 7; }},
        // Names match whole; an unreadable value switches nothing.
        {"BMC_SystemX=1,BMC_System=junk", [] { return BMC_System("exit 0"); }, 0, nothing},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.faults);
        spawns = BMCSIM_SpawnCount();
        setenv(BMCSIM_ENV_FAULTS, c.faults, 1);
        EXPECT_EQ(c.call(), c.result);
        unsetenv(BMCSIM_ENV_FAULTS);
        EXPECT_TRUE(c.untouched());
    }
    EXPECT_EQ(DB_GetCurrentDb(), db);
    fs::remove(src);

    // The hardware flag reads its variable the same way.
    setenv(BMCSIM_ENV_OEM_FLAG, "0x1A", 1);
    EXPECT_EQ(HW_LIB_GetOemFlag(), 26u);
    setenv(BMCSIM_ENV_OEM_FLAG, "26x", 1);
    EXPECT_EQ(HW_LIB_GetOemFlag(), 0u);
    unsetenv(BMCSIM_ENV_OEM_FLAG);
}

} // namespace
