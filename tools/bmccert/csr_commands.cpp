#include "commands.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "answer_leaf.h"
#include "json_writer.h"
#include "info_format.h"
#include "output.h"
#include "task_service.h"
#include "result_codes.h"
#include "upload_commands.h"
#include "frame/field_text.h"

namespace bmccert::cli {
namespace {

// The option of a field the library's check named, with the rule it breaks.
RefusedField NameRequestField(const SSLCertRequest &request, uint32_t field) {
    if (field == SSLCERT_EXT_FIELD_KEY_TYPE)
        return {"--key", "must be one of " + std::string(kKeyTypeNames)};
    if (field == SSLCERT_EXT_FIELD_ALT_NAME_COUNT)
        return {"--dns/--ip",
                "at most " + std::to_string(SSLCERT_EXT_MAX_ALT_NAMES) + " names fit"};
    const uint32_t index = field - SSLCERT_EXT_FIELD_ALT_NAME;
    if (field < SSLCERT_EXT_FIELD_ALT_NAME || index >= SSLCERT_EXT_MAX_ALT_NAMES)
        return NameField(field);
    const SSLCertAltName &entry = request.astAltNames[index];
    const std::string name(FieldView(entry.szName));
    if (entry.uiType == SSLCERT_EXT_ALT_NAME_IP)
        return {"--ip", "'" + name + "' is not an IPv4 or IPv6 address"};
    return {"--dns", "'" + name +
                         "' is not a host name: dot-separated labels of 1 to 63 letters, digits "
                         "and '-', none starting or ending with '-' (a leading '*.' is allowed)"};
}

// The refusal of a CA's answer with what the tool can tell of its leaf:
// its dates and the controller's clock, or its key.
int ReportAnswerRefusal(const std::string &path, uint32_t code) {
    std::string answer;
    const std::string details = ReadCertFile(path, answer) ? RefusalDetails(answer, code) : "";
    return ReportFailure("signed certificate refused: " + ResultMeaning(code) + details, code);
}

} // namespace

// The request, or the refusal of an option that does not fit its field
// (with the code the library gives such a field) or that breaks the
// library's rules, asked once before the call, so that a refused field is
// reported once in the diagnostics log, not again by the call.
std::optional<int> BuildRequest(const GenerateOptions &subject, const KeyType &key,
                                const AltNameOptions &names, bool selfSigned,
                                SSLCertRequest &request) {
    if (const auto refused = FillCertRequest(subject, key, names, request)) {
        const bool isName = refused->option.rfind("--dns", 0) == 0 || refused->option == "--ip";
        return ReportRefused(*refused,
                             isName ? SSLCERT_EXT_ERR_BAD_ALT_NAME : SSLCERT_EXT_ERR_BAD_SUBJECT);
    }
    uint32_t field = SSLCERT_EXT_FIELD_NONE;
    if (const uint32_t code =
            LIB_SECURITY_SSL_CheckCertRequestField(&request, selfSigned ? 1 : 0, &field);
        code != SSLCERT_OK)
        return ReportRefused(NameRequestField(request, field), code);
    return std::nullopt;
}


int RunCheckSigned(const std::string &certPath, bool json) {
    std::string answer;
    if (!ReadCertFile(certPath, answer))
        return ReportFailure("cannot read " + certPath + ": " + std::strerror(errno),
                             SSLCERT_ERR_FILE_OPEN);
    const uint32_t result =
        LIB_SECURITY_SSL_CheckSignedCert(answer.data(), static_cast<uint32_t>(answer.size()));
    if (result != SSLCERT_OK) return ReportAnswerRefusal(certPath, result);
    // The check passes without a pending key only for the answer in force.
    SSLCertRequest pending{};
    const bool inForce =
        LIB_SECURITY_SSL_GetPendingCSR(&pending, nullptr, 0) == SSLCERT_EXT_ERR_NO_PENDING_KEY;
    if (json) {
        JsonWriter writer;
        writer.BeginObject();
        writer.Uint("result", result);
        writer.Bool("already_in_force", inForce);
        writer.EndObject();
        return WriteResult(writer.Text() + '\n');
    }
    return WriteResult(inForce ? "the answer is the certificate already in force: nothing to "
                                 "install\n"
                               : "the answer passes every check: bmccert install-signed " +
                                     certPath + " installs it\n");
}

int RunCsr(const GenerateOptions &subject, const KeyType &key, const AltNameOptions &names,
           const std::string &outPath) {
    SSLCertRequest request{};
    if (const auto refused = BuildRequest(subject, key, names, false, request)) return *refused;
    std::string pem(SSLCERT_EXT_CSR_PEM_SIZE, '\0');
    const uint32_t result =
        LIB_SECURITY_SSL_GenerateCSR(&request, pem.data(), static_cast<uint32_t>(pem.size()));
    if (result != SSLCERT_OK)
        return ReportFailure("no signing request made: " + ResultMeaning(result), result);
    pem.resize(std::strlen(pem.c_str()));
    if (outPath.empty()) return WriteResult(pem);
    std::ofstream out(outPath, std::ios::binary | std::ios::trunc);
    out << pem;
    out.close();
    if (!out) {
        const int error = errno;
        return ReportFailure("cannot write " + outPath +
                                 " (the key stays pending): " + std::strerror(error),
                             SSLCERT_ERR_FILE_OPEN);
    }
    return WriteResult("signing request in " + outPath +
                       "; its key is pending on the controller\n");
}

int RunShowCsr(bool pem, bool json) {
    SSLCertRequest request{};
    std::string text(SSLCERT_EXT_CSR_PEM_SIZE, '\0');
    const uint32_t result = LIB_SECURITY_SSL_GetPendingCSR(&request, pem ? text.data() : nullptr,
                                                           static_cast<uint32_t>(text.size()));
    if (result != SSLCERT_OK)
        return ReportFailure("no pending signing request: " + ResultMeaning(result), result);
    text.resize(std::strlen(text.c_str()));
    if (json) return WriteResult(FormatRequestJson(request, text));
    return WriteResult(FormatRequestText(request) + text);
}

int RunDropCsr() {
    const uint32_t result = LIB_SECURITY_SSL_DropPendingCSR();
    if (result == SSLCERT_EXT_ERR_NO_PENDING_KEY)
        return WriteResult("no signing request pending\n");
    if (result != SSLCERT_OK)
        return ReportFailure("the pending key stays: " + ResultMeaning(result), result);
    return WriteResult("pending key and its signing request dropped\n");
}

int RunInstallSigned(const std::string &certPath, bool json) {
    SignedCertUpload upload{};
    if (const auto refused = PutText(upload.CertSrcPath, certPath, "FILE"))
        return ReportRefused(*refused, SSLCERT_EXT_ERR_SIGNED_FETCH);
    upload.LogOrigin = LocalOrigin();
    TaskHandle handle{};
    const uint32_t result = LIB_SECURITY_SSL_ImportSignedCert(&upload, &handle);
    if (result != SSLCERT_OK) return ReportAnswerRefusal(certPath, result);
    return FollowImport(handle.TaskId, json,
                        std::string("signed certificate (details in ") + DiagnosticsHint() + ")",
                        0);
}

int RunGenerateWithNames(const GenerateOptions &subject, const KeyType &key,
                         const AltNameOptions &names, bool json) {
    SSLCertRequest request{};
    if (const auto refused = BuildRequest(subject, key, names, true, request)) return *refused;
    OperateDesc desc{};
    const uint32_t result = LIB_SECURITY_SSL_GenSelfSignedAndRestart(&request, &desc);
    if (result == SSLCERT_EXT_ERR_RESTART)
        return ReportFailure("installed, but the tunnel did not restart", result);
    if (result != SSLCERT_OK) {
        const std::string_view described = FieldView(desc.szOperateDesc);
        return ReportFailure(std::string(described.empty() ? "generation failed" : described) +
                                 ": " + ResultMeaning(result),
                             result);
    }
    return WriteOutcome(FieldView(desc.szOperateDesc), result, json);
}

} // namespace bmccert::cli
