// What a controller leaves the factory with, beyond its files: the two
// users and the records of the peer daemons. Made once per
// controller; config.db remembers that it was done, so a record that a
// test or an operator removes later stays removed.
#include <atomic>

#include "peer_daemons.h"
#include "user_store.h"

namespace bmcsim {
namespace {

constexpr const char *kMetaSchema = "CREATE TABLE IF NOT EXISTS sim_meta(name TEXT PRIMARY KEY)";
constexpr const char *kRecordSchema =
    "CREATE TABLE IF NOT EXISTS records(key INTEGER PRIMARY KEY, value BLOB NOT NULL)";
constexpr uint8_t kRoleAdministrator = 4;
constexpr uint8_t kRoleNoAccess = 15;

[[nodiscard]] bool Provisioned(Store &store) noexcept {
    auto select = store.Prepare("SELECT 1 FROM sim_meta WHERE name = 'factory'");
    return select && sqlite3_step(select.get()) == SQLITE_ROW;
}

[[nodiscard]] bool Provision(Store &store) {
    return ProvisionPeers(store) && StoreUser(store, 1, "anonymous", kRoleNoAccess, true, "") &&
           StoreUser(store, 2, BMCSIM_FACTORY_ADMIN_NAME, kRoleAdministrator, false,
                     BMCSIM_FACTORY_ADMIN_PASSWORD) &&
           store.Exec("INSERT INTO sim_meta(name) VALUES('factory')");
}

[[nodiscard]] bool MakeFactoryState(bool reset) noexcept {
    try {
        auto store = Store::Open();
        if (!store || !store->Exec(kMetaSchema) || !store->Exec(kRecordSchema) ||
            !store->Exec(kUserSchema))
            return false;
        if (!reset && Provisioned(*store)) return true;
        WriteTransaction txn(*store);
        if (!txn.Begun()) return false;
        if (reset && !(store->Exec("DELETE FROM users") &&
                       store->Exec("DELETE FROM sim_meta WHERE name = 'factory'")))
            return false;
        if (Provisioned(*store)) return true; // another process was quicker
        return Provision(*store) && txn.Commit();
    } catch (...) {
        return false;
    }
}

} // namespace

bool EnsureFactoryState() noexcept {
    // Once made, the state stays for the controller's life; later calls of
    // this process need not ask the database again.
    static std::atomic<bool> made{false};
    if (made.load(std::memory_order_acquire)) return true;
    const bool ok = MakeFactoryState(false);
    if (ok) made.store(true, std::memory_order_release);
    return ok;
}

} // namespace bmcsim

extern "C" int32_t BMCSIM_AuthFactoryReset(void) {
    return bmcsim::MakeFactoryState(true) ? 0 : bmcsim::kFailSigned;
}
