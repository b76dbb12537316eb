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
