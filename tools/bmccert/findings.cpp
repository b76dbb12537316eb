#include "findings.h"

#include <algorithm>

#include "json_writer.h"

namespace bmccert::cli {
namespace {

std::string Counted(size_t count, std::string_view noun) {
    return std::to_string(count) + ' ' + std::string(noun) + (count == 1 ? "" : "s");
}

} // namespace

std::string_view SeverityName(Severity severity) {
    switch (severity) {
    case Severity::kOk:
        return "ok";
    case Severity::kWarning:
        return "warning";
    case Severity::kFault:
        return "fault";
    }
    return "fault";
}

bool HasFault(const std::vector<Finding> &findings) {
    return std::any_of(findings.begin(), findings.end(),
                       [](const Finding &f) { return f.severity == Severity::kFault; });
}

std::string FormatFindingsText(const std::vector<Finding> &findings) {
    std::string out;
    size_t faults = 0;
    size_t warnings = 0;
    for (const Finding &finding : findings) {
        faults += finding.severity == Severity::kFault ? 1 : 0;
        warnings += finding.severity == Severity::kWarning ? 1 : 0;
        const std::string_view name = SeverityName(finding.severity);
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
