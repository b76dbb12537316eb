// The private scratch directory, creation and removal of scratch files, and
// the mode of files that hold key material.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "frame/unique_fd.h"
#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

constexpr mode_t kPrivateFileMode = S_IRUSR | S_IWUSR;
constexpr mode_t kPrivateDirMode = S_IRWXU;
// Without the trailing slash, which would make the kernel follow a link
// that O_NOFOLLOW is there to refuse.
constexpr const char *kScratchDirName = "/var/certs";
static_assert(std::string_view(kScratchDir) == "/var/certs/");

[[nodiscard]] bool RefuseScratchDir(const char *why) {
    BMCCERT_DIAG(kLevelHandling, "Scratch directory %s unusable! strerrno:%s\n", kScratchDirName,
                 why);
    return false;
}

// Opens a file for writing without following a link at its name, and only
// when it is a regular file; an invalid descriptor after a report.
UniqueFd OpenRegularForWriting(const char *path, int flags) {
    UniqueFd fd(open(path, O_WRONLY | O_NOFOLLOW | O_CLOEXEC | flags, kPrivateFileMode));
    struct stat st;
    if (fd.Valid() && fstat(fd.Get(), &st) == 0 && !S_ISREG(st.st_mode)) {
        fd.Reset();
        errno = EINVAL;
    }
    if (!fd.Valid())
        BMCCERT_DIAG(kLevelHandling, "Create file %s failed! strerrno:%s\n", path,
                     std::strerror(errno));
    return fd;
}

} // namespace

bool MakeScratchDirPrivate() {
    if (mkdir(kScratchDirName, kPrivateDirMode) != 0 && errno != EEXIST)
        return RefuseScratchDir(std::strerror(errno));
    const UniqueFd dir(open(kScratchDirName, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat st;
    if (!dir.Valid() || fstat(dir.Get(), &st) != 0) return RefuseScratchDir(std::strerror(errno));
    if (st.st_uid != geteuid()) return RefuseScratchDir("owned by another user");
    if ((st.st_mode & 07777) != kPrivateDirMode && fchmod(dir.Get(), kPrivateDirMode) != 0)
        return RefuseScratchDir(std::strerror(errno));
    return true;
}

bool RemoveStaleScratch(const char *path) {
    if (unlink(path) == 0 || errno == ENOENT) return true;
    BMCCERT_DIAG(kLevelHandling, "Remove stale file %s failed! strerrno:%s\n", path,
                 std::strerror(errno));
    return false;
}

bool CreateScratchFile(const char *path) {
    // A stale entry, a planted link among them, goes: the new file is
    // always this call's own.
    if (!RemoveStaleScratch(path)) return false;
    UniqueFd fd = OpenRegularForWriting(path, O_CREAT | O_EXCL);
    // The umask may have taken the owner's bits too: the mode is set whole.
    return fd.Valid() && fchmod(fd.Get(), kPrivateFileMode) == 0 && fd.Close();
}

void RemoveScratchFileReported(const char *path) {
    if (unlink(path) != 0)
        BMCCERT_DIAG(kLevelNotice, "File %s unlink failed. %s\n", path, std::strerror(errno));
}

// A controller's private key is its identity: files that hold one are
// never left readable by group or others, whatever the process umask.
bool RestrictToOwner(const char *path) {
    if (chmod(path, S_IRUSR | S_IWUSR) == 0) return true;
    BMCCERT_DIAG(kLevelHandling, "Restrict key file %s to its owner failed! strerrno:%s\n", path,
                 std::strerror(errno));
    return false;
}

bool PreparePrivateFile(const char *path) {
    UniqueFd fd = OpenRegularForWriting(path, O_CREAT);
    return fd.Valid() && fchmod(fd.Get(), kPrivateFileMode) == 0 && ftruncate(fd.Get(), 0) == 0 &&
           fd.Close();
}

int SupplyNoPassphrase(char * /*buf*/, int /*size*/, int /*rwflag*/, void * /*userdata*/) {
    return 0;
}

} // namespace bmccert::sslcert
