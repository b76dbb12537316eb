#include "output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "result_codes.h"
#include "frame/field_text.h"

namespace bmccert::cli {
namespace {

bool g_failuresAsJson = false;
bool g_resultWritten = false; // stdout holds one answer at most

} // namespace

int WriteResult(std::string_view text) {
    g_resultWritten = true;
    const std::size_t written = std::fwrite(text.data(), 1, text.size(), stdout);
    if (written == text.size() && std::fflush(stdout) == 0) return kExitOk;
    const int error = errno;
    std::clearerr(stdout);
    (void)std::fprintf(stderr, "bmccert: cannot write the result: %s\n", std::strerror(error));
    return kExitFailure;
}

int WriteOutcome(std::string_view description, uint32_t code, bool json) {
    if (!json) return WriteResult(std::string(description) + '\n');
    return WriteJsonObject([&](JsonWriter &writer) {
        writer.Uint("result", code);
        writer.String("description", description);
    });
}

int Described(uint32_t result, const OperateDesc &desc, bool json) {
    const std::string text(FieldView(desc.szOperateDesc));
    if (result != 0) return ReportFailure(text, result);
    if (!json) return WriteResult(text + '\n');
    return WriteJsonObject([&](JsonWriter &writer) { writer.String("operation", text); });
}

void ReportFailuresAsJson(bool on) {
    g_failuresAsJson = on;
}

int ReportFailure(std::string_view what, uint32_t code) {
    (void)std::fprintf(stderr, "bmccert: %.*s: 0x%08X\n", static_cast<int>(what.size()),
                       what.data(), static_cast<unsigned>(code));
    if (g_failuresAsJson && !g_resultWritten) {
        char hex[11];
        (void)std::snprintf(hex, sizeof hex, "0x%08X", static_cast<unsigned>(code));
        const auto known = FindResultCode(code);
        (void)WriteJsonObject([&](JsonWriter &writer) {
            writer.Key("error");
            writer.BeginObject();
            writer.String("code", hex);
            writer.String("name", known ? known->name : "");
            writer.String("message", what);
            writer.EndObject();
        });
    }
    return kExitFailure;
}

} // namespace bmccert::cli
