// Internal declarations of the server-certificate source unit
// (lib_security_sslcert).
#pragma once

#include <cstdint>

#include "lib_security_sslcert.h"
#include "sslcert/frame.h"

namespace bmccert::sslcert {

inline constexpr uint32_t kDiagSubModule = 3;
// This unit's null-pointer reports carry module 0 and sub-module 0, which
// the management daemons' log filters already expect.
inline constexpr uint32_t kNullReportModule = 0;
inline constexpr uint32_t kNullReportSubModule = 0;

// The certificate and key paths of one certificate type, looked up into
// zero-filled buffers of the size every caller uses.
struct CertKeyPaths {
    char cert[SSLCERT_PATH_BUF_SIZE] = {};
    char key[SSLCERT_PATH_BUF_SIZE] = {};
};

// Looks up the paths of a type; on failure reports "Failed to get Cert and
// Key Path" naming the calling operation and returns false.
[[nodiscard]] bool LookupCertKeyPaths(uint32_t certType, CertKeyPaths &paths,
                                      const char *callerName);

// Stores the information record in the configuration database.
[[nodiscard]] uint32_t SECURITY_PutCertInfo(const SSLCertInfo *pstSSLCertInfo);

} // namespace bmccert::sslcert
