// One installation at a time, across threads and processes.
#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

constexpr const char *kInstallLock = "sslcert_install.lock";

// How deep the calling thread is inside installations: only the outermost
// takes and gives back the platform lock, which is not re-entrant.
thread_local unsigned t_installDepth = 0;

} // namespace

InstallationLock::InstallationLock() {
    if (t_installDepth++ == 0) {
        // Waits until the lock is free, as the other named locks do; a
        // failed acquisition leaves the handle at 0 and the work unserialised.
        (void)BMC_FileLock_AcquireLock(kInstallLock, &handle_);
    }
}

InstallationLock::~InstallationLock() {
    --t_installDepth;
    if (handle_ != 0) (void)BMC_FileLock_ReleaseLock(handle_);
}

} // namespace bmccert::sslcert
