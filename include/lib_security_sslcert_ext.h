/*
 * bmccert: extensions of the server-certificate interface.
 *
 * Functions added after the first interface, exported at version nodes
 * BMCCERT_1.1 and BMCCERT_1.2 of the same library (libbmccert.so.1; each
 * function says its node); the functions of lib_security_sslcert.h and
 * lib_ssl_auth.h stay at BMCCERT_1 unchanged.
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
/* A signing request or a self-signed generation refused before anything is
 * written or started (a diagnostic names the field): */
#define SSLCERT_EXT_ERR_BAD_SUBJECT     0x8A000002u /* a name field (see below) */
#define SSLCERT_EXT_ERR_BAD_ALT_NAME    0x8A000003u /* an alternative name, or their count */
#define SSLCERT_EXT_ERR_BAD_KEY_TYPE    0x8A000004u /* algorithm, bit length or curve */
#define SSLCERT_EXT_ERR_KEY_GENERATION  0x8A000005u /* OpenSSL could not make the key or request */
#define SSLCERT_EXT_ERR_BUFFER_SMALL    0x8A000006u /* the PEM does not fit the caller's buffer */
#define SSLCERT_EXT_ERR_NO_PENDING_KEY  0x8A000007u /* no signing request is pending */
#define SSLCERT_EXT_ERR_PENDING_WRITE   0x8A000008u /* the pending key could not be stored */
#define SSLCERT_EXT_ERR_LOCK            0x8A000009u /* the installation lock could not be taken: nothing started */
/* A signed certificate refused (the previous certificate stays in force and
 * the pending key stays for another try): */
#define SSLCERT_EXT_ERR_SIGNED_FETCH    0x8A000010u /* the file transfer failed */
#define SSLCERT_EXT_ERR_SIGNED_TOO_BIG  0x8A000011u /* more than 64 KiB */
#define SSLCERT_EXT_ERR_SIGNED_NOT_PEM  0x8A000012u /* not PEM certificates, or cut short */
#define SSLCERT_EXT_ERR_CHAIN_TOO_LONG  0x8A000013u /* more than 8 certificates */
#define SSLCERT_EXT_ERR_KEY_MISMATCH    0x8A000014u /* the leaf is not for the pending key */
#define SSLCERT_EXT_ERR_NOT_SERVER_CERT 0x8A000015u /* the leaf may not serve TLS servers */
#define SSLCERT_EXT_ERR_NOT_VALID_NOW   0x8A000016u /* the leaf has expired or is not yet valid */
#define SSLCERT_EXT_ERR_WEAK_SIGNATURE  0x8A000017u /* the leaf is signed with MD5 or SHA-1 */
#define SSLCERT_EXT_ERR_CHAIN_ORDER     0x8A000018u /* a certificate did not issue the one before */
#define SSLCERT_EXT_ERR_CHAIN_NOT_CA    0x8A000019u /* a certificate after the leaf is not a CA */
#define SSLCERT_EXT_ERR_NAME_MISSING    0x8A00001Au /* the leaf lacks a name the request asked for */
#define SSLCERT_EXT_ERR_CHAIN_INVALID   0x8A00001Bu /* a CA of the chain is not valid now, weakly signed, or its path length is exceeded */
#define SSLCERT_EXT_ERR_NOT_PINNED      0x8A00001Cu /* the answer does not chain to the pinned CA */
#define SSLCERT_EXT_ERR_PIN_BAD         0x8A00001Du /* the CA to pin is not one PEM CA certificate */
#define SSLCERT_EXT_ERR_NO_PIN          0x8A00001Eu /* no CA is pinned */
#define SSLCERT_EXT_ERR_CHAIN_SIGNATURE 0x8A00001Fu /* names match, the signature does not verify: the CA's key changed? */
/* The management entries' own failures: */
#define SSLCERT_EXT_ERR_TASK            0x8A000020u /* the task or its thread could not start */
#define SSLCERT_EXT_ERR_INSTALL         0x8A000021u /* installation failed: nothing changed */
#define SSLCERT_EXT_ERR_RESTART         0x8A000022u /* installed, but the tunnel did not restart */
#define SSLCERT_EXT_ERR_TASK_RUNNING    0x8A000024u /* the wait ran out: the task still runs */
#define SSLCERT_EXT_ERR_TASK_UNKNOWN    0x8A000025u /* not a task this process's library started */

#define SSLCERT_EXT_ERR_UNKNOWN_CODE    0x8A000030u /* not a result code of the library */
/* A client certificate's revocation check under a verified method (see
 * below); each refuses the login like a revoked certificate: */
#define SSLCERT_EXT_ERR_REVOKED          0x8A000040u /* the issuer's answer or list says revoked */
#define SSLCERT_EXT_ERR_STATUS_UNKNOWN   0x8A000041u /* the responder does not know the certificate */
#define SSLCERT_EXT_ERR_OCSP_SIGNATURE   0x8A000042u /* the answer's signature does not verify */
#define SSLCERT_EXT_ERR_OCSP_SIGNER      0x8A000043u /* signed by neither the root nor a responder it certified for OCSP signing */
#define SSLCERT_EXT_ERR_OCSP_STALE       0x8A000044u /* the answer is too old, not yet valid, or past its next update */
#define SSLCERT_EXT_ERR_OCSP_WRONG_CERT  0x8A000045u /* the answer is not about the certificate asked for */
#define SSLCERT_EXT_ERR_OCSP_NONCE       0x8A000046u /* the answer echoes another nonce */
#define SSLCERT_EXT_ERR_UNREACHABLE      0x8A000047u /* no answer in time, no connection, an HTTP error or a redirect */
#define SSLCERT_EXT_ERR_ANSWER_TOO_BIG   0x8A000048u /* an OCSP answer over 64 KiB, a list over 4 MiB */
#define SSLCERT_EXT_ERR_ANSWER_MALFORMED 0x8A000049u /* not HTTP, not an OCSP answer, or an unsuccessful one */
#define SSLCERT_EXT_ERR_NO_RESPONDER     0x8A00004Au /* no http:// address of at most 63 bytes to ask */
#define SSLCERT_EXT_ERR_CERT_NOT_RECORD  0x8A00004Bu /* the file is not the certificate its record describes */
#define SSLCERT_EXT_ERR_CRL_MISSING      0x8A00004Cu /* no list is installed for the certificate's root */
#define SSLCERT_EXT_ERR_CRL_STALE        0x8A00004Du /* the list is past its next update, or not yet valid */
#define SSLCERT_EXT_ERR_CRL_BAD          0x8A00004Eu /* a list that does not parse, is not the root's, or has too many entries */
#define SSLCERT_EXT_ERR_REVOCATION_SETTING 0x8A00004Fu /* a value out of range, or the setting could not be stored */
#define SSLCERT_EXT_ERR_CRL_NOT_SERVED   0x8A000050u /* the list is installed and checked at login, but the web server did not take it */

/* ACME enrolment (BMCCERT_1.2). The certificate in force stays served on
 * every one of them. */
