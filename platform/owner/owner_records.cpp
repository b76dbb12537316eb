// The record owner's six records as a controller leaves the factory with them.
#include <vector>

#include "platform/owner/record_owner.h"

namespace bmcsim::owner {
namespace {

struct FactoryRecord {
    uint32_t key;
    uint32_t size;
    uint8_t firstByte;
};
// Everything off and empty; the controller supports the function.
constexpr FactoryRecord kFactoryRecords[] = {
    {SSL_AUTH_DB_KEY_STATE, sizeof(uint8_t), 0},
    {SSL_AUTH_DB_KEY_REVOKE_CHECK, sizeof(uint8_t), 0},
    {SSL_AUTH_DB_KEY_ROOT_LIST, sizeof(RootCertList), 0},
    {SSL_AUTH_DB_KEY_CLIENT_LIST, sizeof(CliCertList), 0},
    {SSL_AUTH_DB_KEY_USER_LIST, sizeof(CliCertUserList), 0},
    {SSL_AUTH_DB_KEY_SUPPORT, sizeof(uint8_t), 1},
};

} // namespace

bool ProvisionRecords(Store &store) noexcept {
    try {
        for (const FactoryRecord &record : kFactoryRecords) {
            std::vector<uint8_t> bytes(record.size, 0);
            bytes[0] = record.firstByte;
            if (!PutRecord(store, record.key, record.size, bytes.data())) return false;
        }
        return true;
    } catch (...) {
        return false;
    }
}

} // namespace bmcsim::owner
