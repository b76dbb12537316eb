// What the library suites and the end-to-end tests never make the platform
// stand-in do: files past 2 GiB or 2038, a failed or leftover copy,
// diagnostics from several threads or longer than a line, and the database
// connections of threads that end. The fault switches and command capture
// are used by every library suite, tasks read back by the import tests and
// the tool's, the time parsers by the time-text fuzz target; the database's
// writers in several processes, the named locks and the shared scratch file
// are held by the concurrency suite.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <filesystem>
#include <thread>

#include "platform/host/bmc_sim.h"
#include "tests/support/diag_log.h"
#include "tests/support/test_certs.h"

namespace bmctest {
namespace {

namespace fs = std::filesystem;

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
    struct stat st;
    ASSERT_EQ(stat(dst.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    errno = 0;
    EXPECT_NE(BMC_CopyFile((dir / "absent").c_str(), dst.c_str()), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_NE(BMC_CopyFile(src.c_str(), (dir / "no-dir" / "dst").c_str()), 0);
    EXPECT_EQ(ReadFile(dst), bytes); // the first copy, untouched by the failed ones
    // No temporary copy is left behind, whatever the outcome.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 2);

    // Sizes below 2 GiB are held by the upload size limits. Sized and dated with this code's own 64-bit off_t and time_t: the C++
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

// Each thread reads through a connection of its own; it must close when the
// thread ends, or a process that runs many short threads runs out of files.
// (SQLite keeps a closed connection's descriptor for the next one while the
// file is locked: at most one for each of the 4 open at once, 2 a thread;
// 64 threads would leave at least 128 if theirs stayed open.)
TEST(StandIn, ConnectionsOfEndedThreadsAreClosed) {
    const uint32_t value = 7;
    ASSERT_EQ(DB_PutInternal("test", 0, DB_GetCurrentDb(), 0x7E000000, sizeof value, &value), 0);
    std::atomic<int> failures{0};
    const auto read = [&] {
        uint32_t back = 0;
        std::vector<uint8_t> users(BMC_USER_TABLE_SIZE);
        failures += DB_Get(DB_GetCurrentDb(), 0x7E000000, sizeof back, &back) != 0 ||
                    LIB_USER_GetUserInfo(users.data()) != 0;
    };
    const auto runThreads = [&](int count) {
        for (int t = 0; t < count; t += 4) {
            std::vector<std::jthread> threads; // joined at the end of each round
            for (int k = 0; k < 4; ++k)
                threads.emplace_back(read);
        }
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator{});
    };
    const auto before = runThreads(4);
    EXPECT_LE(runThreads(64), before + 8);
    EXPECT_EQ(failures.load(), 0);
}

// Where /conf/certs is missing the stand-in makes none of its state: the
// database handle is null, locks fail, nothing is logged and the commands'
// standard error stays the caller's. Inside a controller the children's
// standard error goes to its own log.
TEST(StandIn, KeepsStateOnlyOnAController) {
    ASSERT_EQ(BMC_System("echo only-in-the-log >&2"), 0u);
    EXPECT_NE(ReadFile(BMCSIM_COMMANDS_STDERR_LOG).find("only-in-the-log\n"),
              std::string::npos);

    // The state directory is the sandbox's mount: what it holds must not
    // change while /conf/certs is away.
    auto listing = [] {
        std::vector<std::pair<std::string, uintmax_t>> entries;
        for (const auto &entry : fs::recursive_directory_iterator(BMCSIM_STATE_DIR))
            entries.emplace_back(entry.path(), entry.is_regular_file() ? entry.file_size() : 0);
        std::sort(entries.begin(), entries.end());
        return entries;
    };
    const auto before = listing();
    fs::rename("/conf/certs", "/conf/certs.away");
    std::thread fresh([] { // a thread without a database connection yet
        uint32_t handle = 0;
        EXPECT_EQ(DB_GetCurrentDb(), nullptr);
        EXPECT_NE(BMC_FileLock_AcquireLock("stand_in.lock", &handle), 0);
        BMC_DiagLogOut(31, 3, 2, 1, "here.cpp", "not kept");
        EXPECT_EQ(BMC_System("echo not-kept >&2"), 0u);
        EXPECT_EQ(OPERATELOG_AddLogComm(5, 99, "not kept", "admin", "::1", 1, 37), 0);
    });
    fresh.join();
    fs::rename("/conf/certs.away", "/conf/certs");
    EXPECT_EQ(listing(), before);
}

} // namespace
} // namespace bmctest
