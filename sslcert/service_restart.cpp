// The two ways the library restarts a service: at once through the
// service manager, or (the web server after a generation) in the
// background after a delay, so that the caller's answer still reaches the
// user over the connection that the restart would cut.
#include "sslcert/sslcert_internal.h"

namespace bmccert::sslcert {
namespace {

constexpr size_t kCommandSize = 256;

} // namespace

int32_t RestartServiceNow(const char *unit, const SourcePlace &where) {
    return systemd_run(SourceBaseName(where.file), where.function, where.line, 0, 0,
                       "systemctl restart %s\n", unit);
}

uint32_t RestartWebServerLater() {
    char command[kCommandSize] = {};
    (void)BMC_Scnprintf(command, sizeof command, "sleep %d && systemctl restart %s &",
                        kWebRestartDelaySeconds, kWebService);
    return BMC_System(command);
}

} // namespace bmccert::sslcert
