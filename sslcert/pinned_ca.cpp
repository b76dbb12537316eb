// The organisation's CA pinned for signed answers: one root CA certificate
// in a file beside the installed set, replaced whole by a rename after its
// data reached the disk, so that a power cut leaves the old pin or the new.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <openssl/pem.h>

#include "sslcert/cert_policy.h"
#include "sslcert/cert_request.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr mode_t kPinMode = S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH; // public material

uint32_t RefusePin(const char *why) {
    BMCCERT_DIAG(kLevelFailure, "Pinned CA refused! %s.\n", why);
    return SSLCERT_EXT_ERR_PIN_BAD;
}

bool StorePin(X509 *ca) {
    PemText text;
    if (text.bio() == nullptr || PEM_write_bio_X509(text.bio(), ca) != 1) {
        BMCCERT_DIAG(kLevelFailure, "Encode the pinned CA failed!\n");
        ERR_clear_error();
        return false;
    }
    if (!WriteSyncedFile(kPinnedCaStagingPath, text.view(), kPinMode)) {
        (void)unlink(kPinnedCaStagingPath);
        return false;
    }
    if (rename(kPinnedCaStagingPath, kPinnedCaPath) != 0 || !SyncDirectory(kServerCertDir)) {
        BMCCERT_DIAG(kLevelHandling, "Replace the pinned CA %s failed! strerrno:%s\n",
                     kPinnedCaPath, std::strerror(errno));
        (void)unlink(kPinnedCaStagingPath);
        return false;
    }
    return true;
}

} // namespace

PinnedCa LoadPinnedCa() {
    PinnedCa pin;
    if (access(kPinnedCaPath, F_OK) != 0 && errno == ENOENT) return pin;
    pin.present = true;
    const UniquePtr<BIO> file(BIO_new_file(kPinnedCaPath, "r"));
    if (file) pin.cert.reset(PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr));
    ERR_clear_error();
    if (!pin.cert) BMCCERT_DIAG(kLevelFailure, "The pinned CA %s is damaged!\n", kPinnedCaPath);
    return pin;
}

} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t LIB_SECURITY_SSL_SetPinnedCA(const char *pcPem, uint32_t uiPemLength) {
    BMCCERT_CHECK_NULL(pcPem, SSLCERT_ERR_NULL_POINTER);
    const UniquePtr<X509> ca = ReadOneCertificate({pcPem, uiPemLength});
    ERR_clear_error();
    if (!ca) return RefusePin("Not one whole PEM certificate");
    if (!policy::IsCa(ca.get())) return RefusePin("Not a CA by its basic constraints");
    // The pin is the only trust anchor of the check, and a chain is only
    // trusted when it ends at a root.
    if (!policy::IsSelfSigned(ca.get())) return RefusePin("Not a root CA: it did not sign itself");
    const InstallationLock installing; // an installation may be checking an answer against it
    if (!installing.Held()) return SSLCERT_EXT_ERR_LOCK;
    return StorePin(ca.get()) ? SSLCERT_OK : SSLCERT_EXT_ERR_PENDING_WRITE;
}

extern "C" uint32_t LIB_SECURITY_SSL_GetPinnedCA(char *pcPem, uint32_t uiPemSize) {
    BMCCERT_CHECK_NULL(pcPem, SSLCERT_ERR_NULL_POINTER);
    const PinnedCa pin = LoadPinnedCa();
    if (!pin.present) {
        if (uiPemSize > 0) pcPem[0] = '\0';
        return SSLCERT_EXT_ERR_NO_PIN;
    }
    PemText text;
    if (!pin.cert || text.bio() == nullptr || PEM_write_bio_X509(text.bio(), pin.cert.get()) != 1) {
        ERR_clear_error();
        if (uiPemSize > 0) pcPem[0] = '\0';
        return SSLCERT_EXT_ERR_PIN_BAD;
    }
    if (!CopyOut(text.view(), pcPem, uiPemSize)) {
        BMCCERT_DIAG(kLevelFailure, "The pinned CA (%zu bytes) does not fit the buffer of %u bytes!\n",
                     text.view().size() + 1, uiPemSize);
        return SSLCERT_EXT_ERR_BUFFER_SMALL;
    }
    return SSLCERT_OK;
}

extern "C" uint32_t LIB_SECURITY_SSL_ClearPinnedCA(void) {
    const InstallationLock installing;
    if (!installing.Held()) return SSLCERT_EXT_ERR_LOCK;
    if ((unlink(kPinnedCaPath) != 0 && errno != ENOENT) || !SyncDirectory(kServerCertDir)) {
        BMCCERT_DIAG(kLevelHandling, "Remove the pinned CA %s failed! strerrno:%s\n", kPinnedCaPath,
                     std::strerror(errno));
        return SSLCERT_EXT_ERR_PENDING_WRITE;
    }
    return SSLCERT_OK;
}
