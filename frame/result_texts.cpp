// Every result code of the library by its header name, one sentence and
// what it tells of the certificate in force: for the operator's `bmccert
// explain`, for management front ends and for the health record.
#include <array>
#include <cstdint>

#include "frame/frame.h"
#include "lib_security_sslcert.h"
#include "lib_security_sslcert_ext.h"
#include "lib_ssl_auth.h"
#include "platform/owner_protocol.h"

namespace bmccert {
namespace {

constexpr uint32_t kUnchanged = SSLCERT_EXT_IN_FORCE_UNCHANGED;
constexpr uint32_t kChanged = SSLCERT_EXT_IN_FORCE_CHANGED;
constexpr uint32_t kDepends = SSLCERT_EXT_IN_FORCE_DEPENDS;

struct ResultText {
    uint32_t code;
    const char *name;     // the header's constant
    const char *sentence; // what happened
    uint32_t inForce;     // SSLCERT_EXT_IN_FORCE_*
};

#define BMCCERT_CODE(constant, effect, meaning)                                                    \
    ResultText {                                                                                   \
        constant, #constant, meaning, effect                                                       \
    }

// Every code the library returns, hands on from the platform or writes to
// the diagnostics log, with the name a caller finds in the headers.
constexpr std::array kCodes = {
    BMCCERT_CODE(SSLCERT_OK, kDepends, "success"),

    // ---- 0x81: general, file and database failures
    BMCCERT_CODE(SSLCERT_ERR_GENERAL, kUnchanged,
                 "general failure: a bad type code or argument, or a step failed (the "
                 "diagnostics log names it); also the platform's own failure code, handed on"),
    BMCCERT_CODE(SSLCERT_ERR_NULL_POINTER, kUnchanged, "a pointer argument was null"),
    BMCCERT_CODE(SSLCERT_ERR_NO_DB, kUnchanged, "no handle to the configuration database"),
    BMCCERT_CODE(SSLCERT_ERR_DB_READ, kUnchanged, "reading from the configuration database failed"),
    BMCCERT_CODE(SSLCERT_ERR_DB_WRITE, kUnchanged, "writing to the configuration database failed"),
    BMCCERT_CODE(SSLCERT_ERR_FILE_TIME, kUnchanged, "a file's modification time could not be read"),
    BMCCERT_CODE(SSLCERT_ERR_FILE_OPEN, kUnchanged, "a file could not be opened"),
    BMCCERT_CODE(SSLCERT_ERR_EXT_FILE_MISSING, kUnchanged,
                 "the extension file /conf/certs/server/cert_v3_extfile.ext is missing"),

    // ---- 0x98: faults of a certificate's content
    BMCCERT_CODE(SSLCERT_ERR_NOT_SERVER_CERT, kUnchanged, "the certificate cannot serve as an SSL server"),
    BMCCERT_CODE(SSLCERT_ERR_TMP_CERT_UNREAD, kUnchanged,
                 "the temporary certificate could not be read (the openssl tool's dump failed)"),
    BMCCERT_CODE(SSLCERT_ERR_CERT_PARSE, kUnchanged,
                 "the certificate could not be parsed or a field could not be extracted"),
    BMCCERT_CODE(SSLCERT_ERR_CERT_EXPIRED, kUnchanged, "the certificate has expired"),
    BMCCERT_CODE(SSLCERT_ERR_FILE_TOO_BIG, kUnchanged, "an uploaded file is larger than 8191 bytes"),
    BMCCERT_CODE(SSLCERT_ERR_KEY_ENCRYPTED, kUnchanged,
                 "the private key is protected by a pass phrase, which is not supported"),
    BMCCERT_CODE(SSLCERT_ERR_KEY_MISMATCH, kUnchanged,
                 "certificate and key are refused by a TLS context or do not match"),
    BMCCERT_CODE(SSLCERT_ERR_GEN_REQUEST, kUnchanged, "the generation request was refused by its check"),
    BMCCERT_CODE(SSLCERT_ERR_FILE_MISSING, kUnchanged, "the uploaded certificate or key file is missing"),
    BMCCERT_CODE(SSLCERT_ERR_MD5_SIGNATURE, kUnchanged, "the certificate is signed with MD5"),

    // ---- 0x18: management codes of the server certificate
    BMCCERT_CODE(SSLCERT_MGMT_INFO_UNAVAILABLE, kUnchanged,
                 "management: the certificate information could not be obtained"),
    BMCCERT_CODE(SSLCERT_MGMT_GEN_FAILED, kDepends, "management: generating the certificate failed"),
    BMCCERT_CODE(SSLCERT_MGMT_IMPORT_FAILED, kDepends, "management: importing the certificate failed"),
    BMCCERT_CODE(SSLCERT_MGMT_GEN_BAD_REQUEST, kUnchanged,
                 "management: the generation request was refused (a field broke its rule)"),
    BMCCERT_CODE(SSLCERT_MGMT_PLATFORM_BUSY, kDepends,
                 "management: the platform refused the operation (0x82000001 or 0x82000002)"),

    // ---- 0x18: management codes of client-certificate authentication
    BMCCERT_CODE(SSL_AUTH_MGMT_STATE_READ_FAILED, kUnchanged,
                 "management: the authentication state or the root list could not be read"),
    BMCCERT_CODE(SSL_AUTH_MGMT_REVOKE_READ_FAILED, kUnchanged,
                 "management: the revocation-check switch could not be read"),
    BMCCERT_CODE(SSL_AUTH_MGMT_QUERY_FAILED, kUnchanged,
                 "management: a record or the user table could not be read for a query"),
    BMCCERT_CODE(SSL_AUTH_MGMT_SET_STATE_FAILED, kUnchanged,
                 "management: switching certificate authentication failed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_SET_REVOKE_FAILED, kUnchanged,
                 "management: switching revocation checking failed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ROOT_IMPORT_FAILED, kUnchanged,
                 "management: importing the root certificate failed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CLIENT_IMPORT_FAILED, kUnchanged,
                 "management: importing the client certificate failed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_BIND_FAILED, kUnchanged,
                 "management: binding the certificate to the user failed (the records' owner "
                 "refused or could not be reached)"),
    BMCCERT_CODE(SSL_AUTH_MGMT_UNTIE_FAILED, kUnchanged,
                 "management: unbinding the certificate failed (the records' owner refused or "
                 "could not be reached)"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CLIENT_DEL_FAILED, kUnchanged,
                 "management: deleting the client certificate failed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ROOT_DEL_FAILED, kUnchanged, "management: deleting the root certificate failed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_FILE_NAME_LONG, kUnchanged,
                 "management: the certificate file name is longer than 32 characters"),
    BMCCERT_CODE(SSL_AUTH_MGMT_FILE_NAME_CHAR, kUnchanged,
                 "management: the certificate file name holds a space or one of ` & ( ) ; '"),
    BMCCERT_CODE(SSL_AUTH_MGMT_FILE_NAME_EXT, kUnchanged,
                 "management: the certificate file name does not end in .pem, .crt or .cer"),
    BMCCERT_CODE(SSL_AUTH_MGMT_LIST_FULL, kUnchanged, "management: all 20 certificate slots are taken"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CERT_IN_USE, kUnchanged,
                 "management: the certificate is in use (bound, in force, or issuer of client "
                 "certificates)"),
    BMCCERT_CODE(SSL_AUTH_MGMT_BIND_ANONYMOUS, kUnchanged,
                 "management: a certificate cannot be bound to the anonymous user"),
    BMCCERT_CODE(SSL_AUTH_MGMT_UNTIE_ANONYMOUS, kUnchanged,
                 "management: the anonymous user's binding cannot be changed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ROOT_ABSENT, kUnchanged,
                 "management: the root certificate to trust does not exist"),
    BMCCERT_CODE(SSL_AUTH_MGMT_USER_ABSENT, kUnchanged, "management: the user does not exist"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ID_OUT_OF_RANGE, kUnchanged,
                 "management: the certificate id is outside 1 to 20"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CERT_ABSENT, kUnchanged, "management: no certificate has that id"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CERT_REFUSED, kUnchanged,
                 "management: the records' owner refused the certificate (unreadable, not PEM "
                 "or expired)"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ROOT_CALL_FAILED, kUnchanged,
                 "management: the call to the records' owner for a root certificate failed or "
                 "timed out"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CLIENT_CALL_FAILED, kUnchanged,
                 "management: the call to the records' owner for a client certificate failed "
                 "or timed out"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CA_INSTALL_FAILED, kUnchanged,
                 "management: the root certificate could not be put in the web server's "
                 "configuration"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ROOT_LIST_READ, kUnchanged,
                 "management: the root certificate list could not be read"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ROOT_EXPIRED, kUnchanged, "management: the root certificate has expired"),
    BMCCERT_CODE(SSL_AUTH_MGMT_LOGIN_NO_CERT, kUnchanged,
                 "login: no client certificate has that serial number"),
    BMCCERT_CODE(SSL_AUTH_MGMT_LOGIN_NO_USER, kUnchanged, "login: the certificate is bound to no user"),
    BMCCERT_CODE(SSL_AUTH_MGMT_LOGIN_REVOKED, kUnchanged,
                 "login: the revocation check did not answer \"good\""),
    BMCCERT_CODE(SSL_AUTH_MGMT_LOGIN_READ, kUnchanged,
                 "login: a record, the user table or the password could not be read"),

    // ---- 0x92: faults of client-certificate authentication
    BMCCERT_CODE(SSL_AUTH_ERR_FILE_NAME_LONG, kUnchanged,
                 "the certificate file name is longer than 32 characters"),
    BMCCERT_CODE(SSL_AUTH_ERR_FILE_NAME_CHAR, kUnchanged,
                 "the certificate file name holds a space or one of ` & ( ) ; '"),
    BMCCERT_CODE(SSL_AUTH_ERR_FILE_NAME_EXT, kUnchanged,
                 "the certificate file name does not end in .pem, .crt or .cer"),
    BMCCERT_CODE(SSL_AUTH_ERR_CERT_ABSENT, kUnchanged, "no certificate has that id"),
    BMCCERT_CODE(SSL_AUTH_ERR_ROOT_EXPIRED, kUnchanged, "the root certificate has expired"),
    BMCCERT_CODE(SSL_AUTH_ERR_ROOT_ABSENT, kUnchanged, "the root certificate does not exist"),
    BMCCERT_CODE(SSL_AUTH_ERR_LIGHTTPD_CONF, kUnchanged, "the web server's configuration could not be opened"),
    BMCCERT_CODE(SSL_AUTH_ERR_ROOT_LIST_READ, kUnchanged, "the root certificate list could not be read"),
    BMCCERT_CODE(SSL_AUTH_ERR_CMD_RUN, kUnchanged,
                 "an openssl command line could not be formed or run"),
    BMCCERT_CODE(SSL_AUTH_ERR_NO_OCSP_URL, kUnchanged,
                 "the client certificate names no http:// OCSP responder"),
    BMCCERT_CODE(SSL_AUTH_ERR_NO_ISSUER, kUnchanged,
                 "the web server's configuration names no ssl.ca-file to use as issuer"),
    BMCCERT_CODE(SSL_AUTH_ERR_NOT_GOOD, kUnchanged,
                 "the OCSP responder did not answer \"good\" (revoked, unknown or no answer)"),

    // ---- 0x92: the records' owner's refusals (diagnostics log only; the
    // caller gets the management code named)
    BMCCERT_CODE(owner_protocol::kRefusedBadCertificate, kUnchanged,
                 "the records' owner refused the certificate (unreadable, not PEM or expired); "
                 "returned as 0x18000611"),
    BMCCERT_CODE(owner_protocol::kRefusedListFull, kUnchanged,
                 "the records' owner has no free slot; returned as 0x1800040B"),
    BMCCERT_CODE(owner_protocol::kRefusedInUse, kUnchanged,
                 "the records' owner refused: the certificate is bound, in force or issuer of "
                 "client certificates; returned as 0x1800040C"),
    BMCCERT_CODE(owner_protocol::kRefusedCaInstall, kUnchanged,
                 "the records' owner could not install the root in the web server; returned as "
                 "0x18000A04"),

    // ---- 0x8A: the extension
    BMCCERT_CODE(SSLCERT_EXT_ERR_INSTALL_PENDING, kDepends,
                 "an interrupted installation could not be completed; it stays recorded and "
                 "the next installation tries again"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_BAD_SUBJECT, kUnchanged,
                 "the request was refused: a subject text broke its rule, or the days of "
                 "validity are outside 1 to 5475"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_BAD_ALT_NAME, kUnchanged,
                 "the request was refused: an alternative name is not a host name or an IP "
                 "address, or there are more than 16"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_BAD_KEY_TYPE, kUnchanged,
                 "the request was refused: the key's algorithm, bit length or curve is not one "
                 "of RSA 2048, 3072, 4096, EC P-256, P-384"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_KEY_GENERATION, kUnchanged, "OpenSSL could not make the key or the request"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_BUFFER_SMALL, kUnchanged, "the PEM does not fit the caller's buffer"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_NO_PENDING_KEY, kUnchanged, "no signing request is pending"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_PENDING_WRITE, kUnchanged,
                 "the pending key (or the pinned CA) could not be stored or removed; the "
                 "earlier one stays"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_LOCK, kUnchanged,
                 "the installation lock could not be taken (its file is not a plain file the "
                 "process may lock); nothing was started"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_SIGNED_FETCH, kUnchanged,
                 "the CA's answer could not be fetched through the file transfer"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_SIGNED_TOO_BIG, kUnchanged,
                 "the CA's answer (certificate and chain) is larger than 64 KiB"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_SIGNED_NOT_PEM, kUnchanged,
                 "the CA's answer is not PEM, DER or PKCS#7 certificates, or one is cut short"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CHAIN_TOO_LONG, kUnchanged,
                 "the CA's answer holds more than 8 certificates"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_KEY_MISMATCH, kUnchanged,
                 "the leaf certificate is not for the pending key"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_NOT_SERVER_CERT, kUnchanged,
                 "the leaf certificate may not serve TLS servers"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_NOT_VALID_NOW, kUnchanged,
                 "the leaf certificate has expired or is not yet valid"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_WEAK_SIGNATURE, kUnchanged,
                 "the leaf certificate is signed with MD5 or SHA-1"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CHAIN_ORDER, kUnchanged,
                 "a certificate of the chain did not issue the one before it (the leaf comes "
                 "first, then its issuer)"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CHAIN_NOT_CA, kUnchanged,
                 "a certificate after the leaf is not a CA"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_NAME_MISSING, kUnchanged,
                 "the leaf certificate lacks a name the signing request asked for"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CHAIN_INVALID, kUnchanged,
                 "a CA certificate of the chain has expired, is not yet valid, is signed with "
                 "MD5 or SHA-1, or its path length is exceeded"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_NOT_PINNED, kUnchanged,
                 "the CA's answer does not chain to the pinned CA"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_PIN_BAD, kUnchanged,
                 "the CA to pin is not one PEM root CA certificate, or the stored pin is damaged"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_NO_PIN, kUnchanged, "no CA is pinned"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CHAIN_SIGNATURE, kUnchanged,
                 "a certificate of the chain names the issuer of the one before it, but its key "
                 "did not sign it: the CA's key changed?"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_UNKNOWN_CODE, kUnchanged,
                 "the value is not a result code of the library"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_TASK, kUnchanged,
                 "the installation task or its thread could not start; nothing was installed"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_INSTALL, kUnchanged,
                 "the installation failed; the previous certificate stays in force"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_RESTART, kChanged,
                 "the new certificate is installed, but the tunnel did not restart and serves "
                 "the previous one until it does"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_TASK_RUNNING, kDepends,
                 "the import task's thread was still working when the wait ran out"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_TASK_UNKNOWN, kUnchanged,
                 "no import task of that id was started by this process (or it ended more than "
                 "64 tasks ago)"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CRL_NOT_SERVED, kChanged,
                 "the revocation list is installed and checked at login, but the web server did "
                 "not take it and still checks the previous one"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ACME_SETTING, kUnchanged,
                 "an ACME setting is out of range, not https, does not end inside its field, "
                 "or could not be stored (or this build has no ACME enrolment)"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ACME_NO_ACCOUNT, kUnchanged,
                 "no ACME account is registered, or it was deactivated"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ACME_UNREACHABLE, kUnchanged,
                 "the ACME CA did not answer, or its HTTPS certificate was not trusted; the "
                 "certificate in force stays served"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ACME_MALFORMED, kUnchanged,
                 "the ACME CA's answer is not what it should be, too big, or on another origin"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ACME_REFUSED, kUnchanged, "the ACME CA refused the request"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ACME_BINDING, kUnchanged,
                 "the ACME CA requires an external account binding, or refused the one sent"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ACME_RATE_LIMIT, kUnchanged,
                 "the ACME CA's rate limit: the next attempt waits"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ACME_CHALLENGE, kUnchanged,
                 "the ACME CA could not validate a name of the request over plain HTTP"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ACME_ORDER, kUnchanged,
                 "the ACME order turned invalid or did not complete in time"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ACME_TOKEN, kUnchanged,
                 "a challenge token that is not base64url was refused; no file was written"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ACME_BUSY, kUnchanged,
                 "another ACME enrolment or account change is running"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ACME_KEY, kUnchanged,
                 "the ACME account key could not be made, stored or read"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_REVOKED, kUnchanged,
                 "the client certificate's issuer says it is revoked: the login is refused"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_STATUS_UNKNOWN, kUnchanged,
                 "the OCSP responder does not know the client certificate: the login is refused"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_OCSP_SIGNATURE, kUnchanged,
                 "the OCSP answer's signature does not verify: a forged or damaged answer"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_OCSP_SIGNER, kUnchanged,
                 "the OCSP answer is signed by neither the root nor a responder the root "
                 "certified for OCSP signing"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_OCSP_STALE, kUnchanged,
                 "the OCSP answer is too old, past its next update or not yet valid"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_OCSP_WRONG_CERT, kUnchanged,
                 "the OCSP answer holds no status of the certificate asked about"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_OCSP_NONCE, kUnchanged,
                 "the OCSP answer echoes another nonce than the question's: a replay"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_UNREACHABLE, kUnchanged,
                 "the OCSP responder or the list's distribution point gave no answer in time, "
                 "an HTTP error or a redirect"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ANSWER_TOO_BIG, kUnchanged,
                 "the OCSP answer or revocation list is larger than the library reads"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_ANSWER_MALFORMED, kUnchanged,
                 "the answer is not HTTP, not an OCSP answer, or reports the responder's error"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_NO_RESPONDER, kUnchanged,
                 "the certificate names no http:// address of at most 63 bytes to ask"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CERT_NOT_RECORD, kUnchanged,
                 "the client certificate's file is not the certificate its record describes"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CRL_MISSING, kUnchanged,
                 "no revocation list is installed for the certificate's root"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CRL_STALE, kUnchanged,
                 "the revocation list is past its next update or not yet valid"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CRL_BAD, kUnchanged,
                 "the revocation list does not parse, is not signed by the root, or has too "
                 "many entries: the previous list stays"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_REVOCATION_SETTING, kUnchanged,
                 "a revocation setting is out of range, names no trusted root, or could not be "
                 "stored"),

    // ---- 0x82: the platform's, handed on
    BMCCERT_CODE(BMC_PLATFORM_ERR_1, kUnchanged,
                 "the platform's: a remote procedure call did not reach its end"),
    BMCCERT_CODE(BMC_PLATFORM_ERR_2, kUnchanged,
                 "the platform's: a remote procedure call ran out of its wait limit (a limit "
                 "of 0 fails at once)"),
};

#undef BMCCERT_CODE

constexpr bool UniqueCodes() {
    for (size_t i = 0; i < kCodes.size(); ++i)
        for (size_t j = i + 1; j < kCodes.size(); ++j)
            if (kCodes[i].code == kCodes[j].code) return false;
    return true;
}
static_assert(UniqueCodes(), "a code has one entry");

// What an operator does about a code, where more than its sentence helps.
struct ResultAdvice {
    uint32_t code;
    const char *advice;
};
constexpr std::array kAdvice = {
    ResultAdvice{SSLCERT_ERR_CERT_EXPIRED,
                 "Check the controller's clock first; else ask the CA for a certificate valid now."},
    ResultAdvice{SSLCERT_ERR_FILE_TOO_BIG, "Upload the certificate and the key alone, without "
                                           "other blocks: each file must stay under 8 KiB."},
    ResultAdvice{SSLCERT_ERR_KEY_ENCRYPTED,
                 "Remove the pass phrase: openssl pkey -in KEY -out KEY.plain, then upload that."},
    ResultAdvice{SSLCERT_ERR_KEY_MISMATCH,
                 "Upload the key the certificate was issued for, of at least RSA 2048 or EC 256 "
                 "bits: a weaker key is refused by the TLS stack as well."},
    ResultAdvice{SSLCERT_ERR_MD5_SIGNATURE, "Ask the CA to sign again with SHA-256 or better."},
    ResultAdvice{SSLCERT_MGMT_GEN_BAD_REQUEST,
                 "Correct the field the diagnostics log names and generate again."},
    ResultAdvice{SSLCERT_EXT_ERR_BAD_KEY_TYPE,
                 "Use a key of RSA 2048 to 4096 bits or EC P-256/P-384 and make a new request."},
    ResultAdvice{SSLCERT_EXT_ERR_NO_PENDING_KEY,
                 "Make a signing request first (bmccert csr), then send it to the CA."},
    ResultAdvice{SSLCERT_EXT_ERR_LOCK, "Wait for the running installation to end, then retry."},
    ResultAdvice{SSLCERT_EXT_ERR_SIGNED_TOO_BIG,
                 "Send the leaf and its chain only, without the root store or other files."},
    ResultAdvice{SSLCERT_EXT_ERR_SIGNED_NOT_PEM,
                 "Convert the answer: openssl x509 -inform DER -in FILE -out FILE.pem, or openssl "
                 "pkcs7 -print_certs -in FILE -out FILE.pem."},
    ResultAdvice{SSLCERT_EXT_ERR_CHAIN_TOO_LONG, "Leave the root and any cross-signed CAs out."},
    ResultAdvice{SSLCERT_EXT_ERR_KEY_MISMATCH,
                 "Send the CA the pending request (bmccert csr --show --pem): the answer is for "
                 "another request, or a newer one replaced it."},
    ResultAdvice{SSLCERT_EXT_ERR_NOT_SERVER_CERT,
                 "Ask the CA for a TLS server certificate (extended key usage serverAuth)."},
    ResultAdvice{SSLCERT_EXT_ERR_NOT_VALID_NOW,
                 "Check the controller's clock first; else ask the CA for a certificate valid now."},
    ResultAdvice{SSLCERT_EXT_ERR_WEAK_SIGNATURE, "Ask the CA to sign with SHA-256 or better."},
    ResultAdvice{SSLCERT_EXT_ERR_CHAIN_ORDER,
                 "Put the leaf first, then the CA that issued it, then that CA's issuer."},
    ResultAdvice{SSLCERT_EXT_ERR_CHAIN_SIGNATURE,
                 "Fetch the CA's current chain: the CA certificate sent is of its other key."},
    ResultAdvice{SSLCERT_EXT_ERR_CHAIN_NOT_CA,
                 "Send only CA certificates after the leaf, in their order."},
    ResultAdvice{SSLCERT_EXT_ERR_NAME_MISSING,
                 "Ask the CA to keep the request's alternative names (bmccert csr --show)."},
    ResultAdvice{SSLCERT_EXT_ERR_CHAIN_INVALID, "Ask the CA for its current chain."},
    ResultAdvice{SSLCERT_EXT_ERR_NOT_PINNED,
                 "Have the pinned CA sign the request, or pin the CA that did (bmccert ca pin)."},
    ResultAdvice{SSLCERT_EXT_ERR_INSTALL_PENDING,
                 "Run bmccert recover before anything else is installed."},
    ResultAdvice{SSLCERT_EXT_ERR_CRL_NOT_SERVED,
                 "Switch certificate authentication on again with the same root (bmccert auth "
                 "on ROOT_ID); the web server then reads the list."},
    ResultAdvice{SSLCERT_EXT_ERR_RESTART,
                 "Restart stunnel.service; the new certificate serves once it runs."},
};

constexpr bool AdviceForKnownCodes() {
    for (const ResultAdvice &advice : kAdvice) {
        bool known = false;
        for (const ResultText &entry : kCodes) known = known || entry.code == advice.code;
        if (!known) return false;
    }
    return true;
}
static_assert(AdviceForKnownCodes(), "advice only for codes of the table");

} // namespace
} // namespace bmccert

using namespace bmccert;

extern "C" uint32_t LIB_SECURITY_SSL_AdviseResult(uint32_t uiCode, const char **ppcAdvice) {
    if (ppcAdvice == nullptr) return SSLCERT_ERR_NULL_POINTER;
    for (const ResultAdvice &entry : kAdvice) {
        if (entry.code != uiCode) continue;
        *ppcAdvice = entry.advice;
        return SSLCERT_OK;
    }
    return SSLCERT_EXT_ERR_UNKNOWN_CODE;
}

extern "C" uint32_t LIB_SECURITY_SSL_DescribeResult(uint32_t uiCode, const char **ppcName,
                                                    const char **ppcSentence,
                                                    uint32_t *puiInForce) {
    for (const ResultText &entry : kCodes) {
        if (entry.code != uiCode) continue;
        if (ppcName != nullptr) *ppcName = entry.name;
        if (ppcSentence != nullptr) *ppcSentence = entry.sentence;
        if (puiInForce != nullptr) *puiInForce = entry.inForce;
        return SSLCERT_OK;
    }
    return SSLCERT_EXT_ERR_UNKNOWN_CODE;
}
