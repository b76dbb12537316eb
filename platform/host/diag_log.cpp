// Diagnostics: one tab-separated line per report in diag.log, where tests
// and people read what the library said. Each line goes out in a single
// write on an append descriptor, so that threads and processes reporting at
// the same time never mix their lines.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <fcntl.h>

#include "sim_internal.h"

namespace {

constexpr size_t kMessageMax = 4096; // longer messages are cut
constexpr size_t kFileNameMax = 200;
// Every message byte may double when escaped; the fields before it are short.
constexpr size_t kLineMax = 2 * kMessageMax + 2 * kFileNameMax + 128;

// Fills a fixed buffer and drops whatever does not fit.
class LineBuilder {
  public:
    void Append(const char *text, size_t len) noexcept {
        size_t room = sizeof buf_ - used_;
        if (len > room) len = room;
        std::memcpy(buf_ + used_, text, len);
        used_ += len;
    }
    void Append(char c) noexcept { Append(&c, 1); }
    void AppendNumber(long long value) noexcept {
        char digits[24];
        int n = std::snprintf(digits, sizeof digits, "%lld", value);
        if (n > 0) Append(digits, static_cast<size_t>(n));
    }
    // A line feed or tab inside a field would break the line apart, so they
    // and the backslash that introduces the escapes are written as escapes.
    void AppendEscaped(const char *text, size_t limit) noexcept {
        for (size_t i = 0; i < limit && text[i] != '\0'; ++i) {
            switch (text[i]) {
            case '\\':
                Append("\\\\", 2);
                break;
            case '\n':
                Append("\\n", 2);
                break;
            case '\t':
                Append("\\t", 2);
                break;
            default:
                Append(text[i]);
            }
        }
    }
    [[nodiscard]] const char *Data() const noexcept { return buf_; }
    [[nodiscard]] size_t Size() const noexcept { return used_; }

  private:
    char buf_[kLineMax];
    size_t used_ = 0;
};

[[nodiscard]] const char *BaseName(const char *path) noexcept {
    if (path == nullptr) return "";
    const char *slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

[[nodiscard]] bmcsim::UniqueFd OpenLog() noexcept {
    if (!bmcsim::OnController()) return bmcsim::UniqueFd();
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC;
    bmcsim::UniqueFd fd(::open(BMCSIM_DIAG_LOG, kFlags, 0644));
    if (!fd.Valid() && errno == ENOENT && bmcsim::MakeDirs(BMCSIM_STATE_DIR))
        fd.Reset(::open(BMCSIM_DIAG_LOG, kFlags, 0644));
    return fd;
}

} // namespace

extern "C" void BMC_DiagLogOut(uint32_t uiModule, uint32_t uiSubModule, uint32_t uiLevel,
                               int32_t iLine, const char *pcFile, const char *pcFormat, ...) {
    bmcsim::ErrnoKeeper keep; // reporting must not change what the caller sees
    char message[kMessageMax] = "";
    if (pcFormat != nullptr) {
        va_list args;
        va_start(args, pcFormat);
        (void)std::vsnprintf(message, sizeof message, pcFormat, args);
        va_end(args);
    }

    LineBuilder line;
    line.AppendNumber(uiModule);
    line.Append('\t');
    line.AppendNumber(uiSubModule);
    line.Append('\t');
    line.AppendNumber(uiLevel);
    line.Append('\t');
    line.AppendEscaped(BaseName(pcFile), kFileNameMax);
    line.Append('\t');
    line.AppendNumber(iLine);
    line.Append('\t');
    line.AppendEscaped(message, sizeof message);
    line.Append('\n');

    bmcsim::UniqueFd fd = OpenLog();
    if (fd.Valid()) (void)!::write(fd.Get(), line.Data(), line.Size());
}
