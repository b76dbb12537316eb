#include "tests/support/diag_log.h"

#include <fstream>
#include <sstream>

#include "platform/host/bmc_sim.h"

namespace bmctest {

void PrintTo(const Diag &diag, std::ostream *out) {
    *out << diag.module << '/' << diag.subModule << '/' << diag.level << " [" << diag.message
         << "] " << diag.file << ':' << diag.line;
}

std::vector<Diag> Reports(uint32_t subModule, uint32_t level,
                          const std::vector<std::string> &messages) {
    std::vector<Diag> diags;
    for (const std::string &message : messages)
        diags.emplace_back(31, subModule, level, message);
    return diags;
}

std::vector<Diag> ReadDiags() {
    std::vector<Diag> diags;
    std::ifstream in(BMCSIM_DIAG_LOG);
    for (std::string line; std::getline(in, line);) {
        // Tab-separated fields; in the text a backslash escapes a backslash,
        // a line feed ("n") or a tab ("t").
        std::istringstream fields(line);
        std::string module, subModule, level, file, number, escaped, message;
        if (!std::getline(fields, module, '\t') || !std::getline(fields, subModule, '\t') ||
            !std::getline(fields, level, '\t') || !std::getline(fields, file, '\t') ||
            !std::getline(fields, number, '\t'))
            continue;
        std::getline(fields, escaped);
        for (size_t i = 0; i < escaped.size(); ++i) {
            const char next = escaped[i] == '\\' && i + 1 < escaped.size() ? escaped[++i] : 0;
            message += next == 0 ? escaped[i] : next == 'n' ? '\n' : next == 't' ? '\t' : next;
        }
        diags.emplace_back(std::stoul(module), std::stoul(subModule), std::stoul(level), message,
                           file, std::stoi(number));
    }
    return diags;
}

void ClearDiagLog() {
    std::ofstream(BMCSIM_DIAG_LOG, std::ios::trunc);
}

std::string Signed(uint32_t code) {
    return std::to_string(static_cast<int32_t>(code));
}

} // namespace bmctest
