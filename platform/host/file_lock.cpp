// Named locks shared by threads and processes. Each acquisition opens its
// own open file description, because flock() belongs to the description:
// two threads sharing one descriptor would both "hold" the lock.
#include <climits>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <set>

#include <fcntl.h>
#include <sys/file.h>

#include "sim_internal.h"

namespace {

// Descriptors handed out as lock handles. A stale or repeated release must
// not close a descriptor that now belongs to someone else.
std::mutex g_heldMutex;
std::set<int> g_held;

[[nodiscard]] bool ValidName(const char *name) noexcept {
    if (name == nullptr || *name == '\0' || std::strchr(name, '/') != nullptr) return false;
    return std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0;
}

[[nodiscard]] bmcsim::UniqueFd OpenLockFile(const char *name) noexcept {
    char path[PATH_MAX];
    int len = std::snprintf(path, sizeof path, "%s/%s", BMCSIM_LOCK_DIR, name);
    if (len < 0 || static_cast<size_t>(len) >= sizeof path || !bmcsim::OnController())
        return bmcsim::UniqueFd();
    constexpr int kFlags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW;
    bmcsim::UniqueFd fd(::open(path, kFlags, 0644));
    if (!fd.Valid() && errno == ENOENT && bmcsim::MakeDirs(BMCSIM_LOCK_DIR))
        fd.Reset(::open(path, kFlags, 0644));
    return fd;
}

} // namespace

extern "C" int32_t BMC_FileLock_AcquireLock(const char *pcLockName, uint32_t *puiHandle) {
    if (puiHandle == nullptr || !ValidName(pcLockName)) return bmcsim::kFailSigned;
    bmcsim::UniqueFd fd = OpenLockFile(pcLockName);
    if (!fd.Valid()) return bmcsim::kFailSigned;
    while (::flock(fd.Get(), LOCK_EX) != 0) {
        if (errno != EINTR) return bmcsim::kFailSigned;
    }
    try {
        std::lock_guard lock(g_heldMutex);
        g_held.insert(fd.Get());
    } catch (const std::bad_alloc &) {
        return bmcsim::kFailSigned; // closing the descriptor gives the lock back
    }
    *puiHandle = static_cast<uint32_t>(fd.Release()) + 1;
    return 0;
}

extern "C" int32_t BMC_FileLock_ReleaseLock(uint32_t uiHandle) {
    if (uiHandle == 0 || uiHandle - 1 > INT_MAX) return bmcsim::kFailSigned;
    int raw = static_cast<int>(uiHandle - 1);
    {
        std::lock_guard lock(g_heldMutex);
        if (g_held.erase(raw) == 0) return bmcsim::kFailSigned;
    }
    bmcsim::UniqueFd fd(raw);
    // Unlock explicitly: a forked child may still share the description,
    // and closing alone would then keep the lock held.
    bool unlocked = ::flock(fd.Get(), LOCK_UN) == 0;
    return unlocked && fd.Close() ? 0 : bmcsim::kFailSigned;
}
