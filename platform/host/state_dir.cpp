// The stand-in keeps its state under one directory that a sandbox may
// mount empty, so every writer creates what it needs on first use.
#include <cstring>

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "sim_internal.h"

namespace bmcsim {
namespace {

constexpr char kNoControllerNote[] =
    "bmc-sim: /conf/certs does not exist, so this is no controller: the platform stand-in "
    "keeps no state here and its calls fail (run inside bmc-sandbox)\n";

} // namespace

bool MakeDirs(const char *path) noexcept {
    if (path == nullptr || *path == '\0') return false;
    char buf[PATH_MAX];
    size_t len = std::strlen(path);
    if (len >= sizeof buf) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(buf, path, len + 1);
    for (size_t i = 1; i <= len; ++i) {
        if (buf[i] != '/' && buf[i] != '\0') continue;
        char saved = buf[i];
        buf[i] = '\0';
        if (::mkdir(buf, 0755) != 0 && errno != EEXIST) return false;
        buf[i] = saved;
    }
    struct stat st;
    return ::stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

bool OnController() noexcept {
    struct stat st;
    if (::stat("/conf/certs", &st) == 0 && S_ISDIR(st.st_mode)) return true;
    static std::atomic<bool> told{false};
    if (!told.exchange(true))
        (void)!::write(STDERR_FILENO,
                       kNoControllerNote, sizeof kNoControllerNote - 1);
    errno = ENOENT;
    return false;
}

} // namespace bmcsim
