// The stand-in keeps its state under one directory that a sandbox may
// mount empty, so every writer creates what it needs on first use.
#include <cstring>

#include <limits.h>
#include <sys/stat.h>

#include "sim_internal.h"

namespace bmcsim {

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

} // namespace bmcsim
