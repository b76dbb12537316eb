#include "commands.h"

#include <string>

#include "info_format.h"
#include "json_writer.h"
#include "lib_security_sslcert.h"
#include "output.h"
#include "frame/cert_type_names.h"
#include "frame/field_text.h"

namespace bmccert::cli {

int RunType(bool json) {
    // Type 0 is an answer, not a failure: scripts branch on "0 none".
    const uint32_t type = LIB_SECURITY_GetCertType();
    if (json) {
        JsonWriter writer;
        writer.BeginObject();
        writer.Uint("type", type);
        writer.String("name", CertTypeName(type));
        writer.EndObject();
        return WriteResult(writer.Text() + '\n');
    }
    return WriteResult(std::to_string(type) + ' ' + std::string(CertTypeName(type)) + '\n');
}

int RunPaths(uint32_t type, bool json) {
    // Zero-filled buffers of the size every caller of the library uses.
    char cert[SSLCERT_PATH_BUF_SIZE] = {};
    char key[SSLCERT_PATH_BUF_SIZE] = {};
    const uint32_t result =
        LIB_SECURITY_GetSSLCertKeyPath(type, sizeof cert, sizeof key, cert, key);
    if (result != SSLCERT_OK) {
        return ReportFailure("no paths for certificate type " + std::to_string(type), result);
    }
    if (json) {
        JsonWriter writer;
        writer.BeginObject();
        writer.Uint("type", type);
        writer.String("cert", FieldView(cert));
        writer.String("key", FieldView(key));
        writer.EndObject();
        return WriteResult(writer.Text() + '\n');
    }
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
    if (result != SSLCERT_OK) {
        return ReportFailure("certificate information unavailable", result);
    }
    return WriteResult(json ? FormatInfoJson(info) : FormatInfoText(info));
}

int RunDaysLeft(bool json) {
    // The library answers 0 both for an expired certificate and when it
    // cannot tell; there is no failure code to report.
    const int32_t days = LIB_SECURITY_GetCertLeftExpires();
    if (json) {
        JsonWriter writer;
        writer.BeginObject();
        writer.Int("daysLeft", days);
        writer.EndObject();
        return WriteResult(writer.Text() + '\n');
    }
    return WriteResult(std::to_string(days) + '\n');
}

int RunRefresh() {
    const auto result = static_cast<uint32_t>(SECURITY_UpdateCertInfo());
    if (result != SSLCERT_OK) return ReportFailure("refresh failed", result);
    return WriteResult("refreshed\n");
}

} // namespace bmccert::cli