#define SSLCERT_EXT_ERR_ACME_SETTING     0x8A000060u /* a setting out of range, not https, not ending in its field, or not stored */
#define SSLCERT_EXT_ERR_ACME_NO_ACCOUNT  0x8A000061u /* no account registered, or it was deactivated */
#define SSLCERT_EXT_ERR_ACME_UNREACHABLE 0x8A000062u /* the CA did not answer: no connection, time-out, TLS not verified */
#define SSLCERT_EXT_ERR_ACME_MALFORMED   0x8A000063u /* an answer that is not what it should be, too big, or on another origin */
#define SSLCERT_EXT_ERR_ACME_REFUSED     0x8A000064u /* the CA refused the request (its problem document) */
#define SSLCERT_EXT_ERR_ACME_BINDING     0x8A000065u /* the external account binding is required, or refused */
#define SSLCERT_EXT_ERR_ACME_RATE_LIMIT  0x8A000066u /* the CA's rate limit: try after its Retry-After */
#define SSLCERT_EXT_ERR_ACME_CHALLENGE   0x8A000067u /* the CA could not validate a name (challenge invalid) */
#define SSLCERT_EXT_ERR_ACME_ORDER       0x8A000068u /* the order turned invalid, or did not complete in time */
#define SSLCERT_EXT_ERR_ACME_TOKEN       0x8A000069u /* a challenge token that is not base64url: no file written */
#define SSLCERT_EXT_ERR_ACME_BUSY        0x8A00006Au /* another enrolment or account change runs */
#define SSLCERT_EXT_ERR_ACME_KEY         0x8A00006Bu /* the account key could not be made, stored or read */

/* Outcomes of LIB_SECURITY_SSL_RecoverInstallation. */
#define SSLCERT_EXT_RECOVER_NONE      0u /* nothing was pending */
#define SSLCERT_EXT_RECOVER_NEW_SET   1u /* the interrupted installation's new set is in force */
#define SSLCERT_EXT_RECOVER_OLD_SET   2u /* the previous set is back in force */

/* ---- Limits and key types ------------------------------------------------ */
#define SSLCERT_EXT_MAX_ALT_NAMES     16u
#define SSLCERT_EXT_ALT_NAME_SIZE     256u   /* 253 characters and the terminator */
#define SSLCERT_EXT_SIGNED_MAX_BYTES  65536u /* a signed certificate with its chain */
#define SSLCERT_EXT_SIGNED_MAX_CERTS  8u
#define SSLCERT_EXT_CSR_PEM_SIZE      12288u /* always enough for a request's PEM */

#define SSLCERT_EXT_KEY_RSA 1u
#define SSLCERT_EXT_KEY_EC  2u
#define SSLCERT_EXT_CURVE_NONE 0u
#define SSLCERT_EXT_CURVE_P256 1u /* prime256v1, secp256r1 */
#define SSLCERT_EXT_CURVE_P384 2u /* secp384r1 */

#define SSLCERT_EXT_ALT_NAME_DNS 1u /* a host name */
#define SSLCERT_EXT_ALT_NAME_IP  2u /* an IPv4 or IPv6 address in text form */

/* ---- Records --------------------------------------------------------------- */

/* One subject alternative name. */
typedef struct SSLCertAltName_s {
    uint32_t uiType;                          /* SSLCERT_EXT_ALT_NAME_DNS or _IP */
    char szName[SSLCERT_EXT_ALT_NAME_SIZE];
} SSLCertAltName;
BMCCERT_LAYOUT_ASSERT(AltName_size, sizeof(SSLCertAltName) == 260);
BMCCERT_LAYOUT_ASSERT(AltName_name, offsetof(SSLCertAltName, szName) == 4);

/*
 * A certificate request: what a management front end maps from a standard
 * GenerateCSR action (common name, organisation, unit, city, state,
 * country, e-mail, alternative names, key pair algorithm, key bit length,
 * curve), for a signing request or a self-signed certificate.
 *
 * The seven texts follow the rules of a generation request, field by field
 * (SECURITY_SSL_GenSSLCert_Check in lib_security_sslcert.h): all seven are
 * mandatory and each ends inside its field. A refused text gives
 * SSLCERT_EXT_ERR_BAD_SUBJECT with that function's diagnostic naming it.
 *
 * The key (SSLCERT_EXT_ERR_BAD_KEY_TYPE for anything else):
 *  - uiKeyAlgorithm SSLCERT_EXT_KEY_RSA: uiKeyBitLength 2048, 3072 or 4096,
 *    uiKeyCurve SSLCERT_EXT_CURVE_NONE;
 *  - uiKeyAlgorithm SSLCERT_EXT_KEY_EC: uiKeyCurve SSLCERT_EXT_CURVE_P256
 *    or _P384, uiKeyBitLength 0 or the curve's size (256 or 384).
 *
 * uiAltNameCount (0 to 16) entries of astAltNames are read, each ending
 * inside its field (SSLCERT_EXT_ERR_BAD_ALT_NAME, the diagnostic names the
 * entry and the reason):
 *  - SSLCERT_EXT_ALT_NAME_DNS: a host name of at most 253 characters, dot
 *    separated labels of 1 to 63 ASCII letters, digits and '-', a label
 *    neither starting nor ending with '-'; a leading "*." label (a wildcard)
 *    is allowed. Case is kept.
 *  - SSLCERT_EXT_ALT_NAME_IP: an IPv4 address in dotted decimal or an IPv6
 *    address in any form inet_pton accepts.
 * The common name is not added as a name by itself: list it when clients
 * should reach the controller by it. A wildcard can only be an alternative
 * name: the common name's rule refuses '*'. A pending request is replaced
 * by a new one or dropped (LIB_SECURITY_SSL_DropPendingCSR).
 *
 * uiValidDays (1 to 5475, as a generation request) is read only by the
 * self-signed generation; a signing request leaves the validity to the CA.
 */
typedef struct SSLCertRequest_s {
    char szCommonName[65];
    char szOrganisation[65];
    char szOrganisationUnit[65];
    char szLocalityName[129];
    char szStateName[129];
    char szCountryCode[3];
    char szEmailAddress[129];
    uint8_t aucReserved[3];                   /* zero */
    uint32_t uiKeyAlgorithm;
    uint32_t uiKeyBitLength;
    uint32_t uiKeyCurve;
    uint32_t uiValidDays;
    uint32_t uiAltNameCount;
    SSLCertAltName astAltNames[SSLCERT_EXT_MAX_ALT_NAMES];
} SSLCertRequest;
BMCCERT_LAYOUT_ASSERT(Request_size, sizeof(SSLCertRequest) == 4768);
BMCCERT_LAYOUT_ASSERT(Request_o, offsetof(SSLCertRequest, szOrganisation) == 65);
BMCCERT_LAYOUT_ASSERT(Request_ou, offsetof(SSLCertRequest, szOrganisationUnit) == 130);
BMCCERT_LAYOUT_ASSERT(Request_l, offsetof(SSLCertRequest, szLocalityName) == 195);
BMCCERT_LAYOUT_ASSERT(Request_st, offsetof(SSLCertRequest, szStateName) == 324);
BMCCERT_LAYOUT_ASSERT(Request_c, offsetof(SSLCertRequest, szCountryCode) == 453);
BMCCERT_LAYOUT_ASSERT(Request_email, offsetof(SSLCertRequest, szEmailAddress) == 456);
BMCCERT_LAYOUT_ASSERT(Request_alg, offsetof(SSLCertRequest, uiKeyAlgorithm) == 588);
BMCCERT_LAYOUT_ASSERT(Request_bits, offsetof(SSLCertRequest, uiKeyBitLength) == 592);
BMCCERT_LAYOUT_ASSERT(Request_curve, offsetof(SSLCertRequest, uiKeyCurve) == 596);
BMCCERT_LAYOUT_ASSERT(Request_days, offsetof(SSLCertRequest, uiValidDays) == 600);
BMCCERT_LAYOUT_ASSERT(Request_count, offsetof(SSLCertRequest, uiAltNameCount) == 604);
BMCCERT_LAYOUT_ASSERT(Request_names, offsetof(SSLCertRequest, astAltNames) == 608);

