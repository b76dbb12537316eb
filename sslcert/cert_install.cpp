// Installation of a certificate and key from a temporary location as the
// user certificate: the pair, the combined file for the web server, the
// tunnel configuration and the stored information record, all or nothing
// (see install_journal.cpp).
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr size_t kCommandSize = 256;

// The paths the installation writes into the tunnel configuration (here
// and in its journal) pass the writer's own check, when the library is
// built: a change of the layout cannot make an installation fail there.
static_assert(FitsTunnelLine(kTunnelCertOption, kUserCertPath) &&
              FitsTunnelLine(kTunnelKeyOption, kUserKeyPath));

bool Exists(const char *path) {
    return access(path, F_OK) == 0;
}

// The installation's own steps, in their order; false after the failing
// step's report.
bool RunInstallationSteps(const char *tmpCert, const char *tmpKey) {
    if (BMC_CopyFile(tmpCert, kUserCertPath) != 0) {
        BMCCERT_DIAG(kLevelHandling, "Copy certificate file from %s to %s failed! strerrno:%s\n",
                     tmpCert, kUserCertPath, std::strerror(errno));
        return false;
    }
    if (BMC_CopyFile(tmpKey, kUserKeyPath) != 0) {
        BMCCERT_DIAG(kLevelHandling, "Copy private key file from %s to %s failed! strerrno:%s\n",
                     tmpKey, kUserKeyPath, std::strerror(errno));
        return false;
    }
    if (!RestrictToOwner(kUserKeyPath)) return false;

    char command[kCommandSize] = {};
    (void)BMC_Scnprintf(command, sizeof command, "cat %s %s > %s", kUserCertPath, kUserKeyPath,
                        kCombinedPath);
    // A failed command sets no errno: its report says so rather than show
    // whatever an earlier call left there.
    const bool prepared = PreparePrivateFile(kCombinedPath);
    if (!prepared || BMC_System(command) != 0) {
        BMCCERT_DIAG(kLevelHandling, "Merging cert file and privkey failed! strerrno:%s\n",
                     prepared ? "none, the command reports only its status" : std::strerror(errno));
        return false;
    }
    if (!RestrictToOwner(kCombinedPath)) return false;

    if (const uint32_t result = LIB_SECURITY_SSL_ModStunnelConfFile(kUserCertPath, kUserKeyPath);
        result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Modify stunnel.conf file failed! iRet=%d.\n", result);
        return false;
    }

    return true;
}

} // namespace
} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t SECURITY_SSL_UpdateSSLCert(const char *pcTmpCert, const char *pcTmpPrivkey) {
    BMCCERT_CHECK_NULL(pcTmpCert, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pcTmpPrivkey, SSLCERT_ERR_NULL_POINTER);
    const InstallationLock installing;
    if (!installing.Held() || !CompletePendingInstallation()) return SSLCERT_ERR_GENERAL;

    if (!Exists(pcTmpCert)) {
        BMCCERT_DIAG(kLevelFailure, "Tmp Cert File %s is not exist!\n", pcTmpCert);
        return SSLCERT_ERR_GENERAL;
    }
    if (!Exists(pcTmpPrivkey)) {
        BMCCERT_DIAG(kLevelFailure, "Tmp Privkey File %s is not exist!\n", pcTmpPrivkey);
        return SSLCERT_ERR_GENERAL;
    }
    // A copy may carry the source's mode: the source is made private first
    // so that the installed key is never readable by others, not even
    // between the copy and its own change of mode. Done before anything
    // installed changes, so that its failure leaves the installed set whole.
    if (!RestrictToOwner(pcTmpPrivkey)) return SSLCERT_ERR_GENERAL;

    // From here on the installed set changes, and the journal makes it
    // change whole: a failed step (a full disk among them) puts the previous
    // set back, a process that dies is completed by the next installation or
    // the controller's start. A journal that does not fit changes nothing.
    if (!RecordInstallation(pcTmpCert, pcTmpPrivkey)) return SSLCERT_ERR_GENERAL;
    if (!RunInstallationSteps(pcTmpCert, pcTmpPrivkey)) {
        RollBackInstallation();
        return SSLCERT_ERR_GENERAL;
    }
    // The pair is installed whatever the refresh says: Finish refreshes the
    // record first, and a failed refresh leaves a mark that the next
    // completion acts on. The journal goes after it, so that a process that
    // dies before the refresh leaves the refresh to the completion.
    FinishInstallation();
    return SSLCERT_OK;
}
