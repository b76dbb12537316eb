// Revocation check of a client certificate over OCSP with the openssl tool:
// the responder's address comes from the certificate, the issuer from the
// web server's ssl.ca-file, and only an explicit "good" lets it pass.
//
// Every value in a command line is a single-quoted shell word, whatever it
// holds; a command line that would not fit its 256 bytes is not run at all,
// so a cut never leaves a half-quoted word for the shell.
#include <cstdarg>

#include "frame/record_file_name.h"
#include "sslauth/revocation.h"
#include "sslauth/sslauth_internal.h"

namespace bmccert::sslauth {
namespace {

using namespace bmccert;

constexpr size_t kPathSize = 64;
constexpr size_t kCommandSize = 256;
constexpr size_t kAddressOutputSize = 512;
constexpr size_t kOcspOutputSize = 2048;
constexpr size_t kExpectedSize = 128;
constexpr size_t kConfigLineSize = 512;
constexpr int kOcspTimeoutSeconds = 2;

using Command = char[kCommandSize];
using QuotedWord = char[kCommandSize];

// Formats a command line from quoted words; false when it does not fit.
[[nodiscard]] bool FormatCommand(Command &command, const char *format, ...)
    __attribute__((format(printf, 2, 3)));
bool FormatCommand(Command &command, const char *format, ...) {
    std::va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(command, sizeof command, format, args);
    va_end(args);
    return length >= 0 && static_cast<size_t>(length) < sizeof command;
}

[[nodiscard]] uint32_t CouldNotRun(const Command &command) {
    BMCCERT_DIAG(kLevelHandling, "Failed to run SSLCmd=%s.\n", command);
    return SSL_AUTH_ERR_CMD_RUN;
}

// The responder's address as the certificate names it. The line's own line
// feed ended the word when the address went unquoted onto a command line;
// quoted, it would become part of the address, so it is dropped here.
[[nodiscard]] uint32_t ReadOcspAddress(const char *certPath, char (&address)[kPathSize]) {
    QuotedWord quoted = {};
    Command command = {};
    const bool formed = SSL_ShellQuote(certPath, quoted, sizeof quoted) &&
                        FormatCommand(command, "openssl x509 -in %s -noout -ocsp_uri", quoted);
    char output[kAddressOutputSize] = {};
    if (!formed ||
        BMC_GetCmdOutLineBuffer(command, static_cast<uint32_t>(sizeof output), output) != 0)
        return CouldNotRun(command);
    if (std::strstr(output, "http://") == nullptr) {
        BMCCERT_DIAG(kLevelHandling, "Parse OutBuffer=%s not have link_str:http://.\n", output);
        return SSL_AUTH_ERR_NO_OCSP_URL;
    }
    (void)BMC_Strlcpy(address, output, sizeof address);
    const size_t length = std::strlen(address);
    if (length > 0 && address[length - 1] == '\n') address[length - 1] = '\0';
    return SSLCERT_OK;
}

} // namespace
} // namespace bmccert::sslauth

using namespace bmccert;
using namespace bmccert::sslauth;

extern "C" void LIB_SSL_GetConfCertPath(const char *pcLineBuf, uint32_t uiSize, char *pcCertPath) {
    if (pcLineBuf == nullptr) {
        BMCCERT_REPORT_NULL(pcLineBuf);
        return;
    }
    if (pcCertPath == nullptr) {
        BMCCERT_REPORT_NULL(pcCertPath);
        return;
    }
    const char *quote = std::strchr(pcLineBuf, '"');
    // The whole tail from the opening quote must fit, so the value always does.
    if (quote == nullptr || uiSize == 0 || std::strlen(quote) > uiSize - 1u) return;
    size_t used = 0;
    for (const char *c = quote + 1; *c != '\0' && *c != '"'; ++c)
        pcCertPath[used++] = *c;
    pcCertPath[used] = '\0';
}

extern "C" uint32_t LIB_SSL_GetAuthRootCertPath(uint32_t uiSize, char *pcRootCertPath) {
    BMCCERT_CHECK_NULL(pcRootCertPath, SSLCERT_ERR_NULL_POINTER);
    StdioFile config(kWebServerConfigPath, "r");
    if (!config.IsOpen()) {
        BMCCERT_DIAG(kLevelHandling, "lighttpd.conf open failed.\n");
        return SSL_AUTH_ERR_LIGHTTPD_CONF;
    }
    char line[kConfigLineSize] = {};
    while (std::fgets(line, sizeof line, config.get()) != nullptr) {
        if (std::strstr(line, "ssl.ca-file") == nullptr) continue;
        LIB_SSL_GetConfCertPath(line, uiSize, pcRootCertPath);
        break;
    }
    config.Close();
    return SSLCERT_OK;
}

