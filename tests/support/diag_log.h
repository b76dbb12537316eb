// Reading the stand-in's diagnostics log, so that tests can assert the
// module, sub-module, level and text of every report.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace bmctest {

// One report. Module, sub-module, level and text compare; the source file
// and line are read for the tests that check them.
struct Diag {
    Diag(uint32_t mod, uint32_t sub, uint32_t lvl, std::string text, std::string source = {},
         int at = 0)
        : module(mod), subModule(sub), level(lvl), message(std::move(text)),
          file(std::move(source)), line(at) {}
    uint32_t module, subModule, level;
    std::string message; // unescaped: "\n" is a real line feed again
    std::string file;
    int line;
    bool operator==(const Diag &o) const {
        return module == o.module && subModule == o.subModule && level == o.level &&
               message == o.message;
    }
};
void PrintTo(const Diag &diag, std::ostream *out);

// Reports of the library (module 31) of one sub-module and level.
std::vector<Diag> Reports(uint32_t subModule, uint32_t level,
                          const std::vector<std::string> &messages);
// Every report of diag.log, oldest first.
std::vector<Diag> ReadDiags();
// Empties diag.log.
void ClearDiagLog();
// A result code as the diagnostics print it: a signed decimal.
std::string Signed(uint32_t code);

} // namespace bmctest