/* Import request of a signed certificate uploaded as a file: its origin for
 * the operation log and the uploaded file, fetched through the platform's
 * file transfer as an upload is (UploadParam). */
typedef struct SignedCertUpload_s {
    struct LogOrigin_s LogOrigin;
    char CertSrcPath[SSLCERT_UPLOAD_PATH_SIZE];
    uint8_t aucReserved[3];                   /* zero */
} SignedCertUpload;
BMCCERT_LAYOUT_ASSERT(SignedUpload_size, sizeof(SignedCertUpload) == 1112);
BMCCERT_LAYOUT_ASSERT(SignedUpload_path, offsetof(SignedCertUpload, CertSrcPath) == 84);



/* ---- Keys born on the controller and signing requests ------------------- */
/*
 * Checks the request (see SSLCertRequest), makes a new key pair with
 * OpenSSL inside the process, and a signing request for it: the subject's
 * seven attributes, the alternative names, key usage (digital signature,
 * and key encipherment for RSA) and the serverAuth extended key usage,
 * signed with SHA-256 (SHA-384 for P-384). The key becomes the pending key,
 * replacing any earlier one: stored with the request, mode 0600, in
 * /conf/certs/server/pending/csr.pem by a rename after the data reached the
 * disk, so that a restart or a power cut leaves the previous pending key or
 * the new one. The request's PEM is copied into pcCsrPem (uiCsrPemSize
 * bytes, terminator included; SSLCERT_EXT_CSR_PEM_SIZE is always enough).
 *
 * Results: 0; SSLCERT_EXT_ERR_BAD_SUBJECT, _BAD_ALT_NAME, _BAD_KEY_TYPE
 * (nothing made); SSLCERT_EXT_ERR_KEY_GENERATION; SSLCERT_EXT_ERR_BUFFER_SMALL
 * and SSLCERT_EXT_ERR_PENDING_WRITE (the earlier pending key stays);
 * SSLCERT_ERR_NULL_POINTER. The certificate in force never changes. Waits
 * for a running installation; starts no process. An RSA 4096 key takes
 * seconds on a controller, an EC key milliseconds.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_GenerateCSR(const SSLCertRequest *pstRequest,
                                                  char *pcCsrPem, uint32_t uiCsrPemSize);

/*
 * Tells whether a signing request is pending. Fills pstRequest from the
 * pending request: the seven texts (absent attributes empty), the key's
 * algorithm, bit length and curve, and the alternative names;
 * uiValidDays 0. When pcCsrPem is not NULL the request's PEM is copied into
 * it as LIB_SECURITY_SSL_GenerateCSR does.
 *
 * Results: 0 (a request is pending); SSLCERT_EXT_ERR_NO_PENDING_KEY (none,
 * pstRequest zeroed); SSLCERT_EXT_ERR_BUFFER_SMALL; SSLCERT_ERR_NULL_POINTER
 * (pstRequest). Reads one file; no process.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_GetPendingCSR(SSLCertRequest *pstRequest, char *pcCsrPem,
                                                    uint32_t uiCsrPemSize);

/*
 * Checks a CA's answer to the pending request, without installing it:
 * pcPem (uiPemLength bytes, no terminator needed) is a PEM certificate,
 * optionally followed by its chain, leaf first; or, as CAs hand them out,
 * one DER certificate, or a PKCS#7 bundle in DER or as one PEM "PKCS7"
 * block, whose certificates are ordered leaf first by their issuer names
 * (SSLCERT_EXT_ERR_CHAIN_ORDER when they do not form one chain). In this
 * order:
 *  - at most SSLCERT_EXT_SIGNED_MAX_BYTES bytes (SSLCERT_EXT_ERR_SIGNED_TOO_BIG);
 *  - only certificates, each whole, at least one
 *    (SSLCERT_EXT_ERR_SIGNED_NOT_PEM, the diagnostic says how to convert
 *    another form), at most 8 (SSLCERT_EXT_ERR_CHAIN_TOO_LONG);
 *  - each certificate after the first is the issuer of the one before it:
 *    names match (SSLCERT_EXT_ERR_CHAIN_ORDER), so that a chain in the
 *    wrong order is told as such, and its key verifies the signature
 *    (SSLCERT_EXT_ERR_CHAIN_SIGNATURE, BMCCERT_1.2: the CA's key was
 *    renewed and the answer carries the CA certificate of the other key);
 *    and a CA by its basic constraints, CA:TRUE (key usage
 *    keyCertSign alone is not enough: browsers refuse such an issuer;
 *    SSLCERT_EXT_ERR_CHAIN_NOT_CA), valid now, not signed with MD5 or
 *    SHA-1 (a self-signed root's own signature is not judged) and within
 *    the path length constraints of the CAs after it
 *    (SSLCERT_EXT_ERR_CHAIN_INVALID);
 *  - a request is pending (SSLCERT_EXT_ERR_NO_PENDING_KEY) and the first
 *    certificate, the leaf, carries its public key (a key under RSA 2048
 *    or EC 256 bits, never a pending one: SSLCERT_EXT_ERR_BAD_KEY_TYPE,
 *    the diagnostic names its size; another key:
 *    SSLCERT_EXT_ERR_KEY_MISMATCH, a key of another type included). When
 *    none is pending and the leaf is the user certificate in force (the
 *    retry of an installed answer: the installation consumed the pending
 *    key), the result is 0 at once and a notice says it is already in
 *    force;
 *  - the leaf may serve TLS servers, as the upload's check of the
 *    SSL-server purpose (SSLCERT_EXT_ERR_NOT_SERVER_CERT);
 *  - the leaf is valid now (SSLCERT_EXT_ERR_NOT_VALID_NOW);
 *  - the leaf is not signed with MD5 or SHA-1 (SSLCERT_EXT_ERR_WEAK_SIGNATURE);
 *  - the leaf carries every DNS and IP alternative name of the pending
 *    request (host names in any case, addresses in any notation;
 *    SSLCERT_EXT_ERR_NAME_MISSING);
 *  - while a CA is pinned (LIB_SECURITY_SSL_SetPinnedCA), the answer
 *    verifies up to it with it as the only trust anchor
 *    (SSLCERT_EXT_ERR_NOT_PINNED; also when the stored pin is damaged).
 * Otherwise the chain need not reach a root; trust is the clients' to
 * decide. A leaf alone that did not sign itself (its issuer missing from
 * the answer, and not the pinned CA) is accepted: the installation then
 * says that the chain is incomplete.
 * Results: 0 or the first failed check's code, with a diagnostic;
 * SSLCERT_ERR_NULL_POINTER. No file written, no process.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_CheckSignedCert(const char *pcPem, uint32_t uiPemLength);

/*
 * The management entries that put the CA's answer in service: the first
 * fetches the uploaded file through the platform's file transfer
 * (SSLCERT_EXT_ERR_SIGNED_FETCH when that fails), the second takes the PEM
 * text itself. Both check it as LIB_SECURITY_SSL_CheckSignedCert does and
 * return its code at once when it is refused, with the operation-log entry
 * "Failed to install the signed SSL certificate." (class
 * SSLCERT_OPERATE_LOG_CLASS) and nothing started.
 *
 * An accepted answer is installed by a task of the controller's task
 * service, as an upload's import is: pstTask is filled and the call returns
 * 0 at once; its thread installs the leaf with its chain after it as the
 * user certificate with the pending key (SECURITY_SSL_UpdateSSLCert: the
 * chain follows the leaf in actualcert.pem and in server.pem), consumes the
 * pending key, restarts stunnel.service, reports the task (state 2 with
 * "Signed Server Cert installed"; state 4 with "Failed to install Server
 * Cert", or "Installed, tunnel not restarted" when only the tunnel's
 * restart failed), writes the
 * operation log ("Installed the signed SSL certificate successfully." or
 * the failure text) and restarts lighttpd.service 2 seconds later. When
 * the leaf's issuer is missing from the answer (see
 * LIB_SECURITY_SSL_CheckSignedCert) the task's state 2 text is
 * "Installed, chain incomplete", the operation log's "Installed the signed
 * SSL certificate successfully, but its chain is incomplete: the issuer of
 * the certificate is missing." and a level 6 diagnostic says so. A
 * failed installation leaves the previous certificate in force and the
 * pending key in place; a failed tunnel restart leaves the new certificate
 * installed. An answer already in force (see
 * LIB_SECURITY_SSL_CheckSignedCert) is a harmless retry: its task ends in
 * state 2 with "Signed Cert already in force", the operation log
 * says "The signed SSL certificate is already in force.", nothing is
 * written and no service restarts.
 *
 * Results: 0; a check's code; SSLCERT_EXT_ERR_SIGNED_FETCH also when
 * CertSrcPath does not fit the file transfer's record (1023 characters)
 * or a text of the LogOrigin fills its field without a terminator
 * (refused, never cut; no operation-log entry then); SSLCERT_EXT_ERR_TASK
 * (the task service or the thread refused; nothing installed; a task
 * already registered is reported failed); SSLCERT_EXT_ERR_LOCK;
 * SSLCERT_ERR_NULL_POINTER. The
 * thread is named SSL_ImSignedCer; the process must outlive it:
 * LIB_SECURITY_SSL_WaitImportTask returns once it has nothing left to do.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_ImportSignedCert(const SignedCertUpload *pstUpload,
                                                       TaskHandle *pstTask);
BMCCERT_API uint32_t LIB_SECURITY_SSL_ImportSignedCertPem(const LogOrigin *pstLogOrigin,
                                                          const char *pcPem,
                                                          uint32_t uiPemLength,
                                                          TaskHandle *pstTask);

/*
 * Generate and restart with a request: a new key of the request's type and
 * a self-signed certificate for its subject and alternative names (not the
 * extension file's), valid uiValidDays days from now, serial random,
 * SHA-256 (SHA-384 for P-384), basic constraints CA:FALSE, key usage and
 * serverAuth as a signing request asks. Installed as the user certificate
 * (SECURITY_SSL_UpdateSSLCert), then stunnel.service restarted (waiting
 * for systemctl) and lighttpd.service 2 seconds later in the background,
 * and pstOperateLog filled as LIB_SECURITY_GenAndRestartService fills it.
 * The pending key, if any, stays pending.
 *
 * Results: 0; the request's codes (nothing made); SSLCERT_EXT_ERR_BAD_SUBJECT
 * also for uiValidDays outside 1..5475; SSLCERT_EXT_ERR_KEY_GENERATION;
 * SSLCERT_EXT_ERR_INSTALL (the installation failed: the previous
 * certificate stays in force); SSLCERT_EXT_ERR_RESTART (the new certificate
 * is installed and in force, but the tunnel did not restart: it serves the
 * previous one until it does); SSLCERT_ERR_NULL_POINTER. Starts
 * systemctl and a background shell; no openssl tool.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_GenSelfSignedAndRestart(const SSLCertRequest *pstRequest,
                                                              OperateDesc *pstOperateLog);

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

/* ---- Added at BMCCERT_1.2 ------------------------------------------------ */

