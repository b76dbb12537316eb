#include "tests/support/diag_log.h"

#include <fstream>
#include <sstream>

#include "platform/host/bmc_sim.h"

namespace bmctest {
namespace {

// The log escapes backslash, line feed and tab, so that a record is one
// line with tab-separated fields.
std::string Unescape(const std::string &text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        char next = text[++i];
        out += next == 'n' ? '\n' : next == 't' ? '\t' : next;
    }
    return out;
}

} // namespace

std::vector<DiagRecord> ReadDiagLog() {
    std::vector<DiagRecord> records;
    std::ifstream in(BMCSIM_DIAG_LOG);
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::string module, subModule, level, number, message;
        DiagRecord r;
        if (!std::getline(fields, module, '\t') || !std::getline(fields, subModule, '\t') ||
            !std::getline(fields, level, '\t') || !std::getline(fields, r.file, '\t') ||
            !std::getline(fields, number, '\t'))
            continue;
        std::getline(fields, message);
        r.module = static_cast<uint32_t>(std::stoul(module));
        r.subModule = static_cast<uint32_t>(std::stoul(subModule));
        r.level = static_cast<uint32_t>(std::stoul(level));
        r.line = std::stoi(number);
        r.message = Unescape(message);
        records.push_back(std::move(r));
    }
    return records;
}

void ClearDiagLog() {
    std::ofstream(BMCSIM_DIAG_LOG, std::ios::trunc);
}

std::string Describe(const std::vector<DiagRecord> &records) {
    std::ostringstream out;
    for (const auto &r : records)
        out << r.module << '/' << r.subModule << '/' << r.level << " " << r.file << ':' << r.line
            << " [" << r.message << "]\n";
    return out.str();
}

std::vector<Diag> ReadDiags() {
    std::vector<Diag> diags;
    for (const auto &r : ReadDiagLog())
        diags.push_back({r.module, r.subModule, r.level, r.message});
    return diags;
}

std::string Signed(uint32_t code) {
    return std::to_string(static_cast<int32_t>(code));
}

} // namespace bmctest
