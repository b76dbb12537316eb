// The record owner's side of the platform's remote procedure calls: it takes
// the calls of its module whose request has the command's exact length, and
// answers an import with the handle of the import's task.
#include <cstring>

#include "platform/host/peer_daemons.h"
#include "platform/owner/record_owner.h"

namespace bmcsim {

bool PeerTakes(uint32_t module, uint32_t command, uint32_t length) noexcept {
    const uint32_t expected =
        owner_protocol::RequestLength(static_cast<owner::OwnerCommand>(command));
    return module == owner_protocol::kModule && expected != 0 && length == expected;
}

uint32_t DeliverToPeer(uint32_t command, const void *request, std::vector<uint8_t> &response) {
    TaskHandle task{};
    bool answered = false;
    const uint32_t result =
        owner::Apply(static_cast<owner::OwnerCommand>(command), request, task, answered);
    if (result == owner::kOk && answered) {
        response.resize(sizeof task);
        std::memcpy(response.data(), &task, sizeof task);
    }
    return result;
}

bool ProvisionPeers(Store &store) noexcept {
    return owner::ProvisionRecords(store);
}

} // namespace bmcsim
