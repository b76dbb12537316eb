#include "sim_log.h"

#include <fcntl.h>

#include "sim_internal.h"

namespace bmcsim {

void AppendEscaped(std::string &line, const char *text, size_t limit) {
    for (size_t i = 0; i < limit && text[i] != '\0'; ++i) {
        switch (text[i]) {
        case '\\':
            line += "\\\\";
            break;
        case '\n':
            line += "\\n";
            break;
        case '\t':
            line += "\\t";
            break;
        default:
            line += text[i];
        }
    }
}

void AppendHex(std::string &line, const void *data, size_t size) {
    static constexpr char kDigits[] = "0123456789abcdef";
    const auto *bytes = static_cast<const unsigned char *>(data);
    line.reserve(line.size() + 2 * size + 1);
    for (size_t i = 0; i < size; ++i) {
        line += kDigits[bytes[i] >> 4];
        line += kDigits[bytes[i] & 0x0F];
    }
}

void AppendLogLine(const char *path, std::string line, unsigned mode) noexcept {
    ErrnoKeeper keep;
    try {
        line += '\n';
    } catch (...) {
        return;
    }
    if (!OnController()) return;
    constexpr int kFlags = O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC;
    UniqueFd fd(::open(path, kFlags, mode));
    if (!fd.Valid() && errno == ENOENT && MakeDirs(BMCSIM_STATE_DIR))
        fd.Reset(::open(path, kFlags, mode));
    if (fd.Valid()) (void)!::write(fd.Get(), line.data(), line.size());
}

} // namespace bmcsim
