// Rendering of the certificate information record.
#pragma once

#include <string>

#include "lib_security_sslcert.h"

namespace bmccert::cli {

// Every field of the record, grouped for a person to read. Text fields are
// shown up to their first NUL and never past the end of their array; control
// bytes in them are shown as \xNN so that a certificate cannot drive the
// terminal.
[[nodiscard]] std::string FormatInfoText(const SSLCertInfo &info);

// Every field of the record as one JSON object, each member named after the
// record field it carries.
[[nodiscard]] std::string FormatInfoJson(const SSLCertInfo &info);

} // namespace bmccert::cli
