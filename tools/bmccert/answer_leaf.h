// What the tool tells of a refused CA's answer beyond its code: the leaf's
// dates against the controller's clock, and its key.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "lib_security_sslcert_ext.h"

namespace bmccert::cli {

// A file of certificates (a CA's answer, a CA to pin, a revocation list),
// at most one byte more than the library takes (maxBytes) so that a larger
// file is refused as such; false when the file cannot be read.
[[nodiscard]] bool ReadCertFile(const std::string &path, std::string &bytes,
                                size_t maxBytes = SSLCERT_EXT_SIGNED_MAX_BYTES);

// "; valid from ... until ...; the controller's clock says ..." for a
// leaf that is not valid now, "; its key is RSA 1024 bits" for a key
// refusal, empty for other codes or an answer the tool cannot read.
[[nodiscard]] std::string RefusalDetails(std::string_view answer, uint32_t code);

} // namespace bmccert::cli
