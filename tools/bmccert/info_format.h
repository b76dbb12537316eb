// Rendering of the certificate information record.
#pragma once

#include <cstdint>
#include <ctime>
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

// The record as one JSON object with stable lower-case names: "type",
// "type_name", the files' times and "certificate" with its texts, "key_bits",
// "not_before"/"not_after" as seconds since the epoch (with their texts as
// "..._text"), "days_left" from now, and "issuer"/"subject" names
// ("common_name", ..., "country", "email").
[[nodiscard]] std::string FormatInfoJson(const SSLCertInfo &info,
                                         int64_t now = static_cast<int64_t>(std::time(nullptr)));

// The pending signing request: its subject as the record's names show it,
// its key type and its alternative names, escaped as the record's texts are.
[[nodiscard]] std::string FormatRequestText(const SSLCertRequest &request);

// The pending signing request as one JSON object: "subject" (names as in
// the info's), "key" (the key type's name), "alt_names" as an array of
// {"type":"dns"|"ip","name":...} and, when pem is not empty, "pem".
[[nodiscard]] std::string FormatRequestJson(const SSLCertRequest &request, std::string_view pem);

// A time of the library's records (seconds since 1970) as
// "2026-11-25T07:11:40Z"; "none" for 0.
[[nodiscard]] std::string IsoTimeText(int64_t seconds);

} // namespace bmccert::cli