/*
 * Drops the pending key and its request (BMCCERT_1.2): the file
 * /conf/certs/server/pending/csr.pem is removed and its directory synced,
 * so that an answer to that request can no longer be installed.
 * Results: 0; SSLCERT_EXT_ERR_NO_PENDING_KEY (nothing was pending);
 * SSLCERT_EXT_ERR_PENDING_WRITE (the file could not be removed: it stays
 * pending); SSLCERT_EXT_ERR_LOCK. Waits for a running installation.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_DropPendingCSR(void);

/*
 * LIB_SECURITY_SSL_CompleteInstallation that says what it did
 * (BMCCERT_1.2): *puiOutcome is SSLCERT_EXT_RECOVER_NONE when nothing was
 * pending, _NEW_SET or _OLD_SET when it completed an interrupted
 * installation in that direction. It also ends the task of the
 * interrupted installation (finished for the new set, failed for the old
 * one) and, when bRestartServices is not 0 and it completed one, restarts
 * stunnel.service and lighttpd.service as an installation does, so that a
 * completion at run time leaves them serving what is installed (at boot,
 * before the services start, pass 0).
 * Results: 0; SSLCERT_EXT_ERR_INSTALL_PENDING; SSLCERT_EXT_ERR_LOCK;
 * SSLCERT_EXT_ERR_RESTART (completed, a restart failed);
 * SSLCERT_ERR_NULL_POINTER.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_RecoverInstallation(uint8_t bRestartServices,
                                                          uint32_t *puiOutcome);

/*
 * The organisation's CA pinned for signed answers (BMCCERT_1.2). While one
 * is pinned, LIB_SECURITY_SSL_CheckSignedCert and the imports of a signed
 * answer refuse an answer whose chain does not end at it, or at a
 * certificate it issued, with SSLCERT_EXT_ERR_NOT_PINNED.
 *
 * Set: pcPem (uiPemLength bytes) is one PEM certificate that is a root CA:
 * a CA by its basic constraints that signed itself, since it is the only
 * trust anchor of the check (SSLCERT_EXT_ERR_PIN_BAD otherwise); stored in
 * /conf/certs/server/pinned_ca.pem (0644) by a rename after the data
 * reached the disk, replacing any earlier pin.
 * Get: copies the pinned PEM into pcPem (uiPemSize bytes, terminator
 * included; SSLCERT_EXT_ERR_BUFFER_SMALL), SSLCERT_EXT_ERR_NO_PIN when none,
 * SSLCERT_EXT_ERR_PIN_BAD when the stored pin is damaged.
 * Clear: removes the pin (0 also when none was pinned).
 * Results besides: SSLCERT_EXT_ERR_PENDING_WRITE when the file could not
 * be written or removed (the earlier pin stays); SSLCERT_EXT_ERR_LOCK (Set
 * and Clear wait for a running installation); SSLCERT_ERR_NULL_POINTER.
 */
