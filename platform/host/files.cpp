// File copy, size and time. A copy replaces its destination in one rename,
// so that a reader (or a power cut) sees the old file or the new one,
// never a half-written mix.
#include <climits>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

#include "sim_internal.h"

namespace {

// The temporary copy, removed unless it was renamed into place.
class TempFile {
  public:
    explicit TempFile(std::string path) : path_(std::move(path)) {}
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;
    ~TempFile() {
        if (!kept_) {
            bmcsim::ErrnoKeeper keep;
            (void)::unlink(path_.c_str());
        }
    }
    [[nodiscard]] const char *Path() const noexcept { return path_.c_str(); }
    void Keep() noexcept { kept_ = true; }

  private:
    std::string path_;
    bool kept_ = false;
};

[[nodiscard]] std::string DirectoryOf(const char *path) {
    const char *slash = std::strrchr(path, '/');
    if (slash == nullptr) return ".";
    if (slash == path) return "/";
    return std::string(path, static_cast<size_t>(slash - path));
}

[[nodiscard]] bool CopyBytes(int from, int to) noexcept {
    char chunk[16384];
    for (;;) {
        ssize_t got = ::read(from, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return false;
        if (got == 0) return true;
        if (!bmcsim::WriteAll(to, chunk, static_cast<size_t>(got))) return false;
    }
}

// The rename itself is only durable once the directory is on disk too; a
// failure here leaves a complete file in place, so it is not reported.
void SyncDirectory(const std::string &dir) noexcept {
    bmcsim::ErrnoKeeper keep;
    bmcsim::UniqueFd fd(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.Valid()) (void)::fsync(fd.Get());
}

} // namespace

bool bmcsim::CopyReplacing(const char *src, const char *dst, std::optional<mode_t> mode) {
    bmcsim::UniqueFd in(::open(src, O_RDONLY | O_CLOEXEC));
    struct stat st;
    if (!in.Valid() || ::fstat(in.Get(), &st) != 0) return false;

    std::string dir = DirectoryOf(dst);
    std::string pattern = dir + "/.bmc-copy-XXXXXX";
    bmcsim::UniqueFd out(::mkostemp(pattern.data(), O_CLOEXEC));
    if (!out.Valid()) return false;
    TempFile temp(std::move(pattern));

    if (::fchmod(out.Get(), mode.value_or(st.st_mode & 07777)) != 0 ||
        !CopyBytes(in.Get(), out.Get()) || ::fsync(out.Get()) != 0 || !out.Close() ||
        ::rename(temp.Path(), dst) != 0)
        return false;
    temp.Keep();
    SyncDirectory(dir);
    return true;
}

extern "C" int32_t BMC_CopyFile(const char *pcSrc, const char *pcDst) {
    if (auto fault = bmcsim::InjectedFault("BMC_CopyFile")) return static_cast<int32_t>(*fault);
    if (pcSrc == nullptr || pcDst == nullptr) {
        errno = EINVAL;
        return bmcsim::kFailSigned;
    }
    try {
        return bmcsim::CopyReplacing(pcSrc, pcDst) ? 0 : bmcsim::kFailSigned;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return bmcsim::kFailSigned;
    }
}

// A file past 2 GiB and a modification time past 2038 must read back
// whole on a 32-bit controller too.
static_assert(sizeof(off_t) == 8 && sizeof(time_t) == 8, "built without 64-bit off_t and time_t");

extern "C" int32_t BMC_GetFileSize(const char *pcPath) {
    if (auto fault = bmcsim::InjectedFault("BMC_GetFileSize")) return static_cast<int32_t>(*fault);
    struct stat st;
    if (pcPath == nullptr) {
        errno = EINVAL;
        return -1;
    }
    if (::stat(pcPath, &st) != 0) return -1;
    return st.st_size > INT32_MAX ? INT32_MAX : static_cast<int32_t>(st.st_size);
}

extern "C" int32_t BMC_GetFileModifyTimeStamp(const char *pcPath, BMC_TimeStamp *pTime) {
    if (auto fault = bmcsim::InjectedFault("BMC_GetFileModifyTimeStamp"))
        return static_cast<int32_t>(*fault);
    struct stat st;
    if (pcPath == nullptr || pTime == nullptr) {
        errno = EINVAL;
        return bmcsim::kFailSigned;
    }
    if (::stat(pcPath, &st) != 0) return bmcsim::kFailSigned;
    *pTime = static_cast<BMC_TimeStamp>(st.st_mtime);
    return 0;
}
