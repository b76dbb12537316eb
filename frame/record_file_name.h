// The file name that a client-authentication record gives for its
// certificate becomes a path under the record's directory. The records
// come from the configuration database, so a damaged or forged one could
// name "../x", a hidden file, a subdirectory or a link; every place that
// turns such a name into a path takes it through here first. Shared by the
// library and the stand-in of the records' owner.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>

#include "frame/unique_fd.h"

namespace bmccert {

// Names are at most 32 characters (the record's 33-byte field).
inline constexpr size_t kRecordFileNameMax = 32;

// True for a name of 1 to 32 characters from [A-Za-z0-9._-] that does not
// start with a full stop: no "/", no "." or "..", no hidden file, nothing
// a terminal or a log would interpret.
[[nodiscard]] constexpr bool IsPlainFileName(std::string_view name) noexcept {
    if (name.empty() || name.size() > kRecordFileNameMax || name.front() == '.') return false;
    for (const char c : name) {
        const bool allowed = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                             (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
        if (!allowed) return false;
    }
    return true;
}

// The same for a record's field, which must hold its terminator.
template <size_t N> [[nodiscard]] bool IsPlainFileName(const char (&field)[N]) noexcept {
    const void *const nul = std::memchr(field, '\0', N);
    return nul != nullptr &&
           IsPlainFileName(std::string_view(
               field, static_cast<size_t>(static_cast<const char *>(nul) - field)));
}

// dir/name opened for reading when name is plain and names a regular file
// itself, not a link to one; otherwise an invalid descriptor.
[[nodiscard]] inline UniqueFd OpenPlainFileIn(const char *dir, std::string_view name) noexcept {
    if (!IsPlainFileName(name)) return UniqueFd();
    const UniqueFd dirFd(::open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!dirFd.Valid()) return UniqueFd();
    char plain[kRecordFileNameMax + 1] = {};
    std::memcpy(plain, name.data(), name.size());
    // O_NONBLOCK: a fifo planted under the name must not stall the open.
    UniqueFd fd(::openat(dirFd.Get(), plain, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat st {};
    if (!fd.Valid() || ::fstat(fd.Get(), &st) != 0 || !S_ISREG(st.st_mode)) return UniqueFd();
    return fd;
}

// True when name is plain and dir/name is a regular file itself, not a link,
// for a path that another program opens.
[[nodiscard]] inline bool IsPlainFileIn(const char *dir, std::string_view name) noexcept {
    if (!IsPlainFileName(name)) return false;
    const UniqueFd dirFd(::open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    char plain[kRecordFileNameMax + 1] = {};
    std::memcpy(plain, name.data(), name.size());
    struct stat st {};
    return dirFd.Valid() && ::fstatat(dirFd.Get(), plain, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(st.st_mode);
}

} // namespace bmccert