/* ---- The health of the controller's certificates (BMCCERT_1.2) ---------- */
/*
 * What an operator's check, a management daemon or a renewal timer asks:
 * does each service serve the certificate in force, is the installed pair
 * whole, is the certificate fit (key strength, signature, names, days
 * left), and how long do the trusted roots and client certificates last.
 * One finding per question, each with a severity, a kind and a text for
 * people: "subject: text" is how `bmccert check` prints it.
 */
#define SSLCERT_EXT_HEALTH_MAX_FINDINGS 64u
#define SSLCERT_EXT_HEALTH_SUBJECT_SIZE 288u /* a directory and a 255-byte file name */
#define SSLCERT_EXT_HEALTH_TEXT_SIZE    512u

#define SSLCERT_EXT_SEVERITY_OK      0u
#define SSLCERT_EXT_SEVERITY_WARNING 1u
#define SSLCERT_EXT_SEVERITY_FAULT   2u

/* What a finding is about. */
#define SSLCERT_EXT_FINDING_IN_FORCE        1u  /* which certificate is in force, and its file */
#define SSLCERT_EXT_FINDING_TUNNEL_SERVES   2u  /* what the tunnel serves against it */
#define SSLCERT_EXT_FINDING_WEB_SERVES      3u  /* what the web server serves against it */
#define SSLCERT_EXT_FINDING_PAIR            4u  /* the installed key belongs to it */
#define SSLCERT_EXT_FINDING_COMBINED        5u  /* /conf/certs/server/server.pem starts with it */
#define SSLCERT_EXT_FINDING_KEY             6u  /* key algorithm and strength */
#define SSLCERT_EXT_FINDING_SIGNATURE       7u  /* signature algorithm */
#define SSLCERT_EXT_FINDING_NAMES           8u  /* the alternative names list the common name */
#define SSLCERT_EXT_FINDING_HOST_NAME       9u  /* they list the controller's host name */
#define SSLCERT_EXT_FINDING_VALIDITY        10u /* days left of the certificate in force */
#define SSLCERT_EXT_FINDING_ROOT_VALIDITY   11u /* days left of a trusted root's file */
#define SSLCERT_EXT_FINDING_CLIENT_VALIDITY 12u /* days left of a client certificate's file */
#define SSLCERT_EXT_FINDING_ROOT_RECORD     13u /* a trusted root's record names no usable file */
#define SSLCERT_EXT_FINDING_CLIENT_RECORD   14u /* a client certificate's record names no usable file */
#define SSLCERT_EXT_FINDING_REVOCATION      15u /* how revocation is checked; a root's list out of date */
#define SSLCERT_EXT_FINDING_ENROLMENT       16u /* ACME renewal: when next, how the last attempt went */

/* One finding. Texts always end inside their fields; a text longer than
 * its field ends in "..." there. iDaysLeft is set for the validity kinds
 * (whole days, negative once expired), else 0. */
typedef struct SSLHealthFinding_s {
    uint32_t uiSeverity;
    uint32_t uiKind;
    int32_t iDaysLeft;
    uint32_t uiReserved;                      /* zero */
    char szSubject[SSLCERT_EXT_HEALTH_SUBJECT_SIZE];
    char szText[SSLCERT_EXT_HEALTH_TEXT_SIZE];
} SSLHealthFinding;
BMCCERT_LAYOUT_ASSERT(HealthFinding_size, sizeof(SSLHealthFinding) == 816);
BMCCERT_LAYOUT_ASSERT(HealthFinding_days, offsetof(SSLHealthFinding, iDaysLeft) == 8);
BMCCERT_LAYOUT_ASSERT(HealthFinding_subject, offsetof(SSLHealthFinding, szSubject) == 16);
BMCCERT_LAYOUT_ASSERT(HealthFinding_text, offsetof(SSLHealthFinding, szText) == 304);

/* The findings in the order the check makes them; uiOmitted counts those
 * past SSLCERT_EXT_HEALTH_MAX_FINDINGS (their severities are counted in
 * uiFaults and uiWarnings all the same). */
typedef struct SSLHealthRecord_s {
    uint32_t uiCount;
    uint32_t uiFaults;
    uint32_t uiWarnings;
    uint32_t uiOmitted;
    SSLHealthFinding astFindings[SSLCERT_EXT_HEALTH_MAX_FINDINGS];
} SSLHealthRecord;
BMCCERT_LAYOUT_ASSERT(HealthRecord_size, sizeof(SSLHealthRecord) == 16 + 64 * 816);
BMCCERT_LAYOUT_ASSERT(HealthRecord_findings, offsetof(SSLHealthRecord, astFindings) == 16);

/* Where the services are probed: on 127.0.0.1 at these ports, 0 for the
 * port of the service's own configuration (/conf/adviserd/stunnel.conf's
 * first service, /conf/lighttpd/lighttpd.conf's TLS listener); each
 * service gets at most uiTimeoutMs for connection and handshake together
 * (0 for 2000, at most 30000). */
typedef struct SSLHealthProbe_s {
    uint32_t uiTunnelPort;
    uint32_t uiWebPort;
    uint32_t uiTimeoutMs;
} SSLHealthProbe;
BMCCERT_LAYOUT_ASSERT(HealthProbe_size, sizeof(SSLHealthProbe) == 12);

/*
 * Fills pstRecord (zeroed first) with the findings: the certificate in
 * force; what each service serves, probed in process with a TLS client
 * that trusts nothing and compares (pstProbe may be NULL for the
 * defaults); the installed pair and combined file; key, signature, names
 * (the common name and the controller's host name among the alternative
 * names); days left of it, of every file of /conf/certs/root and of
 * /conf/certs/client; a fault for every root or client record whose
 * file name leaves its directory or names no readable certificate; how
 * revocation is checked; and, where the certificate comes from an ACME CA,
 * the next renewal and the last attempt's result (a warning while it
 * fails). Reads only public parts; writes nothing; starts no process.
 * Blocks at most twice the probe's time.
 * Results: 0 (the record tells the rest); SSLCERT_ERR_NULL_POINTER.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_CheckHealth(const SSLHealthProbe *pstProbe,
                                                  SSLHealthRecord *pstRecord);
/* The same without the two services' findings: no network, for callers
 * that must not block. */
BMCCERT_API uint32_t LIB_SECURITY_SSL_CheckHealthOffline(SSLHealthRecord *pstRecord);

/*
 * What a result code means (BMCCERT_1.2), for any code of the three
 * headers and the codes the library hands on from the platform and the
 * records' owner: *ppcName the header's constant ("SSLCERT_EXT_ERR_LOCK"),
 * *ppcSentence one sentence of what happened, *puiInForce what the code
 * tells of the certificate in force: SSLCERT_EXT_IN_FORCE_UNCHANGED,
 * _CHANGED (the new certificate is in force although the call failed), or
 * _DEPENDS (read it again: success of an installation, or a failure that
 * may come after the installation). The texts are constant and live as
 * long as the library is loaded; any of the three pointers may be NULL.
 * Results: 0; SSLCERT_EXT_ERR_UNKNOWN_CODE (nothing written).
 */
