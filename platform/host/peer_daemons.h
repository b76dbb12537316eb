// The daemons that the controller's platform reaches by remote procedure
// call. On a workstation they run inside the calling process, built from
// sources of their own beside the stand-in (platform/owner/); the transport
// and the factory state reach them only through these two calls.
#pragma once

#include <cstdint>
#include <vector>

#include "sim_store.h"

namespace bmcsim {

// True when a daemon takes the command of the module with a request of
// this length.
[[nodiscard]] bool PeerTakes(uint32_t module, uint32_t command, uint32_t length) noexcept;

// Delivers a call that PeerTakes accepted and returns its result; a call
// that answers leaves its payload in response.
[[nodiscard]] uint32_t DeliverToPeer(uint32_t command, const void *request,
                                     std::vector<uint8_t> &response);

// Writes the daemons' records of a factory-fresh controller, inside the
// caller's transaction.
[[nodiscard]] bool ProvisionPeers(Store &store) noexcept;

} // namespace bmcsim