extern "C" uint32_t LIB_SSL_CheckCertRevokeState(const char *pcRootCertPath,
                                                 const char *pcUserCertPath,
                                                 const char *pcOCSPUrl) {
    BMCCERT_CHECK_NULL(pcRootCertPath, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pcUserCertPath, SSLCERT_ERR_NULL_POINTER);
    BMCCERT_CHECK_NULL(pcOCSPUrl, SSLCERT_ERR_NULL_POINTER);
    QuotedWord issuer = {}, cert = {}, url = {};
    Command command = {};
    const bool formed =
        SSL_ShellQuote(pcRootCertPath, issuer, sizeof issuer) &&
        SSL_ShellQuote(pcUserCertPath, cert, sizeof cert) &&
        SSL_ShellQuote(pcOCSPUrl, url, sizeof url) &&
        FormatCommand(command, "openssl ocsp -timeout %d -issuer %s -cert %s -url %s",
                      kOcspTimeoutSeconds, issuer, cert, url);
    char output[kOcspOutputSize] = {};
    if (!formed ||
        BMC_GetCmdOutAllBuffer(command, static_cast<uint32_t>(sizeof output), output) != 0)
        return CouldNotRun(command);
    // openssl names the certificate by the path it was given (the word
    // after the shell removed the quotes), then the status.
    char expected[kExpectedSize] = {};
    const int length = BMC_Scnprintf(expected, sizeof expected, "%s: good", pcUserCertPath);
    // A cut expectation would be a mere prefix of the path, which a
    // "revoked" line matches as well.
    const bool whole = static_cast<size_t>(length) == std::strlen(pcUserCertPath) + 6;
    if (whole && std::strstr(output, expected) != nullptr) return SSLCERT_OK;
    BMCCERT_DIAG(kLevelHandling, "Verify cert is revoked or unknowed, OutBuffer=%s.\n", output);
    return SSL_AUTH_ERR_NOT_GOOD;
}

extern "C" uint32_t LIB_SSL_CertRevokeCheck(uint32_t uiCertId) {
    // An id outside the list names no certificate; nothing past it is read.
    if (IdOutOfRange(uiCertId, SSL_AUTH_MAX_CERTS)) {
        BMCCERT_DIAG(kLevelHandling, "CertId=%d out of range.\n", static_cast<int>(uiCertId));
        return SSL_AUTH_ERR_CERT_ABSENT;
    }
    auto list = ZeroedRecord<CliCertList>();
    const uint32_t read = LIB_SSL_GetClientCertList(&list);
    if (read != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Get ClientCertList failed.\n");
        return read;
    }
    // The operator's verified method where one is chosen; the published
    // command below otherwise.
    if (const SSLRevocationPolicy policy = LoadRevocationPolicy();
        policy.uiMethod != SSLCERT_EXT_REVOCATION_COMMAND)
        return CheckRevocationVerified(uiCertId, list.astCliCert[uiCertId - 1], policy);
    // The openssl tool opens the path itself, so the name is checked here:
    // a plain name of a regular file in the client directory, not a link.
    // Refused like a file that holds no OCSP address, as a missing one does.
    const CliCertInfo &entry = list.astCliCert[uiCertId - 1];
    if (!IsPlainFileName(entry.szFileName) || !IsPlainFileIn(kClientCertDir, entry.szFileName)) {
        BMCCERT_DIAG(kLevelHandling, "Cert file of ClientCert id=%u is not a plain file.\n",
                     uiCertId);
        return SSL_AUTH_ERR_NO_OCSP_URL;
    }
    char certPath[kPathSize] = {};
    (void)BMC_Scnprintf(certPath, sizeof certPath, "%s%s", kClientCertDir, entry.szFileName);
    char address[kPathSize] = {};
    uint32_t result = ReadOcspAddress(certPath, address);
    if (result != SSLCERT_OK) return result;

    char rootPath[kPathSize] = {};
    result = LIB_SSL_GetAuthRootCertPath(sizeof rootPath, rootPath);
    if (result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling, "Failed to get RootCert Path From lighttpd.conf, iRet=%d.\n",
                     static_cast<int32_t>(result));
        return result;
    }
    if (rootPath[0] == '\0') {
        BMCCERT_DIAG(kLevelHandling, "RootCert not found.\n");
        return SSL_AUTH_ERR_NO_ISSUER;
    }
    result = LIB_SSL_CheckCertRevokeState(rootPath, certPath, address);
    if (result != SSLCERT_OK) {
        BMCCERT_DIAG(kLevelHandling,
                     "Failed to check cert revoke_state, iRet=%d, RootCertPath=%s, CliCertPath=%s, "
                     "OCSPUrl=%s.\n",
                     static_cast<int32_t>(result), rootPath, certPath, address);
        return result;
    }
    return SSLCERT_OK;
}
