// The service manager: a systemctl command line run through the shell, so
// that inside a sandboxed controller it reaches the sandbox's own
// systemctl rather than the host's.
#include <cstdarg>
#include <cstdio>

#include "sim_internal.h"

namespace {

constexpr size_t kCommandSize = 256;

} // namespace

extern "C" int32_t systemd_run(const char *pcFile, const char *pcFunc, int32_t iLine,
                               int32_t iArg1, int32_t iArg2, const char *pcFormat, ...) {
    // The calling place and the two words only matter to the controller's
    // own service manager, which records them.
    (void)pcFile;
    (void)pcFunc;
    (void)iLine;
    (void)iArg1;
    (void)iArg2;
    if (auto fault = bmcsim::InjectedFault("systemd_run")) return static_cast<int32_t>(*fault);
    if (pcFormat == nullptr) return bmcsim::kFailSigned;

    char command[kCommandSize];
    va_list args;
    va_start(args, pcFormat);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::vsnprintf(command, sizeof command, pcFormat, args);
#pragma GCC diagnostic pop
    va_end(args);
    // A command cut short could name another unit: it is not run.
    if (length < 0 || static_cast<size_t>(length) >= sizeof command) return bmcsim::kFailSigned;
    return bmcsim::RunShell(command) ? 0 : bmcsim::kFailSigned;
}
