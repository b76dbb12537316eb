// The supervisor of `bmc-sandbox --services`: a child of the tool, inside
// the sandbox's mount namespace, that owns the service processes and
// restarts them on request through the control socket.
//
// Lifetime: the supervisor gets SIGKILL when the tool dies (PDEATHSIG),
// each service gets SIGKILL when the supervisor dies; the tool stops the
// supervisor with SIGTERM once the command has ended, and the supervisor
// then stops the services (SIGTERM to each process group, SIGKILL after 5
// seconds) and removes its socket and services.env. The supervisor runs
// in a session of its own, so a terminal's Ctrl-C reaches only the
// command.
#ifndef BMC_SANDBOX_SUPERVISOR_H
#define BMC_SANDBOX_SUPERVISOR_H

#include "acme_ca.h"

#include <sys/types.h>

#include <string>

namespace sandbox {

// Starts the supervisor and returns once every service listens (the
// certificate authority's too when ACME says so); PID is then the
// supervisor's. Must be called inside the sandbox's namespace.
[[nodiscard]] bool start_supervisor(const AcmeOptions &acme, pid_t &pid, std::string &why);

// Stops the supervisor and, with it, the services.
void stop_supervisor(pid_t pid);

// Removes the control socket and services.env that a supervisor killed
// outright left behind, so that systemctl goes back to only recording.
void clear_stale_services();

} // namespace sandbox

#endif
