// `bmc-sandbox --service-restart UNIT...`: what the sandbox's systemctl
// runs for `systemctl restart UNIT...` when the sandbox runs its services
// (and --service-stop, --service-start for `systemctl stop|start` of the
// certificate authority's units). Asks the supervisor over its control
// socket to act on each unit in turn and waits for the answer.
#ifndef BMC_SANDBOX_SERVICE_CLIENT_H
#define BMC_SANDBOX_SERVICE_CLIENT_H

#include "fs_util.h"

#include <string>
#include <vector>

namespace sandbox {

// A connection to the supervisor's control socket; invalid (ERR then
// holds errno) when no supervisor listens.
[[nodiscard]] UniqueFd connect_control(int &err);

// VERB is restart, stop or start. 0 when it was done to every unit (a
// started unit listens); 1 (with the reason on stderr) at the first
// where it was not.
[[nodiscard]] int request_units(const std::string &verb, const std::vector<std::string> &units);

// One request over the control socket; false when the supervisor cannot
// be reached or refuses, WHY then says why.
[[nodiscard]] bool request_unit(const std::string &verb, const std::string &unit, std::string &why);

} // namespace sandbox

#endif
