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
// The first certificate of the bytes, PEM (other blocks, keys included,
// are passed over unread) or DER.
[[nodiscard]] UniquePtr<X509> ParseCertificate(std::string_view bytes);

} // namespace bmccert
