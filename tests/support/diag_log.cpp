#include "tests/support/diag_log.h"

#include <fstream>
#include <sstream>

#include "platform/host/bmc_sim.h"

namespace bmctest {
namespace {

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

std::vector<std::string> SplitTabs(const std::string &line, size_t fields) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (parts.size() + 1 < fields) {
        size_t tab = line.find('\t', start);
        if (tab == std::string::npos) break;
        parts.push_back(line.substr(start, tab - start));
        start = tab + 1;
    }
    parts.push_back(line.substr(start));
    return parts;
}

} // namespace

std::vector<DiagRecord> ReadDiagLog() {
    std::vector<DiagRecord> records;
    std::ifstream in(BMCSIM_DIAG_LOG);
    std::string line;
    while (std::getline(in, line)) {
        auto parts = SplitTabs(line, 6);
        if (parts.size() != 6) continue;
        DiagRecord r;
        r.module = static_cast<uint32_t>(std::stoul(parts[0]));
        r.subModule = static_cast<uint32_t>(std::stoul(parts[1]));
        r.level = static_cast<uint32_t>(std::stoul(parts[2]));
        r.file = parts[3];
        r.line = std::stoi(parts[4]);
        r.message = Unescape(parts[5]);
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

} // namespace bmctest
