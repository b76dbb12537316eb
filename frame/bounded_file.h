// Reading the certificate files that records and configurations name:
// regular files only, never through a link, never larger than a bound, so
// that a planted fifo, link or huge file cannot stall or flood a reader.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "frame/frame.h"
#include "frame/unique_fd.h"

namespace bmccert {

// Larger files are no certificate, key or configuration of this controller.
inline constexpr size_t kMaxCertFileBytes = 1 << 20;

// directory/name (directory a descriptor or AT_FDCWD for a path) opened
// for reading when it is a regular file of at most maxBytes, not a link.
[[nodiscard]] UniqueFd OpenBounded(int directory, const char *name,
                                   size_t maxBytes = kMaxCertFileBytes);
// The whole file; empty when it grows past maxBytes while read.
[[nodiscard]] std::string ReadAll(const UniqueFd &fd, size_t maxBytes = kMaxCertFileBytes);
// What tells a file from its replacement (a rename brings another inode)
// or its rewriting in place (size, modification time).
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    time_t seconds = 0;
    long nanoseconds = 0;
    bool operator==(const FileIdentity &) const = default;
};
// False when the descriptor cannot be examined.
[[nodiscard]] bool IdentityOf(const UniqueFd &fd, FileIdentity &identity);

// The first certificate of the bytes, PEM (other blocks, keys included,
// are passed over unread) or DER.
[[nodiscard]] UniquePtr<X509> ParseCertificate(std::string_view bytes);

// The first certificate of an open file, parsed once per version of the
// file: OpenSSL 3 takes longer to decode a certificate's key than the rest
// of a health check or a revocation check. A file is known again by its
// identity (a replacement by rename is another inode, a rewrite another
// size or time); the last 64 are kept.
[[nodiscard]] UniquePtr<X509> ReadCertificateFile(const UniqueFd &fd);

} // namespace bmccert
