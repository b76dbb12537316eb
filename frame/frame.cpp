#include "frame/frame.h"

#include <cerrno>
#include <cstring>
#include <ctime>

namespace bmccert {
const char *SourceBaseName(const char *path) {
    const char *slash = std::strrchr(path, '/');
    return slash == nullptr ? path : slash + 1;
}

double SecondsUntil(BMC_TimeStamp when) {
    return static_cast<double>(when) - static_cast<double>(std::time(nullptr));
}

bool Asn1Seconds(const ASN1_TIME *time, int64_t &seconds) {
    struct tm parts {};
    if (time == nullptr || ASN1_TIME_to_tm(time, &parts) != 1) return false;
    seconds = static_cast<int64_t>(timegm(&parts));
    return true;
}

void ReportCloseFailure(const SourcePlace &where) {
    const int savedErrno = errno;
    BMC_DiagLogOut(0, 0, kLevelNote, where.line, SourceBaseName(where.file),
                   "[%s-%dL] Close file failed, %s.", where.function, where.line,
                   std::strerror(savedErrno));
}

void StdioFile::Close(const SourcePlace &where) {
    if (fp_ == nullptr) return;
    FILE *fp = fp_;
    fp_ = nullptr;
    if (std::fclose(fp) != 0) ReportCloseFailure(where);
}

} // namespace bmccert
