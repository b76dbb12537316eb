// Removal of scratch files and the mode of files that hold key material.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {

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

} // namespace bmccert::sslcert
