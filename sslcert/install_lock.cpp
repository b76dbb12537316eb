// One installation at a time, across threads and processes.
#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

constexpr const char *kInstallLock = "sslcert_install.lock";

// How deep the calling thread is inside installations that hold the lock:
// only the outermost takes and gives back the platform lock, which is not
// re-entrant.
thread_local unsigned t_installDepth = 0;

} // namespace

InstallationLock::InstallationLock() {
    if (t_installDepth == 0 && BMC_FileLock_AcquireLock(kInstallLock, &handle_) != 0) {
        // Unserialised, two installations could delete each other's journal
        // and mix their files: the caller gives up instead.
        handle_ = 0;
        BMCCERT_DIAG(kLevelHandling, "Take the installation lock %s failed!\n", kInstallLock);
        return;
    }
    ++t_installDepth;
    held_ = true;
}

InstallationLock::~InstallationLock() {
    if (!held_) return;
    --t_installDepth;
    if (handle_ != 0) (void)BMC_FileLock_ReleaseLock(handle_);
}

} // namespace bmccert::sslcert
