// Reading the stand-in's diagnostics log, so that tests can assert the
// module, sub-module, level and text of every report.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bmctest {

struct DiagRecord {
    uint32_t module = 0;
    uint32_t subModule = 0;
    uint32_t level = 0;
    std::string file;
    int line = 0;
    std::string message; // unescaped: "\n" is a real line feed again

    bool operator==(const DiagRecord &) const = default;
};

// Every record of diag.log, oldest first.
std::vector<DiagRecord> ReadDiagLog();
// Empties diag.log.
void ClearDiagLog();
// The records as module/sub/level/message lines, for readable failures.
std::string Describe(const std::vector<DiagRecord> &records);

// Only module, sub-module, level and message of each record; file and line
// are checked where a test cares.
struct Diag {
    uint32_t module;
    uint32_t subModule;
    uint32_t level;
    std::string message;
    bool operator==(const Diag &) const = default;
};
std::vector<Diag> ReadDiags();

// A result code as the diagnostics print it: a signed decimal.
std::string Signed(uint32_t code);

} // namespace bmctest
