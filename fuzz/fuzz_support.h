// Shared pieces of the fuzz targets: invariant checks that stop the run
// with a clear message, and the housekeeping of the sandboxed controller
// that the targets which go through the file system run in.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>

#include <unistd.h>

namespace bmcfuzz {

#define BMCFUZZ_CHECK(condition)                                                                   \
    do {                                                                                           \
        if (!(condition))                                                                          \
            std::fprintf(stderr, "invariant broken: %s\n", #condition), std::abort();              \
    } while (0)

// A text field must hold its terminator inside the field.
template <size_t N> bool Terminated(const char (&field)[N]) {
    return std::memchr(field, '\0', N) != nullptr;
}

inline bool OneOf(uint32_t code, std::initializer_list<uint32_t> codes) {
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

inline void WriteFile(const char *path, const std::string &content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

inline std::string ReadFile(const char *path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The library reports through the stand-in's diag.log; thousands of
// inputs a second would fill the disk, so the log is emptied now and then.
inline void KeepDiagLogSmall() {
    static unsigned calls = 0;
    if (++calls % 4096 == 0) (void)truncate("/var/lib/bmc-sim/diag.log", 0);
}

// Targets that touch the controller's files must run in a sandbox, never
// against the host's /conf.
inline void RequireSandbox() {
    if (std::getenv("BMC_SANDBOX_ROOT") == nullptr) {
        std::fprintf(stderr, "run this target inside bmc-sandbox\n");
        std::exit(2);
    }
}

} // namespace bmcfuzz