#define SSLCERT_EXT_IN_FORCE_UNCHANGED 0u
#define SSLCERT_EXT_IN_FORCE_CHANGED   1u
#define SSLCERT_EXT_IN_FORCE_DEPENDS   2u
BMCCERT_API uint32_t LIB_SECURITY_SSL_DescribeResult(uint32_t uiCode, const char **ppcName,
                                                     const char **ppcSentence,
                                                     uint32_t *puiInForce);

/*
 * What to do about a result code (BMCCERT_1.2): *ppcAdvice one sentence
 * for the operator, constant as the texts of LIB_SECURITY_SSL_DescribeResult.
 * Results: 0; SSLCERT_EXT_ERR_UNKNOWN_CODE when the code has no advice
 * (success, or nothing an operator can do beyond its sentence; nothing
 * written); SSLCERT_ERR_NULL_POINTER.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_AdviseResult(uint32_t uiCode, const char **ppcAdvice);

BMCCERT_API uint32_t LIB_SECURITY_SSL_SetPinnedCA(const char *pcPem, uint32_t uiPemLength);
BMCCERT_API uint32_t LIB_SECURITY_SSL_GetPinnedCA(char *pcPem, uint32_t uiPemSize);
BMCCERT_API uint32_t LIB_SECURITY_SSL_ClearPinnedCA(void);


/* ---- The end of an import task (BMCCERT_1.2) ---------------------------- */
/*
 * Waits at most uiTimeoutMs milliseconds (0: only looks) for the end of an
 * import task that LIB_SECURITY_UploadAndRestartService,
 * SECURITY_SSL_ImportCert, LIB_SECURITY_SSL_ImportSignedCert or
 * LIB_SECURITY_SSL_ImportSignedCertPem started in this process, named by
 * the TaskId they filled in.
 *
 * A task has ended when its thread has nothing left to do: it has made
 * its final report to the task service and, after a success, restarted
 * the web server 2 seconds later (whether or not that restart worked).
 * Once this returns 0 the process may exit without cutting the thread
 * short; no further wait is needed.
 *
 * *puiState is the task's final state as reported to the task service:
 * 2 finished, 4 failed (0 while it runs). *puiResult is the import's own
 * result: 0 when it finished; for an upload the failed step's code (for
 * instance 0x9800000A, signed with MD5); for a signed answer the
 * extension's code (SSLCERT_EXT_ERR_INSTALL, _RESTART, _LOCK or a check's
 * code). A failed web server restart changes neither.
 * The last 64 tasks that ended are remembered; tasks still running always.
 *
 * Results: 0 (ended); SSLCERT_EXT_ERR_TASK_RUNNING (the time ran out:
 * *puiState 0, call again); SSLCERT_EXT_ERR_TASK_UNKNOWN (no such task
 * was started by this process, or it ended 64 tasks ago);
 * SSLCERT_ERR_NULL_POINTER. Starts no process; reads no file.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_WaitImportTask(uint32_t uiTaskId, uint32_t uiTimeoutMs,
                                                     uint32_t *puiState, uint32_t *puiResult);

/* ---- Which field of a request is refused (BMCCERT_1.2) ------------------ */
/* The fields a check names; an alternative name is
 * SSLCERT_EXT_FIELD_ALT_NAME + its index in astAltNames. */
#define SSLCERT_EXT_FIELD_NONE           0u /* every field passes */
#define SSLCERT_EXT_FIELD_COMMON_NAME    1u
#define SSLCERT_EXT_FIELD_ORGANISATION   2u
#define SSLCERT_EXT_FIELD_UNIT           3u
#define SSLCERT_EXT_FIELD_LOCALITY       4u
#define SSLCERT_EXT_FIELD_STATE          5u
#define SSLCERT_EXT_FIELD_COUNTRY        6u
#define SSLCERT_EXT_FIELD_EMAIL          7u
#define SSLCERT_EXT_FIELD_VALID_DAYS     8u
#define SSLCERT_EXT_FIELD_KEY_TYPE       9u  /* algorithm, bit length or curve; a key length */
#define SSLCERT_EXT_FIELD_ALT_NAME_COUNT 10u /* uiAltNameCount above 16 */
#define SSLCERT_EXT_FIELD_ALT_NAME       16u /* + index: 16 to 31 */

/*
 * The check that LIB_SECURITY_SSL_GenerateCSR (bSelfSigned 0) or
 * LIB_SECURITY_SSL_GenSelfSignedAndRestart (bSelfSigned not 0: uiValidDays
 * too) makes of a request, with the same rules, order and diagnostic, and
 * *puiField the first field it refused (SSLCERT_EXT_FIELD_NONE with 0).
 * Results: 0; SSLCERT_EXT_ERR_BAD_SUBJECT, _BAD_ALT_NAME, _BAD_KEY_TYPE;
 * SSLCERT_ERR_NULL_POINTER. Nothing made, no file, no process.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_CheckCertRequestField(const SSLCertRequest *pstRequest,
                                                            uint8_t bSelfSigned,
                                                            uint32_t *puiField);
/*
 * SECURITY_SSL_GenSSLCert_Check (lib_security_sslcert.h) with its rules,
 * order, diagnostic and result, and *puiField the first field it refused
 * (SSLCERT_EXT_FIELD_KEY_TYPE for uiKeyLength; _NONE with 0).
 * Results: the check's; SSLCERT_ERR_NULL_POINTER also for puiField.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_CheckGenParamField(const SSLCertGenParam *pstSSLCert,
                                                         uint32_t *puiField);

/* ---- Revocation of client certificates (BMCCERT_1.2) -------------------- */
/*
 * How LIB_SSL_CertRevokeCheck (and so the login by certificate while
 * revocation checking is on) decides:
 *   _COMMAND   the openssl tool asked without a trust anchor, as
 *              lib_ssl_auth.h describes (the default, and the method while
 *              no setting is stored). Its answer is NOT verified: whoever
 *              answers for the responder's address can call a revoked
 *              certificate good.
 *   _OCSP      asked in process over HTTP, with a nonce; the answer is
 *              verified against the root the record names: signed by that
 *              root or by a responder certificate it issued for OCSP
 *              signing, about this certificate, fresh.
 *   _CRL       the list installed for that root, verified against it.
 *   _OCSP_CRL  OCSP; where no answer comes (unreachable, too big,
 *              malformed), the list.
 * Under the verified methods the certificate file must be the one its
 * record describes (serial, issued by the record's root).
 * uiOnFailure decides what a failure to get a usable answer does (no
 * responder, unreachable, malformed, stale, no list): _REFUSE the login
 * (the default), or _ALLOW it with an operation-log entry. An answer that
 * says revoked or unknown, or that fails its verification, always refuses.
 */
#define SSLCERT_EXT_REVOCATION_COMMAND  0u
#define SSLCERT_EXT_REVOCATION_OCSP     1u
#define SSLCERT_EXT_REVOCATION_CRL      2u
#define SSLCERT_EXT_REVOCATION_OCSP_CRL 3u
#define SSLCERT_EXT_ON_FAILURE_REFUSE   0u
#define SSLCERT_EXT_ON_FAILURE_ALLOW    1u
/* Where the setting is stored in the configuration database. */
#define SSLCERT_EXT_REVOCATION_DB_KEY   0x221102FFu

