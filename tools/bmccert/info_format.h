// Rendering of the certificate information record.
#pragma once

#include <string>
#include <string_view>

#include "lib_security_sslcert.h"
#include "lib_security_sslcert_ext.h"

namespace bmccert::cli {

// Every field of the record, grouped for a person to read. Text fields are
// shown up to their first NUL and never past the end of their array; control
// bytes in them are shown as \xNN so that a certificate cannot drive the
// terminal.
[[nodiscard]] std::string FormatInfoText(const SSLCertInfo &info);

// Every field of the record as one JSON object, each member named after the
// record field it carries.
[[nodiscard]] std::string FormatInfoJson(const SSLCertInfo &info);

// The pending signing request: its subject as the record's names show it,
// its key type and its alternative names, escaped as the record's texts are.
[[nodiscard]] std::string FormatRequestText(const SSLCertRequest &request);

// The pending signing request as one JSON object named after the request's
// fields, with "key" (the key type's name), "astAltNames" as an array and,
// when pem is not empty, "pem".
[[nodiscard]] std::string FormatRequestJson(const SSLCertRequest &request, std::string_view pem);

} // namespace bmccert::cli
