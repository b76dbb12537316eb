// `bmc-sandbox --service-restart UNIT...`: what the sandbox's systemctl
// runs for `systemctl restart UNIT...` when the sandbox runs its services.
// Asks the supervisor over its control socket to restart each unit in
// turn and waits for the answer.
#ifndef BMC_SANDBOX_SERVICE_CLIENT_H
#define BMC_SANDBOX_SERVICE_CLIENT_H

#include "fs_util.h"

#include <string>
#include <vector>

namespace sandbox {

// A connection to the supervisor's control socket; invalid (ERR then
// holds errno) when no supervisor listens.
[[nodiscard]] UniqueFd connect_control(int &err);

// 0 when every unit was restarted and listens again; 1 (with the reason
// on stderr) at the first that was not.
[[nodiscard]] int request_restarts(const std::vector<std::string> &units);

// One request over the control socket; false when the supervisor cannot
// be reached or refuses, WHY then says why.
[[nodiscard]] bool request_restart(const std::string &unit, std::string &why);

} // namespace sandbox

#endif
