/* A plain C99 consumer: both public headers compile as C, and the library
 * links and answers. */
#include <stdio.h>
#include <string.h>

#include "lib_security_sslcert.h"
#include "lib_security_sslcert_ext.h"
#include "lib_ssl_auth.h"

int main(void) {
    char cert[SSLCERT_PATH_BUF_SIZE] = {0};
    char key[SSLCERT_PATH_BUF_SIZE] = {0};
    SSLCertInfo info;
    uint32_t result;

    result =
        LIB_SECURITY_GetSSLCertKeyPath(SSL_CERT_TYPE_DEFAULT, sizeof cert, sizeof key, cert, key);
    if (result != SSLCERT_OK || strcmp(cert, "/conf/certs/server/default/server.pem") != 0) {
        fprintf(stderr, "path lookup failed: 0x%08X\n", (unsigned)result);
        return 1;
    }
    if (LIB_SECURITY_GetCertType() != SSL_CERT_TYPE_DEFAULT) {
        fprintf(stderr, "factory default certificate not in force\n");
        return 1;
    }
    memset(&info, 0, sizeof info);
    result = LIB_SECURITY_GetCertInfo(&info);
    if (result != SSLCERT_OK || info.stSSLConfig.uiPublicKeyLen != 2048u) {
        fprintf(stderr, "information record failed: 0x%08X\n", (unsigned)result);
        return 1;
    }
    if (LIB_SECURITY_SSL_CompleteInstallation() != SSLCERT_OK) {
        fprintf(stderr, "nothing pending, yet the completion failed\n");
        return 1;
    }
    printf("c consumer: %s, %u bits, expires %s\n", cert, (unsigned)info.stSSLConfig.uiPublicKeyLen,
           info.stSSLConfig.szExpDate);
    return 0;
}
