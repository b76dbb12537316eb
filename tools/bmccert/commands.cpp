#include "commands.h"

#include <cstdio>
#include <string>

#include "info_format.h"
#include "lib_security_sslcert.h"
#include "lib_security_sslcert_ext.h"
#include "output.h"
#include "result_codes.h"
#include "frame/cert_type_names.h"
#include "frame/field_text.h"

namespace bmccert::cli {

int RunType(bool json) {
    // Type 0 is an answer, not a failure: scripts branch on "0 none".
    const uint32_t type = LIB_SECURITY_GetCertType();
    if (json)
        return WriteJsonObject([&](JsonWriter &writer) {
            writer.Uint("type", type);
            writer.String("name", CertTypeName(type));
        });
    return WriteResult(std::to_string(type) + ' ' + std::string(CertTypeName(type)) + '\n');
}

int RunPaths(uint32_t type, bool json) {
    // Zero-filled buffers of the size every caller of the library uses.
    char cert[SSLCERT_PATH_BUF_SIZE] = {};
    char key[SSLCERT_PATH_BUF_SIZE] = {};
    const uint32_t result =
        LIB_SECURITY_GetSSLCertKeyPath(type, sizeof cert, sizeof key, cert, key);
    if (result != SSLCERT_OK)
        return ReportFailure("no paths for certificate type " + std::to_string(type), result);
    if (json)
        return WriteJsonObject([&](JsonWriter &writer) {
            writer.Uint("type", type);
            writer.String("cert", FieldView(cert));
            writer.String("key", FieldView(key));
        });
    std::string out = "cert: ";
    out += FieldView(cert);
    out += "\nkey: ";
    out += FieldView(key);
    out += '\n';
    return WriteResult(out);
}

int RunInfo(bool json) {
    SSLCertInfo info{};
    const uint32_t result = LIB_SECURITY_GetCertInfo(&info);
    if (result != SSLCERT_OK) return ReportFailure("certificate information unavailable", result);
    return WriteResult(json ? FormatInfoJson(info) : FormatInfoText(info));
}

int RunDaysLeft(bool json) {
    // The library answers 0 both for an expired certificate and when it
    // cannot tell; there is no failure code to report.
    const int32_t days = LIB_SECURITY_GetCertLeftExpires();
    if (json) return WriteJsonObject([&](JsonWriter &writer) { writer.Int("daysLeft", days); });
    return WriteResult(std::to_string(days) + '\n');
}

int RunRefresh() {
    const auto result = static_cast<uint32_t>(SECURITY_UpdateCertInfo());
    if (result != SSLCERT_OK) return ReportFailure("refresh failed", result);
    return WriteResult("refreshed\n");
}

int RunExplain(std::string_view codeText) {
    const auto code = ParseResultCode(codeText);
    if (!code) {
        std::fprintf(stderr,
                     "bmccert: explain: '%.*s' is not a code such as 0x98000004, -1744830456 or "
                     "iRet=-1744830456\n",
                     static_cast<int>(codeText.size()), codeText.data());
        return kExitUsage;
    }
    const auto entry = FindResultCode(*code);
    if (!entry) {
        std::fprintf(stderr, "bmccert: explain: 0x%08X is not a result code of the library\n",
                     *code);
        return kExitFailure;
    }
    char head[16];
    std::snprintf(head, sizeof head, "0x%08X ", entry->code);
    std::string text =
        std::string(head) + std::string(entry->name) + ": " + std::string(entry->meaning) + "\n";
    // What to do, on a line of its own so that the first stays as scripts read it.
    if (const char *advice = nullptr;
        LIB_SECURITY_SSL_AdviseResult(entry->code, &advice) == SSLCERT_OK)
        text += "what to do: " + std::string(advice) + "\n";
    return WriteResult(text);
}

} // namespace bmccert::cli
