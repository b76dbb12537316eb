#include "commands.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "json_writer.h"
#include "lib_security_sslcert_ext.h"
#include "output.h"
#include "platform/bmc_platform.h"
#include "platform/controller_paths.h"
#include "frame/field_text.h"

namespace bmccert::cli {
namespace {

using controller_paths::kUserCertPath;

// A file's whole text, empty when it cannot be read.
std::string FileText(const char *path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

const char *VerifyFailureText(uint32_t code) {
    switch (code) {
    case SSLCERT_ERR_NOT_SERVER_CERT:
        return "not usable as an SSL server certificate";
    case SSLCERT_ERR_TMP_CERT_UNREAD:
        return "generated certificate missing or unreadable";
    case SSLCERT_ERR_CERT_EXPIRED:
        return "certificate has expired";
    case SSLCERT_ERR_MD5_SIGNATURE:
        return "certificate is signed with MD5";
    default:
        return "verification failed";
    }
}

} // namespace

int RunGenerate(const GenerateOptions &options, bool json) {
    SSLCertGenParam request{};
    if (const auto refused = MakeRequest(options, request))
        return ReportRefused(*refused, SSLCERT_MGMT_GEN_BAD_REQUEST);
    if (options.keyLength == SSLCERT_GEN_KEYLEN_1024 && !options.force) {
        std::fprintf(stderr, "bmccert: --key-length 1024: TLS stacks at security level 2 (the "
                             "default of OpenSSL 3) refuse RSA keys under 2048 bits, so the "
                             "tunnel may not start with such a key; add --force to generate one "
                             "anyway\n");
        return kExitUsage;
    }
    // The library's own rules, asked before the call so that a refused
    // field is reported once in the diagnostics log, not again by the call.
    if (const auto refused = FindRefusedField(request))
        return ReportRefused(*refused, SSLCERT_MGMT_GEN_BAD_REQUEST);
    const std::string before = FileText(kUserCertPath);
    OperateDesc desc{};
    const uint32_t result = LIB_SECURITY_GenAndRestartService(&request, &desc);
    if (result == SSLCERT_OK) return WriteOutcome(FieldView(desc.szOperateDesc), result, json);
    // The entry's failure codes do not say whether the new certificate was
    // installed before a restart failed; the file in force does.
    const std::string after = FileText(kUserCertPath);
    if (!after.empty() && after != before)
        return ReportFailure("installed, but the tunnel did not restart: " +
                                 std::string(FieldView(desc.szOperateDesc)),
                             result);
    return ReportFailure(std::string(FieldView(desc.szOperateDesc)), result);
}

int RunVerify(bool json) {
    const uint32_t result = SECURITY_SSL_VerifyGENTmpCert();
    if (result != SSLCERT_OK) return ReportFailure(VerifyFailureText(result), result);
    return WriteOutcome("generated certificate verified", result, json);
}

int RunInstall(const std::string &certPath, const std::string &keyPath) {
    const uint32_t result = SECURITY_SSL_UpdateSSLCert(certPath.c_str(), keyPath.c_str());
    if (result != SSLCERT_OK) return ReportFailure("installation failed", result);
    // The same two restarts as after a generation: the tunnel at once, the
    // web server in the background a moment later.
    const int32_t tunnel = systemd_run(__FILE_NAME__, __func__, __LINE__, 0, 0,
                                       "systemctl restart %s\n", "stunnel.service");
    if (tunnel != 0)
        return ReportFailure("installed, but the tunnel did not restart: systemctl restart "
                             "stunnel.service returned " +
                                 std::to_string(tunnel),
                             static_cast<uint32_t>(tunnel));
    if (const uint32_t web = BMC_System("sleep 2 && systemctl restart lighttpd.service &");
        web != 0)
        return ReportFailure("installed, but the web server restart did not start", web);
    return WriteResult("installed; tunnel restarted, web server restarting\n");
}

int RunRecover(bool restart) {
    uint32_t outcome = SSLCERT_EXT_RECOVER_NONE;
    const uint32_t result = LIB_SECURITY_SSL_RecoverInstallation(restart ? 1 : 0, &outcome);
    if (result != SSLCERT_OK && outcome == SSLCERT_EXT_RECOVER_NONE)
        return ReportFailure("the interrupted installation stays pending", result);
    if (outcome == SSLCERT_EXT_RECOVER_NONE) return WriteResult("no installation pending\n");
    const std::string completed =
        outcome == SSLCERT_EXT_RECOVER_NEW_SET
            ? "completed the interrupted installation: its new set is in force"
            : "completed the interrupted installation: the previous set is back in force";
    if (result != SSLCERT_OK)
        return ReportFailure(completed + ", but a service did not restart", result);
    return WriteResult(completed +
                       (restart ? "; tunnel restarted, web server restarting\n" : "\n"));
}

} // namespace bmccert::cli
