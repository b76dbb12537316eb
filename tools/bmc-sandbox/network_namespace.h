// A network of the sandbox's own: a new network namespace whose only
// interface is loopback. Programs that cannot be told to listen on
// loopback alone (an `openssl ocsp` responder binds every address) are
// then reachable from nothing outside the sandbox.
#ifndef BMC_SANDBOX_NETWORK_NAMESPACE_H
#define BMC_SANDBOX_NETWORK_NAMESPACE_H

#include <string>

namespace sandbox {

// Unshares the network namespace and brings its loopback interface up.
// Must be called while the process is single-threaded, after
// enter_private_mounts (which gives an unprivileged caller the user
// namespace that this needs).
[[nodiscard]] bool enter_private_network(std::string &why);

} // namespace sandbox

#endif