/* uiMaxAgeSeconds: an OCSP answer whose thisUpdate is older is stale
 * (1 to 2592000; 604800 by default); uiClockSkewSeconds: how far the
 * responder's clock may be off (0 to 3600; 300 by default). */
typedef struct SSLRevocationPolicy_s {
    uint32_t uiMethod;
    uint32_t uiOnFailure;
    uint32_t uiMaxAgeSeconds;
    uint32_t uiClockSkewSeconds;
} SSLRevocationPolicy;
BMCCERT_LAYOUT_ASSERT(RevocationPolicy_size, sizeof(SSLRevocationPolicy) == 16);
BMCCERT_LAYOUT_ASSERT(RevocationPolicy_age, offsetof(SSLRevocationPolicy, uiMaxAgeSeconds) == 8);

/* The list installed for one trusted root: times in seconds since
 * 1970-01-01 UTC (llNextUpdate 0 when the list names none). */
typedef struct SSLCrlSummary_s {
    uint32_t uiRootCertId;
    uint32_t uiEntries;
    int64_t llLastUpdate;
    int64_t llNextUpdate;
} SSLCrlSummary;
BMCCERT_LAYOUT_ASSERT(CrlSummary_size, sizeof(SSLCrlSummary) == 24);
BMCCERT_LAYOUT_ASSERT(CrlSummary_last, offsetof(SSLCrlSummary, llLastUpdate) == 8);

typedef struct SSLRevocationState_s {
    SSLRevocationPolicy stPolicy;
    uint32_t uiCrlCount; /* entries of astCrl used, one per root with a list */
    uint32_t uiReserved; /* zero */
    SSLCrlSummary astCrl[20];
} SSLRevocationState;
BMCCERT_LAYOUT_ASSERT(RevocationState_crl, offsetof(SSLRevocationState, astCrl) == 24);
BMCCERT_LAYOUT_ASSERT(RevocationState_size, sizeof(SSLRevocationState) == 504);

/* Stores the method and policy. Results: 0; SSLCERT_EXT_ERR_REVOCATION_SETTING
 * (a value out of range, or the database refused it); SSLCERT_ERR_NULL_POINTER. */
BMCCERT_API uint32_t LIB_SECURITY_SSL_SetRevocationPolicy(const SSLRevocationPolicy *pstPolicy);
/* The stored policy (the defaults while none is stored) and the lists
 * installed. Results: 0; SSLCERT_ERR_NULL_POINTER; the root list's codes. */
BMCCERT_API uint32_t LIB_SECURITY_SSL_GetRevocationState(SSLRevocationState *pstState);
/* Installs a certificate revocation list (PEM or DER, at most 4 MiB and
 * 50000 entries) for the trusted root uiRootCertId: the list must be
 * signed by that root and not past its next update. Installed beside the
 * root's file as "<root file>.crl" (mode 0644), replacing the previous
 * list whole. Results: 0; SSLCERT_EXT_ERR_CRL_BAD, _CRL_STALE,
 * _ANSWER_TOO_BIG (the previous list stays); SSLCERT_EXT_ERR_REVOCATION_SETTING
 * (no such root, or the file could not be written); SSLCERT_ERR_NULL_POINTER. */
BMCCERT_API uint32_t LIB_SECURITY_SSL_AddRootCRL(uint32_t uiRootCertId, const char *pcCrl,
                                                 uint32_t uiLength);
/* Fetches the list of root uiRootCertId from the first http:// CRL
 * distribution point named by one of its client certificates (bounded
 * time and size, no redirect) and installs it as LIB_SECURITY_SSL_AddRootCRL
 * does. Results: those of LIB_SECURITY_SSL_AddRootCRL;
 * SSLCERT_EXT_ERR_NO_RESPONDER, _UNREACHABLE. */
BMCCERT_API uint32_t LIB_SECURITY_SSL_FetchRootCRL(uint32_t uiRootCertId);

/* ---- ACME enrolment and renewal (BMCCERT_1.2) ---------------------------- */
/*
 * The controller enrols its server certificate with a CA that speaks ACME
 * (RFC 8555) and renews it unattended; its keys never leave it. The
 * settings map one to one to a management schema's automatic certificate
 * enrolment: ServerURI, Enabled, VerifyCertificate, RenewBeforeExpiryDays,
 * ACME Email, EABKeyId, EABKey (write only: see
 * LIB_SECURITY_SSL_AcmeSetEnrollment), ChallengeType, the GenerateCSR
 * parameters (stRequest, the request record above), the enrolled
 * certificate (the server certificate in force) and the enrolment state
 * (SSLAcmeStatus: last operation, its time and result).
 *
 * Texts end inside their fields (refused otherwise, never cut).
 * szServerUri is the directory's https:// URL; szEmail an address without
 * "mailto:" (empty: no contact); szEabKeyId empty without a binding.
 * ucChallengeType SSLCERT_EXT_ACME_HTTP01 (answered by the controller's web
 * server under /.well-known/acme-challenge/ over plain HTTP); _DNS01 is
 * refused with SSLCERT_EXT_ERR_ACME_SETTING (the controller cannot publish
 * DNS records). uiRenewBeforeExpiryDays 0: renew inside the CA's suggested
 * window, else when a third of the lifetime remains, each shifted at
 * random so that controllers issued together renew apart; 1 to 3650: that
 * many days before expiry (shifted by up to a tenth of the lifetime).
 * uiWarnDaysLeft (0: 14): a failed renewal raises a diagnostic event once
 * fewer days remain.
 */
#define SSLCERT_EXT_ACME_HTTP01 1u
#define SSLCERT_EXT_ACME_DNS01  2u
#define SSLCERT_EXT_ACME_URL_SIZE 256u
#define SSLCERT_EXT_ACME_TEXT_SIZE 128u

typedef struct SSLAcmeEnrollment_s {
    char szServerUri[SSLCERT_EXT_ACME_URL_SIZE];
    char szEmail[SSLCERT_EXT_ACME_TEXT_SIZE];
    char szEabKeyId[SSLCERT_EXT_ACME_TEXT_SIZE];
    uint8_t ucEnabled;           /* 1: LIB_SECURITY_SSL_AcmeRenewIfDue renews */
    uint8_t ucVerifyCertificate; /* 1: the CA's HTTPS certificate is verified */
    uint8_t ucAgreeToTerms;      /* 1: the CA's terms of service are agreed to */
    uint8_t ucChallengeType;
    uint32_t uiRenewBeforeExpiryDays;
    uint32_t uiWarnDaysLeft;
    uint32_t uiReserved;         /* zero */
    SSLCertRequest stRequest;
} SSLAcmeEnrollment;
BMCCERT_LAYOUT_ASSERT(AcmeEnrollment_email, offsetof(SSLAcmeEnrollment, szEmail) == 256);
BMCCERT_LAYOUT_ASSERT(AcmeEnrollment_flags, offsetof(SSLAcmeEnrollment, ucEnabled) == 512);
BMCCERT_LAYOUT_ASSERT(AcmeEnrollment_days, offsetof(SSLAcmeEnrollment, uiRenewBeforeExpiryDays) == 516);
BMCCERT_LAYOUT_ASSERT(AcmeEnrollment_request, offsetof(SSLAcmeEnrollment, stRequest) == 528);
BMCCERT_LAYOUT_ASSERT(AcmeEnrollment_size, sizeof(SSLAcmeEnrollment) == 5296);

