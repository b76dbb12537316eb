#include "result_codes.h"

#include <array>
#include <charconv>
#include <cstdint>

#include "lib_security_sslcert.h"
#include "lib_security_sslcert_ext.h"
#include "lib_ssl_auth.h"
#include "platform/owner_protocol.h"

namespace bmccert::cli {
namespace {

#define BMCCERT_CODE(constant, meaning)                                                            \
    ResultCode {                                                                                   \
        constant, #constant, meaning                                                               \
    }

// Every code the library returns, hands on from the platform or writes to
// the diagnostics log, with the name a caller finds in the headers.
constexpr std::array kCodes = {
    BMCCERT_CODE(SSLCERT_OK, "success"),

    // ---- 0x81: general, file and database failures
    BMCCERT_CODE(SSLCERT_ERR_GENERAL,
                 "general failure: a bad type code or argument, or a step failed (the "
                 "diagnostics log names it); also the platform's own failure code, handed on"),
    BMCCERT_CODE(SSLCERT_ERR_NULL_POINTER, "a pointer argument was null"),
    BMCCERT_CODE(SSLCERT_ERR_NO_DB, "no handle to the configuration database"),
    BMCCERT_CODE(SSLCERT_ERR_DB_READ, "reading from the configuration database failed"),
    BMCCERT_CODE(SSLCERT_ERR_DB_WRITE, "writing to the configuration database failed"),
    BMCCERT_CODE(SSLCERT_ERR_FILE_TIME, "a file's modification time could not be read"),
    BMCCERT_CODE(SSLCERT_ERR_FILE_OPEN, "a file could not be opened"),
    BMCCERT_CODE(SSLCERT_ERR_EXT_FILE_MISSING,
                 "the extension file /conf/certs/server/cert_v3_extfile.ext is missing"),

    // ---- 0x98: faults of a certificate's content
    BMCCERT_CODE(SSLCERT_ERR_NOT_SERVER_CERT, "the certificate cannot serve as an SSL server"),
    BMCCERT_CODE(SSLCERT_ERR_TMP_CERT_UNREAD,
                 "the temporary certificate could not be read (the openssl tool's dump failed)"),
    BMCCERT_CODE(SSLCERT_ERR_CERT_PARSE,
                 "the certificate could not be parsed or a field could not be extracted"),
    BMCCERT_CODE(SSLCERT_ERR_CERT_EXPIRED, "the certificate has expired"),
    BMCCERT_CODE(SSLCERT_ERR_FILE_TOO_BIG, "an uploaded file is larger than 8191 bytes"),
    BMCCERT_CODE(SSLCERT_ERR_KEY_ENCRYPTED,
                 "the private key is protected by a pass phrase, which is not supported"),
    BMCCERT_CODE(SSLCERT_ERR_KEY_MISMATCH,
                 "certificate and key are refused by a TLS context or do not match"),
    BMCCERT_CODE(SSLCERT_ERR_GEN_REQUEST, "the generation request was refused by its check"),
    BMCCERT_CODE(SSLCERT_ERR_FILE_MISSING, "the uploaded certificate or key file is missing"),
    BMCCERT_CODE(SSLCERT_ERR_MD5_SIGNATURE, "the certificate is signed with MD5"),

    // ---- 0x18: management codes of the server certificate
    BMCCERT_CODE(SSLCERT_MGMT_INFO_UNAVAILABLE,
                 "management: the certificate information could not be obtained"),
    BMCCERT_CODE(SSLCERT_MGMT_GEN_FAILED, "management: generating the certificate failed"),
    BMCCERT_CODE(SSLCERT_MGMT_IMPORT_FAILED, "management: importing the certificate failed"),
    BMCCERT_CODE(SSLCERT_MGMT_GEN_BAD_REQUEST,
                 "management: the generation request was refused (a field broke its rule)"),
    BMCCERT_CODE(SSLCERT_MGMT_PLATFORM_BUSY,
                 "management: the platform refused the operation (0x82000001 or 0x82000002)"),

    // ---- 0x18: management codes of client-certificate authentication
    BMCCERT_CODE(SSL_AUTH_MGMT_STATE_READ_FAILED,
                 "management: the authentication state or the root list could not be read"),
    BMCCERT_CODE(SSL_AUTH_MGMT_REVOKE_READ_FAILED,
                 "management: the revocation-check switch could not be read"),
    BMCCERT_CODE(SSL_AUTH_MGMT_QUERY_FAILED,
                 "management: a record or the user table could not be read for a query"),
    BMCCERT_CODE(SSL_AUTH_MGMT_SET_STATE_FAILED,
                 "management: switching certificate authentication failed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_SET_REVOKE_FAILED,
                 "management: switching revocation checking failed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ROOT_IMPORT_FAILED,
                 "management: importing the root certificate failed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CLIENT_IMPORT_FAILED,
                 "management: importing the client certificate failed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_BIND_FAILED,
                 "management: binding the certificate to the user failed (the records' owner "
                 "refused or could not be reached)"),
    BMCCERT_CODE(SSL_AUTH_MGMT_UNTIE_FAILED,
                 "management: unbinding the certificate failed (the records' owner refused or "
                 "could not be reached)"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CLIENT_DEL_FAILED,
                 "management: deleting the client certificate failed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ROOT_DEL_FAILED, "management: deleting the root certificate failed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_FILE_NAME_LONG,
                 "management: the certificate file name is longer than 32 characters"),
    BMCCERT_CODE(SSL_AUTH_MGMT_FILE_NAME_CHAR,
                 "management: the certificate file name holds a space or one of ` & ( ) ; '"),
    BMCCERT_CODE(SSL_AUTH_MGMT_FILE_NAME_EXT,
                 "management: the certificate file name does not end in .pem, .crt or .cer"),
    BMCCERT_CODE(SSL_AUTH_MGMT_LIST_FULL, "management: all 20 certificate slots are taken"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CERT_IN_USE,
                 "management: the certificate is in use (bound, in force, or issuer of client "
                 "certificates)"),
    BMCCERT_CODE(SSL_AUTH_MGMT_BIND_ANONYMOUS,
                 "management: a certificate cannot be bound to the anonymous user"),
    BMCCERT_CODE(SSL_AUTH_MGMT_UNTIE_ANONYMOUS,
                 "management: the anonymous user's binding cannot be changed"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ROOT_ABSENT,
                 "management: the root certificate to trust does not exist"),
    BMCCERT_CODE(SSL_AUTH_MGMT_USER_ABSENT, "management: the user does not exist"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ID_OUT_OF_RANGE,
                 "management: the certificate id is outside 1 to 20"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CERT_ABSENT, "management: no certificate has that id"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CERT_REFUSED,
                 "management: the records' owner refused the certificate (unreadable, not PEM "
                 "or expired)"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ROOT_CALL_FAILED,
                 "management: the call to the records' owner for a root certificate failed or "
                 "timed out"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CLIENT_CALL_FAILED,
                 "management: the call to the records' owner for a client certificate failed "
                 "or timed out"),
    BMCCERT_CODE(SSL_AUTH_MGMT_CA_INSTALL_FAILED,
                 "management: the root certificate could not be put in the web server's "
                 "configuration"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ROOT_LIST_READ,
                 "management: the root certificate list could not be read"),
    BMCCERT_CODE(SSL_AUTH_MGMT_ROOT_EXPIRED, "management: the root certificate has expired"),
    BMCCERT_CODE(SSL_AUTH_MGMT_LOGIN_NO_CERT,
                 "login: no client certificate has that serial number"),
    BMCCERT_CODE(SSL_AUTH_MGMT_LOGIN_NO_USER, "login: the certificate is bound to no user"),
    BMCCERT_CODE(SSL_AUTH_MGMT_LOGIN_REVOKED,
                 "login: the revocation check did not answer \"good\""),
    BMCCERT_CODE(SSL_AUTH_MGMT_LOGIN_READ,
                 "login: a record, the user table or the password could not be read"),

    // ---- 0x92: faults of client-certificate authentication
    BMCCERT_CODE(SSL_AUTH_ERR_FILE_NAME_LONG,
                 "the certificate file name is longer than 32 characters"),
    BMCCERT_CODE(SSL_AUTH_ERR_FILE_NAME_CHAR,
                 "the certificate file name holds a space or one of ` & ( ) ; '"),
    BMCCERT_CODE(SSL_AUTH_ERR_FILE_NAME_EXT,
                 "the certificate file name does not end in .pem, .crt or .cer"),
    BMCCERT_CODE(SSL_AUTH_ERR_CERT_ABSENT, "no certificate has that id"),
    BMCCERT_CODE(SSL_AUTH_ERR_ROOT_EXPIRED, "the root certificate has expired"),
    BMCCERT_CODE(SSL_AUTH_ERR_ROOT_ABSENT, "the root certificate does not exist"),
    BMCCERT_CODE(SSL_AUTH_ERR_LIGHTTPD_CONF, "the web server's configuration could not be opened"),
    BMCCERT_CODE(SSL_AUTH_ERR_ROOT_LIST_READ, "the root certificate list could not be read"),
    BMCCERT_CODE(SSL_AUTH_ERR_CMD_RUN,
                 "an openssl command line could not be formed or run"),
    BMCCERT_CODE(SSL_AUTH_ERR_NO_OCSP_URL,
                 "the client certificate names no http:// OCSP responder"),
    BMCCERT_CODE(SSL_AUTH_ERR_NO_ISSUER,
                 "the web server's configuration names no ssl.ca-file to use as issuer"),
    BMCCERT_CODE(SSL_AUTH_ERR_NOT_GOOD,
                 "the OCSP responder did not answer \"good\" (revoked, unknown or no answer)"),

    // ---- 0x92: the records' owner's refusals (diagnostics log only; the
    // caller gets the management code named)
    BMCCERT_CODE(owner_protocol::kRefusedBadCertificate,
                 "the records' owner refused the certificate (unreadable, not PEM or expired); "
                 "returned as 0x18000611"),
    BMCCERT_CODE(owner_protocol::kRefusedListFull,
                 "the records' owner has no free slot; returned as 0x1800040B"),
    BMCCERT_CODE(owner_protocol::kRefusedInUse,
                 "the records' owner refused: the certificate is bound, in force or issuer of "
                 "client certificates; returned as 0x1800040C"),
    BMCCERT_CODE(owner_protocol::kRefusedCaInstall,
                 "the records' owner could not install the root in the web server; returned as "
                 "0x18000A04"),

    // ---- 0x8A: the extension
    BMCCERT_CODE(SSLCERT_EXT_ERR_INSTALL_PENDING,
                 "an interrupted installation could not be completed; it stays recorded and "
                 "the next installation tries again"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_BAD_SUBJECT,
                 "the request was refused: a subject text broke its rule, or the days of "
                 "validity are outside 1 to 5475"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_BAD_ALT_NAME,
                 "the request was refused: an alternative name is not a host name or an IP "
                 "address, or there are more than 16"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_BAD_KEY_TYPE,
                 "the request was refused: the key's algorithm, bit length or curve is not one "
                 "of RSA 2048, 3072, 4096, EC P-256, P-384"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_KEY_GENERATION, "OpenSSL could not make the key or the request"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_BUFFER_SMALL, "the PEM does not fit the caller's buffer"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_NO_PENDING_KEY, "no signing request is pending"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_PENDING_WRITE,
                 "the pending key could not be stored; the earlier one stays"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_SIGNED_FETCH,
                 "the CA's answer could not be fetched through the file transfer"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_SIGNED_TOO_BIG,
                 "the CA's answer (certificate and chain) is larger than 64 KiB"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_SIGNED_NOT_PEM,
                 "the CA's answer is not PEM certificates, or one is cut short"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CHAIN_TOO_LONG,
                 "the CA's answer holds more than 8 certificates"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_KEY_MISMATCH,
                 "the leaf certificate is not for the pending key"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_NOT_SERVER_CERT,
                 "the leaf certificate may not serve TLS servers"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_NOT_VALID_NOW,
                 "the leaf certificate has expired or is not yet valid"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_WEAK_SIGNATURE,
                 "the leaf certificate is signed with MD5 or SHA-1"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CHAIN_ORDER,
                 "a certificate of the chain did not issue the one before it (the leaf comes "
                 "first, then its issuer)"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CHAIN_NOT_CA,
                 "a certificate after the leaf is not a CA"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_NAME_MISSING,
                 "the leaf certificate lacks a name the signing request asked for"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_CHAIN_INVALID,
                 "a CA of the chain is not valid now, is signed with MD5 or SHA-1, or its path "
                 "length is exceeded"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_NOT_PINNED, "the answer does not chain to the pinned CA"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_PIN_BAD,
                 "the CA to pin is not one PEM root CA certificate, or the stored pin is damaged"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_NO_PIN, "no CA is pinned"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_TASK,
                 "the installation task or its thread could not start; nothing was installed"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_INSTALL,
                 "the installation failed; the previous certificate stays in force"),
    BMCCERT_CODE(SSLCERT_EXT_ERR_RESTART,
                 "the new certificate is installed, but the tunnel did not restart and serves "
                 "the previous one until it does"),

    // ---- 0x82: the platform's, handed on
    BMCCERT_CODE(BMC_PLATFORM_ERR_1,
                 "the platform's: a remote procedure call did not reach its end"),
    BMCCERT_CODE(BMC_PLATFORM_ERR_2,
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

// A decimal as the diagnostics print a code (%d of the 32-bit value):
// -2147483648 to 4294967295, taken modulo 2^32.
std::optional<uint32_t> ParseDecimal(std::string_view text) {
    int64_t value = 0;
    const char *end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, value, 10);
    if (text.empty() || error != std::errc() || next != end) return std::nullopt;
    if (value < INT32_MIN || value > static_cast<int64_t>(UINT32_MAX)) return std::nullopt;
    return static_cast<uint32_t>(value);
}

// "iRet=", "iRet = ", "Ret = ", "iRet: " as the diagnostics write them;
// returns the text after the prefix, or nothing when there is none.
std::optional<std::string_view> AfterLogPrefix(std::string_view text) {
    for (std::string_view word : {"iRet", "Ret"}) {
        if (text.substr(0, word.size()) != word) continue;
        std::string_view rest = text.substr(word.size());
        while (!rest.empty() && rest.front() == ' ') rest.remove_prefix(1);
        if (rest.empty() || (rest.front() != '=' && rest.front() != ':')) return std::nullopt;
        rest.remove_prefix(1);
        while (!rest.empty() && rest.front() == ' ') rest.remove_prefix(1);
        // The sentence's own punctuation may follow the number.
        if (!rest.empty() && (rest.back() == '.' || rest.back() == ',')) rest.remove_suffix(1);
        return rest;
    }
    return std::nullopt;
}

} // namespace

std::optional<ResultCode> FindResultCode(uint32_t code) {
    for (const ResultCode &entry : kCodes)
        if (entry.code == code) return entry;
    return std::nullopt;
}

std::optional<uint32_t> ParseResultCode(std::string_view text) {
    if (const auto logged = AfterLogPrefix(text)) return ParseDecimal(*logged);
    if (!text.empty() && text.front() == '-') {
        // Without the prefix only a negative number is decimal.
        return ParseDecimal(text);
    }
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X'))
        text.remove_prefix(2);
    uint32_t value = 0;
    const char *end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, value, 16);
    if (text.empty() || error != std::errc() || next != end) return std::nullopt;
    return value;
}

} // namespace bmccert::cli
