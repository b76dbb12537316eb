// The health check's findings and their two renderings.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace bmccert::cli {

struct Finding {
    uint32_t severity;   // SSLCERT_EXT_SEVERITY_*; any other value is a fault
    std::string subject; // what it is about: "tunnel", "key", a file path
    std::string text;
};

[[nodiscard]] std::string_view SeverityName(uint32_t severity);
[[nodiscard]] bool HasFault(const std::vector<Finding> &findings);

// One line per finding ("fault   tunnel: ..."), control bytes escaped,
// then a line that counts the faults and warnings.
[[nodiscard]] std::string FormatFindingsText(const std::vector<Finding> &findings);
// {"ok":BOOL,"findings":[{"severity":..,"subject":..,"text":..},...]} and
// a newline; ok is false when a finding is a fault.
[[nodiscard]] std::string FormatFindingsJson(const std::vector<Finding> &findings);

} // namespace bmccert::cli