#define SSLCERT_EXT_ACME_ACCOUNT_NONE        0u
#define SSLCERT_EXT_ACME_ACCOUNT_VALID       1u
#define SSLCERT_EXT_ACME_ACCOUNT_DEACTIVATED 2u
#define SSLCERT_EXT_ACME_OP_NONE       0u
#define SSLCERT_EXT_ACME_OP_REGISTER   1u
#define SSLCERT_EXT_ACME_OP_ENROLL     2u
#define SSLCERT_EXT_ACME_OP_RENEW      3u
#define SSLCERT_EXT_ACME_OP_DEACTIVATE 4u
#define SSLCERT_EXT_ACME_OP_ROLL_KEY   5u

/* The account and the enrolment state; times in seconds since 1970 UTC. */
typedef struct SSLAcmeStatus_s {
    char szAccountUrl[SSLCERT_EXT_ACME_URL_SIZE]; /* "" while none is registered */
    char szKeyThumbprint[48];  /* the account key's RFC 7638 thumbprint, base64url */
    uint8_t ucAccountState;    /* SSLCERT_EXT_ACME_ACCOUNT_* */
    uint8_t ucHasEabKey;       /* a MAC key waits for the registration */
    uint8_t ucHasServerCa;     /* the CA's HTTPS is verified against a stored root */
    uint8_t ucReserved;
    uint32_t uiLastOperation;  /* SSLCERT_EXT_ACME_OP_* */
    uint32_t uiLastResult;     /* its result code */
    uint32_t uiFailures;       /* failed renewals since the last success */
    int64_t llLastOperationTime;
    int64_t llNextRenewal;     /* when renewal is due (0: no certificate the CA issued) */
    int64_t llNextAttempt;     /* no attempt before (the back-off after failures) */
    char szOrderUrl[SSLCERT_EXT_ACME_URL_SIZE]; /* the order in flight, or "" */
    int64_t llRenewalInfoCheck; /* when the CA's renewal window is asked again (0: never asked) */
} SSLAcmeStatus;
BMCCERT_LAYOUT_ASSERT(AcmeStatus_state, offsetof(SSLAcmeStatus, ucAccountState) == 304);
BMCCERT_LAYOUT_ASSERT(AcmeStatus_op, offsetof(SSLAcmeStatus, uiLastOperation) == 308);
BMCCERT_LAYOUT_ASSERT(AcmeStatus_time, offsetof(SSLAcmeStatus, llLastOperationTime) == 320);
BMCCERT_LAYOUT_ASSERT(AcmeStatus_order, offsetof(SSLAcmeStatus, szOrderUrl) == 344);
BMCCERT_LAYOUT_ASSERT(AcmeStatus_check, offsetof(SSLAcmeStatus, llRenewalInfoCheck) == 600);
BMCCERT_LAYOUT_ASSERT(AcmeStatus_size, sizeof(SSLAcmeStatus) == 608);

/* Where the settings and the state are stored in the configuration database. */
#define SSLCERT_EXT_ACME_SETTINGS_DB_KEY 0x22110300u
#define SSLCERT_EXT_ACME_STATUS_DB_KEY   0x22110301u

/*
 * Stores the settings. pcEabMacKey (NULL: keep the stored one; "": none)
 * is the binding's MAC key, base64url or standard Base64: kept 0600 under
 * /conf/acme until the account is registered, then deleted; never
 * returned, logged or shown. pcServerCaPem (NULL: keep; "": none, the
 * system's roots) is the root that the CA's HTTPS certificate must chain
 * to. Results: 0; SSLCERT_EXT_ERR_ACME_SETTING; SSLCERT_EXT_ERR_BAD_SUBJECT,
 * _BAD_ALT_NAME, _BAD_KEY_TYPE (the request); SSLCERT_ERR_NULL_POINTER.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_AcmeSetEnrollment(const SSLAcmeEnrollment *pstSettings,
                                                        const char *pcEabMacKey,
                                                        const char *pcServerCaPem);
/* The settings (zeroed while none are stored) and the state. Results: 0;
 * SSLCERT_ERR_NULL_POINTER (either). */
BMCCERT_API uint32_t LIB_SECURITY_SSL_AcmeGetEnrollment(SSLAcmeEnrollment *pstSettings,
                                                        SSLAcmeStatus *pstStatus);
/*
 * Registers an account with the directory of the settings: a new EC P-256
 * account key is born on the controller (0600, /conf/acme/account.key),
 * the contact and the agreement sent, and the external account binding
 * (HS256 over the account key) when a key identifier is set. An account
 * already valid at that CA is kept. Results: 0 and the ACME codes.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_AcmeRegister(void);
/* Deactivates the account at the CA; the key is deleted. Results: 0 and the ACME codes. */
BMCCERT_API uint32_t LIB_SECURITY_SSL_AcmeDeactivate(void);
/* Rolls the account over to a new key (RFC 8555 key change); the old key
 * stays in force when the CA refuses. Results: 0 and the ACME codes. */
BMCCERT_API uint32_t LIB_SECURITY_SSL_AcmeRollKey(void);
/*
 * Enrols: a task of the task service ("ACME enrolment task") whose thread
 * orders a certificate for the request's alternative names (DNS names and
 * IP addresses), answers each http-01 challenge (the key authorisation
 * written 0644 under /conf/acme/challenge/ before the challenge is
 * answered, removed afterwards), finalises with the request of a key born
 * for this order (the pending key, as LIB_SECURITY_SSL_GenerateCSR), and
 * installs the chain through LIB_SECURITY_SSL_ImportSignedCertPem (its
 * checks, operation log and restarts). pstTask is filled and the call
 * returns 0 at once; LIB_SECURITY_SSL_WaitImportTask waits for its end,
 * with the enrolment's result. Results: 0; SSLCERT_EXT_ERR_ACME_SETTING
 * (no settings), _NO_ACCOUNT, _BUSY, SSLCERT_EXT_ERR_TASK;
 * SSLCERT_ERR_NULL_POINTER.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_AcmeEnroll(const LogOrigin *pstLogOrigin,
                                                 TaskHandle *pstTask);
/*
 * What a timer runs: where the CA offers renewal information (RFC 9773),
 * its window for the certificate in force is asked again once the time
 * it gave (Retry-After, held to one minute to a day) has passed, and the
 * due time drawn anew inside it. When enrolment is enabled and the
 * certificate in force is due for renewal (see SSLAcmeEnrollment) and no
 * back-off holds,
 * starts LIB_SECURITY_SSL_AcmeEnroll and sets *pucStarted to 1; otherwise
 * 0 with *pucStarted 0. Results: those of LIB_SECURITY_SSL_AcmeEnroll.
 */
BMCCERT_API uint32_t LIB_SECURITY_SSL_AcmeRenewIfDue(const LogOrigin *pstLogOrigin,
                                                     TaskHandle *pstTask, uint8_t *pucStarted);

#ifdef __cplusplus
}
#endif

#endif /* LIB_SECURITY_SSLCERT_EXT_H */
