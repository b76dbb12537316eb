// Fetching an uploaded certificate and key into the temporary upload
// location, through the platform's file transfer.
#include <unistd.h>

#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

using namespace bmccert;

constexpr uint32_t kTransferMode = 5;

// Zero-filled, as the file transfer expects, with both paths bounded to
// their fields; the source is read no further than the request's field.
template <size_t N>
FileTransferRecord TransferRecord(const char (&source)[N], const char *destination) {
    FileTransferRecord record{};
    record.ucByte1 = 1;
    (void)BMC_Strlcpy(record.szDstPath, destination, sizeof record.szDstPath);
    (void)BMC_Strlcpy(record.szSrcPath, FieldText(source).c_str(), sizeof record.szSrcPath);
    return record;
}

} // namespace
} // namespace bmccert::sslcert

using namespace bmccert;
using namespace bmccert::sslcert;

extern "C" uint32_t SECURITY_SSL_GetUploadCert(const UploadParam *pstUploadPath) {
    BMCCERT_CHECK_NULL(pstUploadPath, SSLCERT_ERR_NULL_POINTER);
    const InstallationLock installing; // the temporary pair is the installation's
    if (!installing.Held()) return SSLCERT_ERR_GENERAL;

    // The transfer writes by name: into a private directory, the
    // certificate where no stale entry stands, the key into a file created
    // 0600 for it before its first byte arrives.
    if (!MakeScratchDirPrivate() || !RemoveStaleScratch(kUploadCertPath))
        return SSLCERT_ERR_GENERAL;
    FileTransferRecord record = TransferRecord(pstUploadPath->CertSrcPath, kUploadCertPath);
    if (const int32_t result = FILEHANDLE_UploadDownloadFile(&record, kTransferMode); result != 0) {
        BMCCERT_DIAG(kLevelHandling,
                     "Failed to download Server Cert. FileStr:%s, FileDst:%s, iRet=%d.",
                     record.szSrcPath, record.szDstPath, result);
        return SSLCERT_ERR_GENERAL;
    }
    record = TransferRecord(pstUploadPath->PrivkeySrcPath, kUploadKeyPath);
    if (!CreateScratchFile(kUploadKeyPath)) return SSLCERT_ERR_GENERAL;
    if (const int32_t result = FILEHANDLE_UploadDownloadFile(&record, kTransferMode); result != 0) {
        (void)unlink(kUploadKeyPath); // the empty file made for it, or a part
        BMCCERT_DIAG(kLevelHandling,
                     "Failed to download Server Privkey. FileStr:%s, FileDst:%s, iRet=%d.",
                     record.szSrcPath, record.szDstPath, result);
        return SSLCERT_ERR_GENERAL;
    }
    // The transfer may keep the uploaded file's mode; the key is made
    // private before anything else reads it.
    if (!RestrictToOwner(kUploadKeyPath)) return SSLCERT_ERR_GENERAL;
    return SSLCERT_OK;
}
