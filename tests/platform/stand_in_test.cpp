// What the library suites and the end-to-end tests never make the platform
// stand-in do: the fault switch's name matching, files past 2 GiB or 2038,
// a failed or leftover copy, diagnostics from several threads or longer than
// a line, command output longer than a pipe, time texts at their limits,
// task ids across processes, and the database connections of threads that
// end or fork. The database's writers in several processes,
// the named locks and the shared scratch file are held by the concurrency
// suite.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <atomic>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include "platform/host/bmc_sim.h"
#include "tests/support/diag_log.h"
#include "tests/support/test_certs.h"

namespace bmctest {
namespace {

namespace fs = std::filesystem;
constexpr int32_t kFail = static_cast<int32_t>(BMC_PLATFORM_FAIL);
// Record keys that no part of the system uses.
constexpr uint32_t kProbeKey = 0x7E000000;

// A switch answers without doing the work, matches the whole name and
// ignores a value it cannot read; the hardware flag reads its variable alike.
TEST(StandIn, FaultSwitchMatchesWholeNamesAndReadableValuesOnly) {
    const uint64_t spawns = BMCSIM_SpawnCount();
    setenv(BMCSIM_ENV_FAULTS, "BMC_System=7", 1);
    EXPECT_EQ(BMC_System("exit 0"), 7u);
    EXPECT_EQ(BMCSIM_SpawnCount(), spawns);
    setenv(BMCSIM_ENV_FAULTS, "BMC_SystemX=1,BMC_System=junk", 1);
    EXPECT_EQ(BMC_System("exit 0"), 0u);
    unsetenv(BMCSIM_ENV_FAULTS);
    setenv(BMCSIM_ENV_OEM_FLAG, "0x1A", 1);
    EXPECT_EQ(HW_LIB_GetOemFlag(), 26u);
    setenv(BMCSIM_ENV_OEM_FLAG, "26x", 1);
    EXPECT_EQ(HW_LIB_GetOemFlag(), 0u);
    unsetenv(BMCSIM_ENV_OEM_FLAG);
}

TEST(StandIn, CopySizeAndModifyTime) {
    const fs::path dir = fs::path(BMCSIM_STATE_DIR) / "files-test";
    const std::string src = dir / "src", dst = dir / "dst";
    fs::create_directories(dir);
    std::string bytes(70000, '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 7);
    WriteFile(src, bytes);
    ASSERT_EQ(chmod(src.c_str(), 0640), 0);
    WriteFile(dst, "old");
    ASSERT_EQ(BMC_CopyFile(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(ReadFile(dst), bytes);
    struct stat st;
    ASSERT_EQ(stat(dst.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    errno = 0;
    EXPECT_NE(BMC_CopyFile((dir / "absent").c_str(), dst.c_str()), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_NE(BMC_CopyFile(src.c_str(), (dir / "no-dir" / "dst").c_str()), 0);
    EXPECT_EQ(ReadFile(dst), bytes);
    // No temporary copy is left behind, whatever the outcome.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 2);

    EXPECT_EQ(BMC_GetFileSize(src.c_str()), 70000);
    // Sized and dated with this code's own 64-bit off_t and time_t: the C++
    // library of a 32-bit target may have been built with narrower ones.
    ASSERT_EQ(truncate(dst.c_str(), 3LL << 30), 0); // sparse, takes no disk space
    EXPECT_EQ(BMC_GetFileSize(dst.c_str()), INT32_MAX);
    const struct timespec times[2] = {{4107542400, 0}, {4107542400, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, src.c_str(), times, 0), 0);
    BMC_TimeStamp stamp = 0;
    EXPECT_EQ(BMC_GetFileModifyTimeStamp(src.c_str(), &stamp), 0);
    EXPECT_EQ(stamp, 4107542400);
    fs::remove_all(dir);
}

TEST(StandIn, DiagnosticsFromSeveralThreadsKeepTheirLinesAndLongTextIsCut) {
    ClearDiagLog();
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
    const auto diags = ReadDiags();
    ASSERT_EQ(diags.size(), 401u);
    for (size_t i = 0; i < 400; ++i)
        ASSERT_EQ(diags[i].message, std::to_string(diags[i].subModule) + body);
    EXPECT_EQ(diags[400].message, std::string(4095, 'y'));
}

TEST(StandIn, CommandCaptureCutsToTheBufferAndDrainsTheRest) {
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
}

// Round trips of whatever the parsers accept are held by the time-text
// fuzz target.
TEST(StandIn, TimeTextsAtTheirLimits) {
    struct Case {
        const char *iso, *en;
        BMC_TimeStamp stamp;
    } cases[] = {{"1970-01-01T00:00:00Z", nullptr, 0},
                 {"1969-12-31T23:59:59Z", nullptr, -1},
                 {"1900-01-01T00:00:00Z", nullptr, -2208988800},
                 {"2038-01-19T03:14:07Z", nullptr, 2147483647},
                 {"2038-01-19T03:14:08Z", "Jan 19 03:14:08 2038 GMT", 2147483648},
                 {"2038-01-05T00:00:00Z", "Jan  5 00:00:00 2038 GMT\n", 2146262400},
                 {"2024-02-29T23:59:59Z", "Feb 29 23:59:59 2024 GMT", 1709251199},
                 {"2026-11-22T19:58:47Z", "Nov 22 19:58:47 2026 GMT", 1795377527},
                 {"2100-03-01T00:00:00Z", nullptr, 4107542400},
                 {"9999-12-31T23:59:59Z", nullptr, 253402300799}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.iso);
        BMC_TimeStamp stamp = 7;
        EXPECT_EQ(BMC_IsoTimeToTimeStamp(c.iso, &stamp), 0);
        EXPECT_EQ(stamp, c.stamp);
        char text[21];
        EXPECT_EQ(BMC_TimeStampToIsoTime(c.stamp, sizeof text, text), 0);
        EXPECT_STREQ(text, c.iso);
        if (c.en == nullptr) continue;
        stamp = 7;
        EXPECT_EQ(BMC_EnTimeToTimeStamp(c.en, &stamp), 0);
        EXPECT_EQ(stamp, c.stamp);
    }
    char small[20] = "junk"; // no room for the whole text: nothing half-written
    EXPECT_EQ(BMC_TimeStampToIsoTime(0, sizeof small, small), kFail);
    EXPECT_STREQ(small, "");
    // Neither parser takes a text of the other's form.
    for (const char *text :
         {"2023-02-29T00:00:00Z", "2100-02-29T00:00:00Z", "2024-13-01T00:00:00Z",
          "2024-00-10T00:00:00Z", "2024-04-31T00:00:00Z", "2024-01-01T24:00:00Z",
          "2024-01-01T00:60:00Z", "2024-01-01T00:00:00Zx", "2024-01-01 00:00:00Z",
          "+024-01-01T00:00:00Z", "", "Feb 29 00:00:00 2023 GMT", "Foo  1 00:00:00 2024 GMT",
          "Nov 22 19:58:47 2026 UTC", "Nov 22 19:58:47 2026 GMT x", "Nov 32 19:58:47 2026 GMT",
          "Nov 22 19:58 2026 GMT"}) {
        SCOPED_TRACE(text);
        BMC_TimeStamp stamp = 7;
        EXPECT_EQ(BMC_IsoTimeToTimeStamp(text, &stamp), kFail);
        EXPECT_EQ(BMC_EnTimeToTimeStamp(text, &stamp), kFail);
        EXPECT_EQ(stamp, 7);
    }
}

TEST(StandIn, TaskIdsFollowEachOtherAcrossProcesses) {
    const auto registered = [](const char *description) {
        TaskRegisterRecord record{};
        std::snprintf(record.szTaskDesc, sizeof record.szTaskDesc, "%s", description);
        uint32_t id = 0, tag = 0;
        EXPECT_EQ(TASK_TaskServiceRegister(&record, &id, &tag, 0x01000A05), 0);
        return id;
    };
    const uint32_t first = registered("first");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) _exit(registered("in a child") == first + 1 ? 0 : 1);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(registered("third"), first + 2);
    BMCSIM_TaskState state{};
    ASSERT_EQ(BMCSIM_TaskGet(first + 1, &state), 0);
    EXPECT_STREQ(state.szDescription, "in a child");
    EXPECT_EQ(state.uiTaskType, 0x01000A05u);
    TaskUpdateRecord update{};
    update.uiTaskId = first + 1000;
    EXPECT_NE(TASK_TaskServiceUpdate(&update), 0);
}

// Each thread reads through a connection of its own; it must close when the
// thread ends, or a process that runs many short threads runs out of files.
TEST(StandIn, ConnectionsOfEndedThreadsAreClosed) {
    const auto openFiles = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator{});
    };
    const auto readBoth = [] {
        uint32_t value = 0;
        std::vector<uint8_t> users(BMC_USER_TABLE_SIZE);
        return DB_Get(DB_GetCurrentDb(), kProbeKey, sizeof value, &value) == 0 &&
               LIB_USER_GetUserInfo(users.data()) == 0;
    };
    const uint32_t value = 7;
    ASSERT_EQ(DB_PutInternal("test", 0, DB_GetCurrentDb(), kProbeKey, sizeof value, &value), 0);
    const auto runThreads = [&](int rounds) {
        for (int round = 0; round < rounds; ++round) {
            std::vector<std::thread> threads;
            std::atomic<int> failures{0};
            for (int t = 0; t < 4; ++t)
                threads.emplace_back([&] { failures += readBoth() ? 0 : 1; });
            for (auto &thread : threads)
                thread.join();
            ASSERT_EQ(failures.load(), 0);
        }
        ASSERT_TRUE(readBoth());
    };
    // SQLite keeps the database descriptors of closed connections for the
    // next ones while the file is locked: at most one for each connection
    // that was open at the same time (4 threads, 2 each). The 64 threads
    // below would leave at least 128 if their connections stayed open.
    runThreads(1);
    const auto before = openFiles();
    runThreads(16);
    EXPECT_LE(openFiles(), before + 8);
}

// A child forked while a thread of its parent may be inside the database
// must neither hang nor use the parent's connections, and must leave the
// parent's working however it ends.
TEST(StandIn, ForkedChildrenUseConnectionsOfTheirOwn) {
    struct Case {
        const char *name;
        bool readerBeside;
        bool childExits; // exit() (thread-exit cleanup runs) rather than _exit()
    };
    const Case cases[] = {
        {"idle parent, child exits", false, true},
        {"reader beside, child exits", true, true},
        {"reader beside, child _exits", true, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.name);
        std::atomic<bool> stop{false};
        std::atomic<int> readerFailures{0};
        uint32_t value = 1;
        ASSERT_EQ(DB_PutInternal("test", 0, DB_GetCurrentDb(), kProbeKey, sizeof value, &value),
                  0);
        std::thread reader;
        if (c.readerBeside)
            reader = std::thread([&] {
                std::vector<uint8_t> users(BMC_USER_TABLE_SIZE);
                while (!stop) {
                    uint32_t read = 0;
                    if (DB_Get(DB_GetCurrentDb(), kProbeKey, sizeof read, &read) != 0 ||
                        LIB_USER_GetUserInfo(users.data()) != 0)
                        ++readerFailures;
                }
            });
        constexpr uint32_t kChildren = 6;
        for (uint32_t i = 0; i < kChildren; ++i) {
            const pid_t child = fork();
            ASSERT_GE(child, 0);
            if (child == 0) {
                const uint32_t mine = 100 + i;
                uint32_t back = 0;
                std::vector<uint8_t> users(BMC_USER_TABLE_SIZE);
                const bool ok =
                    DB_PutInternal("test", 0, DB_GetCurrentDb(), kProbeKey + 1 + i, sizeof mine,
                                   &mine) == 0 &&
                    DB_Get(DB_GetCurrentDb(), kProbeKey + 1 + i, sizeof back, &back) == 0 &&
                    back == mine && LIB_USER_GetUserInfo(users.data()) == 0;
                if (c.childExits) std::exit(ok ? 0 : 1);
                _exit(ok ? 0 : 1);
            }
            int status = -1;
            const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
            while (waitpid(child, &status, WNOHANG) == 0 &&
                   std::chrono::steady_clock::now() < deadline)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            if (!WIFEXITED(status)) {
                (void)kill(child, SIGKILL);
                (void)waitpid(child, &status, 0);
                stop = true;
                if (reader.joinable()) reader.join();
                FAIL() << "child " << i << " hung";
            }
            EXPECT_EQ(WEXITSTATUS(status), 0) << "child " << i;
        }
        stop = true;
        if (reader.joinable()) reader.join();
        EXPECT_EQ(readerFailures.load(), 0);
        value = 2;
        EXPECT_EQ(DB_PutInternal("test", 0, DB_GetCurrentDb(), kProbeKey, sizeof value, &value),
                  0);
        for (uint32_t i = 0; i < kChildren; ++i) {
            uint32_t read = 0;
            EXPECT_EQ(DB_Get(DB_GetCurrentDb(), kProbeKey + 1 + i, sizeof read, &read), 0);
            EXPECT_EQ(read, 100 + i);
        }
        uint32_t read = 0;
        EXPECT_EQ(DB_Get(DB_GetCurrentDb(), kProbeKey, sizeof read, &read), 0);
        EXPECT_EQ(read, 2u);
    }
}

} // namespace
} // namespace bmctest
