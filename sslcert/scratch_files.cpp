// Removal of scratch files and the mode of files that hold key material.
#include <fcntl.h>
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

bool PreparePrivateFile(const char *path) {
    const int fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (fd < 0) return false;
    const bool restricted = fchmod(fd, S_IRUSR | S_IWUSR) == 0;
    (void)close(fd);
    return restricted;
}

int SupplyNoPassphrase(char * /*buf*/, int /*size*/, int /*rwflag*/, void * /*userdata*/) {
    return 0;
}

} // namespace bmccert::sslcert
