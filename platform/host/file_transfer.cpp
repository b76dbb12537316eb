// File transfer of uploaded files, and detached threads.
#include <cerrno>
#include <cstring>
#include <new>
#include <type_traits>

#include <pthread.h>
#include <sys/stat.h>

#include "sim_internal.h"

namespace {

// The only mode the library uses: copy an uploaded file into place.
constexpr uint32_t kModeCopyUpload = 5;

} // namespace

extern "C" int32_t FILEHANDLE_UploadDownloadFile(FileTransferRecord *pstRecord, uint32_t uiMode) {
    if (auto fault = bmcsim::InjectedFault("FILEHANDLE_UploadDownloadFile"))
        return static_cast<int32_t>(*fault);
    if (pstRecord == nullptr || uiMode != kModeCopyUpload) return bmcsim::kFailSigned;
    // Unterminated paths are refused rather than read past their fields.
    if (strnlen(pstRecord->szSrcPath, sizeof pstRecord->szSrcPath) == sizeof pstRecord->szSrcPath ||
        strnlen(pstRecord->szDstPath, sizeof pstRecord->szDstPath) == sizeof pstRecord->szDstPath)
        return bmcsim::kFailSigned;
    // What arrives may be a private key: it is 0600 from its first byte,
    // whatever mode the uploaded file had, and it replaces the destination
    // by a rename, which never writes through a link standing there.
    try {
        return bmcsim::CopyReplacing(pstRecord->szSrcPath, pstRecord->szDstPath, S_IRUSR | S_IWUSR)
                   ? 0
                   : bmcsim::kFailSigned;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return bmcsim::kFailSigned;
    }
}

extern "C" int32_t BMC_CreateDetachThreadInternal(void *(*pfnThread)(void *), const char *pcName,
                                                  void *pArg, uint32_t *puiThreadId) {
    if (auto fault = bmcsim::InjectedFault("BMC_CreateDetachThreadInternal"))
        return static_cast<int32_t>(*fault);
    if (pfnThread == nullptr || pcName == nullptr || puiThreadId == nullptr)
        return bmcsim::kFailSigned;
    pthread_attr_t attr;
    if (pthread_attr_init(&attr) != 0) return bmcsim::kFailSigned;
    pthread_t thread;
    const bool started = pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED) == 0 &&
                         pthread_create(&thread, &attr, pfnThread, pArg) == 0;
    (void)pthread_attr_destroy(&attr);
    if (!started) return bmcsim::kFailSigned;
    // The controller's identifiers are 32-bit; the low bits tell threads
    // apart in a log, which is all they are used for.
    // glibc's pthread_t is an unsigned long on every target, 32 bits on ARM.
    static_assert(std::is_integral_v<pthread_t>);
    *puiThreadId = static_cast<uint32_t>(thread);
    return 0;
}
