/*
 * bmccert: extensions of the server-certificate interface.
 *
 * Functions added after the first interface, exported at version node
 * BMCCERT_1.1 of the same library (libbmccert.so.1); the functions of
 * lib_security_sslcert.h and lib_ssl_auth.h stay at BMCCERT_1 unchanged.
 * Result codes of the extension lie in 0x8A000000 to 0x8AFFFFFF.
 */
#ifndef LIB_SECURITY_SSLCERT_EXT_H
#define LIB_SECURITY_SSLCERT_EXT_H

#include "lib_security_sslcert.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Result codes of the extension ------------------------------------- */
/* An interrupted installation could not be completed; it stays recorded and
 * the next installation or call tries again. */
#define SSLCERT_EXT_ERR_INSTALL_PENDING 0x8A000001u

/* ---- Installation that survives a power cut ----------------------------- */
/*
 * Completes an installation of the server certificate that a killed process
 * or a power cut interrupted, so that the installed set (the user
 * certificate and key, /conf/certs/server/server.pem and the tunnel
 * configuration) is whole: the new set when the installation had recorded
 * it, else the previous one. When it completes one it refreshes the stored
 * information record and reports "Completed the interrupted installation
 * recorded in /conf/certs/server/.install: new set." (or "old set.").
 *
 * Call it once when the controller starts, before stunnel.service and
 * lighttpd.service start (for instance from a unit ordered before them that
 * runs `bmccert recover`). Every installation also calls it first.
 *
 * Returns 0 when nothing was pending or the pending installation is
 * complete; SSLCERT_EXT_ERR_INSTALL_PENDING when it could not be completed
 * (a diagnostic says why). Blocks while another installation runs, in any
 * process; starts no process.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_CompleteInstallation(void);

#ifdef __cplusplus
}
#endif

#endif /* LIB_SECURITY_SSLCERT_EXT_H */
