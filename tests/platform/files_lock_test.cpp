// Atomic copy, size and time of files; named locks that exclude threads of
// one process as they exclude processes.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/host/bmc_sim.h"

namespace {

namespace fs = std::filesystem;

std::string Slurp(const fs::path &p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

TEST(Files, CopySizeAndModifyTime) {
    const fs::path dir = fs::path(BMCSIM_STATE_DIR) / "files-test";
    const fs::path src = dir / "src", dst = dir / "dst";
    fs::create_directories(dir);
    std::string bytes(70000, '\0');
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<char>(i * 7);
    std::ofstream(src, std::ios::binary) << bytes;
    fs::permissions(src, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    std::ofstream(dst) << "old";

    ASSERT_EQ(BMC_CopyFile(src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(Slurp(dst), bytes);
    struct stat st;
    ASSERT_EQ(stat(dst.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0640u);
    errno = 0;
    EXPECT_NE(BMC_CopyFile((dir / "absent").c_str(), dst.c_str()), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_NE(BMC_CopyFile(src.c_str(), (dir / "no-dir" / "dst").c_str()), 0);
    EXPECT_EQ(Slurp(dst), bytes);
    // No temporary copy is left behind, whatever the outcome.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 2);

    EXPECT_EQ(BMC_GetFileSize(src.c_str()), 70000);
    errno = 0;
    EXPECT_LE(BMC_GetFileSize((dir / "absent").c_str()), 0);
    EXPECT_EQ(errno, ENOENT);
    // Sized and dated with this code's own 64-bit off_t and time_t: the C++
    // library of a 32-bit target may have been built with narrower ones.
    ASSERT_EQ(truncate(dst.c_str(), 3LL << 30), 0); // sparse, takes no disk space
    EXPECT_EQ(BMC_GetFileSize(dst.c_str()), INT32_MAX);

    // A time past 2038 comes back whole.
    const struct timespec times[2] = {{4107542400, 0}, {4107542400, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, src.c_str(), times, 0), 0);
    BMC_TimeStamp stamp = 0;
    EXPECT_EQ(BMC_GetFileModifyTimeStamp(src.c_str(), &stamp), 0);
    EXPECT_EQ(stamp, 4107542400);
    EXPECT_EQ(BMC_GetFileModifyTimeStamp((dir / "absent").c_str(), &stamp),
              static_cast<int32_t>(BMC_PLATFORM_FAIL));
    fs::remove_all(dir);
}

TEST(FileLock, SecondThreadWaitsForRelease) {
    uint32_t first = 0;
    ASSERT_EQ(BMC_FileLock_AcquireLock("threads", &first), 0);
    std::atomic<bool> released{false}, acquired{false}, acquiredAfterRelease{false};
    std::thread other([&] {
        uint32_t second = 0;
        if (BMC_FileLock_AcquireLock("threads", &second) != 0) return;
        acquiredAfterRelease = released.load();
        acquired = true;
        (void)BMC_FileLock_ReleaseLock(second);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(150));
    released = true;
    EXPECT_EQ(BMC_FileLock_ReleaseLock(first), 0);
    other.join();
    EXPECT_TRUE(acquired && acquiredAfterRelease);

    EXPECT_NE(BMC_FileLock_ReleaseLock(first), 0); // given back already
    EXPECT_NE(BMC_FileLock_ReleaseLock(0), 0);
    uint32_t handle = 0;
    for (const char *bad : {"", "a/b", "..", static_cast<const char *>(nullptr)})
        EXPECT_NE(BMC_FileLock_AcquireLock(bad, &handle), 0);
    EXPECT_EQ(handle, 0u);
}

TEST(FileLock, SecondProcessWaitsForRelease) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        uint32_t handle = 0;
        if (BMC_FileLock_AcquireLock("processes", &handle) != 0) _exit(1);
        (void)!write(ends[1], "L", 1);
        usleep(200000);
        // Said before the release: the parent must not hold the lock before
        // it can read this.
        (void)!write(ends[1], "R", 1);
        _exit(BMC_FileLock_ReleaseLock(handle) == 0 ? 0 : 2);
    }
    close(ends[1]);
    char c = 0;
    ASSERT_TRUE(read(ends[0], &c, 1) == 1 && c == 'L');
    uint32_t handle = 0;
    ASSERT_EQ(BMC_FileLock_AcquireLock("processes", &handle), 0);
    ASSERT_EQ(fcntl(ends[0], F_SETFL, O_NONBLOCK), 0);
    EXPECT_TRUE(read(ends[0], &c, 1) == 1 && c == 'R');
    EXPECT_EQ(BMC_FileLock_ReleaseLock(handle), 0);
    close(ends[0]);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

} // namespace
