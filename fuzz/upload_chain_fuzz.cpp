// The upload validation chain over arbitrary certificate and key files:
// whatever the two files hold, the chain answers one of its documented
// codes and leaves the files it checked in place. The first two bytes give
// the length of the certificate part.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "fuzz/fuzz_support.h"
#include "lib_security_sslcert.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    bmcfuzz::RequireSandbox();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    bmcfuzz::KeepDiagLogSmall();
    const size_t certSize = std::min<size_t>(size - 2, (size_t{data[0]} << 8) | data[1]);
    const std::string rest(reinterpret_cast<const char *>(data + 2), size - 2);
    bmcfuzz::WriteFile("/var/certs/actualcert.pem", rest.substr(0, certSize));
    bmcfuzz::WriteFile("/var/certs/actualprivkey.pem", rest.substr(certSize));
    const uint32_t result = SECURITY_SSL_ValidateSSLCert();
    BMCFUZZ_CHECK(bmcfuzz::OneOf(
        result, {SSLCERT_OK, SSLCERT_ERR_GENERAL, SSLCERT_ERR_FILE_MISSING,
                 SSLCERT_ERR_FILE_TOO_BIG, SSLCERT_ERR_FILE_OPEN, SSLCERT_ERR_KEY_ENCRYPTED,
                 SSLCERT_ERR_NOT_SERVER_CERT, SSLCERT_ERR_TMP_CERT_UNREAD,
                 SSLCERT_ERR_CERT_EXPIRED, SSLCERT_ERR_MD5_SIGNATURE, SSLCERT_ERR_KEY_MISMATCH}));
    BMCFUZZ_CHECK(access("/var/certs/actualcert.pem", F_OK) == 0);
    return 0;
}
