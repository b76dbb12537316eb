#include "findings.h"

#include <algorithm>

#include "json_writer.h"
#include "lib_security_sslcert_ext.h"

namespace bmccert::cli {
namespace {

std::string Counted(size_t count, std::string_view noun) {
    return std::to_string(count) + ' ' + std::string(noun) + (count == 1 ? "" : "s");
}

} // namespace

std::string_view SeverityName(uint32_t severity) {
    switch (severity) {
    case SSLCERT_EXT_SEVERITY_OK:
        return "ok";
    case SSLCERT_EXT_SEVERITY_WARNING:
        return "warning";
    default:
        return "fault";
    }
}

bool HasFault(const std::vector<Finding> &findings) {
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding &f) { return SeverityName(f.severity) == "fault"; });
}

std::string FormatFindingsText(const std::vector<Finding> &findings) {
    std::string out;
    size_t faults = 0;
    size_t warnings = 0;
    for (const Finding &finding : findings) {
        const std::string_view name = SeverityName(finding.severity);
        faults += name == "fault" ? 1 : 0;
        warnings += name == "warning" ? 1 : 0;
        out += name;
        out.append(8 - name.size(), ' ');
        AppendTerminalSafe(out, finding.subject);
        out += ": ";
        AppendTerminalSafe(out, finding.text);
        out += '\n';
    }
    out += faults == 0 && warnings == 0
               ? std::string("nothing wrong\n")
               : Counted(faults, "fault") + ", " + Counted(warnings, "warning") + '\n';
    return out;
}

std::string FormatFindingsJson(const std::vector<Finding> &findings) {
    JsonWriter json;
    json.BeginObject();
    json.Bool("ok", !HasFault(findings));
    json.Key("findings");
    json.BeginArray();
    for (const Finding &finding : findings) {
        json.BeginObject();
        json.String("severity", SeverityName(finding.severity));
        json.String("subject", finding.subject);
        json.String("text", finding.text);
        json.EndObject();
    }
    json.EndArray();
    json.EndObject();
    return json.Text() + '\n';
}

} // namespace bmccert::cli
