#include "commands.h"

#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "cert_type.h"
#include "findings.h"
#include "lib_security_sslcert_ext.h"
#include "output.h"
#include "frame/field_text.h"
#if BMCCERT_HOST_TOOL
#include "platform/host/bmc_sim.h"
#endif

namespace bmccert::cli {
namespace {

#if BMCCERT_HOST_TOOL
uint32_t PortOf(std::string_view text) {
    const auto port = ParseUnsignedDecimal(text);
    return port && *port <= 65535 ? *port : 0;
}
#endif

// The port the sandbox gave the service (its listeners are not on the
// controller's ports): from the environment, else from the sandbox's
// services.env; 0 elsewhere.
uint32_t SandboxPort(const std::string &variable) {
#if BMCCERT_HOST_TOOL
    if (const char *exported = std::getenv(variable.c_str())) return PortOf(exported);
    std::ifstream env(BMCSIM_STATE_DIR "/services.env");
    for (std::string line; std::getline(env, line);)
        if (line.rfind(variable + "=", 0) == 0) return PortOf(line.substr(variable.size() + 1));
#else
    (void)variable;
#endif
    return 0;
}

// A port the tool was given, else the sandbox's, else 0: the library reads
// the service's configuration.
uint32_t PortFor(const std::optional<int> &given, const char *sandboxVariable) {
    return given ? static_cast<uint32_t>(*given) : SandboxPort(sandboxVariable);
}

// The library names the file it could not read a port from; the operator
// also needs the option that gives one.
std::string WithOptionHint(const SSLHealthFinding &finding) {
    std::string text(FieldView(finding.szText));
    if (text.rfind("no TLS port found in ", 0) != 0) return text;
    if (finding.uiKind == SSLCERT_EXT_FINDING_TUNNEL_SERVES) return text + "; give --tunnel-port";
    if (finding.uiKind == SSLCERT_EXT_FINDING_WEB_SERVES) return text + "; give --web-port";
    return text;
}

} // namespace

int RunCheck(const CheckOptions &options) {
    const SSLHealthProbe probe{PortFor(options.tunnelPort, "BMC_SIM_TUNNEL_PORT"),
                               PortFor(options.webPort, "BMC_SIM_HTTPS_PORT"), 0};
    const auto record = std::make_unique<SSLHealthRecord>();
    if (const uint32_t result = LIB_SECURITY_SSL_CheckHealth(&probe, record.get());
        result != SSLCERT_OK)
        return ReportFailure("check", result);
    std::vector<Finding> findings;
    for (uint32_t i = 0; i < record->uiCount; ++i) {
        const SSLHealthFinding &finding = record->astFindings[i];
        findings.push_back({finding.uiSeverity, std::string(FieldView(finding.szSubject)),
                            WithOptionHint(finding)});
    }
    if (record->uiOmitted != 0)
        findings.push_back({SSLCERT_EXT_SEVERITY_WARNING, "check",
                            std::to_string(record->uiOmitted) + " more findings not shown"});
    const int written =
        WriteResult(options.json ? FormatFindingsJson(findings) : FormatFindingsText(findings));
    return written != kExitOk || HasFault(findings) ? kExitFailure : kExitOk;
}

} // namespace bmccert::cli
