// User service: 16 user slots with name, privilege role and sealed
// password, in table `users` of config.db. The users are read on hot paths
// of the library, so every thread reads them through its own connection
// (bmcsim::ThreadUse).
#include <openssl/crypto.h>

#include <cstring>
#include <iterator>

#include "user_store.h"
#include "write_generation.h"

namespace {

constexpr size_t kInsRecordSize = 224;
constexpr size_t kInsRoleAt = 81, kInsAnonymousAt = 82;
static_assert(BMC_USER_SECRET_OFFSET + sizeof(bmcsim::SealedPassword) <= BMC_USER_RECORD_SIZE);
static_assert(bmcsim::kNameMax < BMC_USER_NAME_FIELD);
static_assert(bmcsim::kMaxUsers == BMC_USER_RECORD_COUNT);

enum UserStatement : size_t { kSelectAll, kSelectOne };
constexpr const char *kUserStatements[] = {
    "SELECT id, name, role, secret FROM users ORDER BY id",
    "SELECT name, role, anonymous FROM users WHERE id = ?1",
};
constexpr bmcsim::ThreadKind kUsers = {1, bmcsim::kUserSchema, kUserStatements,
                                       std::size(kUserStatements)};

struct UserRow {
    uint8_t id = 0;
    char name[bmcsim::kNameMax + 1] = {};
    uint8_t role = 0;
    bool anonymous = false;
};

// One user by id.
[[nodiscard]] bool FindUser(uint32_t id, UserRow &row) noexcept {
    if (id < 1 || id > bmcsim::kMaxUsers) return false;
    const bmcsim::ThreadUse use(kUsers);
    if (!use) return false;
    sqlite3_stmt *select = use.Statement(kSelectOne);
    bmcsim::StatementReset reset(select);
    (void)sqlite3_bind_int(select, 1, static_cast<int>(id));
    if (sqlite3_step(select) != SQLITE_ROW) return false;
    row.id = static_cast<uint8_t>(id);
    const auto *name = reinterpret_cast<const char *>(sqlite3_column_text(select, 0));
    (void)BMC_Strlcpy(row.name, name, sizeof row.name);
    row.role = static_cast<uint8_t>(sqlite3_column_int(select, 1));
    row.anonymous = sqlite3_column_int(select, 2) != 0;
    return true;
}

struct RoleName {
    uint8_t role;
    const char *name;
};
constexpr RoleName kRoleNames[] = {
    {1, "Callback"},      {2, "User"}, {3, "Operator"},
    {4, "Administrator"}, {5, "OEM"},  {15, "No Access"},
};

} // namespace

namespace bmcsim {

bool StoreUser(Store &store, uint8_t id, const char *name, uint8_t role, bool anonymous,
               const char *password) noexcept {
    if (id < 1 || id > kMaxUsers || name == nullptr || strnlen(name, kNameMax + 1) > kNameMax)
        return false;
    SealedPassword sealed;
    std::memset(&sealed, 0, sizeof sealed);
    bool haveSecret = false;
    if (password == nullptr) {
        auto select = store.Prepare("SELECT secret FROM users WHERE id = ?1");
        if (!select) return false;
        (void)sqlite3_bind_int(select.get(), 1, id);
        if (sqlite3_step(select.get()) == SQLITE_ROW &&
            sqlite3_column_bytes(select.get(), 0) == static_cast<int>(sizeof sealed)) {
            std::memcpy(&sealed, sqlite3_column_blob(select.get(), 0), sizeof sealed);
            haveSecret = true;
        }
    }
    if (!haveSecret && !SealPassword(id, password == nullptr ? "" : password, sealed)) return false;
    auto insert = store.Prepare("INSERT OR REPLACE INTO users(id, name, role, anonymous, secret) "
                                "VALUES(?1, ?2, ?3, ?4, ?5)");
    if (!insert) return false;
    (void)sqlite3_bind_int(insert.get(), 1, id);
    (void)sqlite3_bind_text(insert.get(), 2, name, -1, SQLITE_TRANSIENT);
    (void)sqlite3_bind_int(insert.get(), 3, role);
    (void)sqlite3_bind_int(insert.get(), 4, anonymous ? 1 : 0);
    (void)sqlite3_bind_blob(insert.get(), 5, &sealed, sizeof sealed, SQLITE_TRANSIENT);
    return sqlite3_step(insert.get()) == SQLITE_DONE;
}

} // namespace bmcsim

extern "C" int32_t LIB_USER_GetUserInfo(void *pUserInfoTable) {
    if (auto fault = bmcsim::InjectedFault("LIB_USER_GetUserInfo"))
        return static_cast<int32_t>(*fault);
    if (pUserInfoTable == nullptr) return bmcsim::kFailSigned;
    auto *table = static_cast<uint8_t *>(pUserInfoTable);
    // The table as this thread read it last, while no write came since
    // (write_generation.h); it holds the sealed passwords, as SQLite's own
    // page cache does.
    const uint64_t generation = bmcsim::WriteGeneration();
    thread_local bmcsim::CachedRead cached;
    if (cached.Serves(generation)) {
        std::memcpy(table, cached.bytes.data(), BMC_USER_TABLE_SIZE);
        return 0;
    }
    const bmcsim::ThreadUse use(kUsers);
    if (!use) return bmcsim::kFailSigned;
    sqlite3_stmt *select = use.Statement(kSelectAll);
    bmcsim::StatementReset reset(select);
    std::memset(table, 0, BMC_USER_TABLE_SIZE);
    int rc;
    while ((rc = sqlite3_step(select)) == SQLITE_ROW) {
        const int id = sqlite3_column_int(select, 0);
        if (id < 1 || id > static_cast<int>(bmcsim::kMaxUsers)) continue;
        uint8_t *record = table + static_cast<size_t>(id - 1) * BMC_USER_RECORD_SIZE;
        record[BMC_USER_ID_OFFSET] = static_cast<uint8_t>(id);
        const auto *name = reinterpret_cast<const char *>(sqlite3_column_text(select, 1));
        (void)BMC_Strlcpy(reinterpret_cast<char *>(record + BMC_USER_NAME_OFFSET), name,
                          bmcsim::kNameMax + 1);
        record[BMC_USER_ROLE_OFFSET] = static_cast<uint8_t>(sqlite3_column_int(select, 2));
        const int secretSize = sqlite3_column_bytes(select, 3);
        if (secretSize == static_cast<int>(sizeof(bmcsim::SealedPassword)))
            std::memcpy(record + BMC_USER_SECRET_OFFSET, sqlite3_column_blob(select, 3),
                        sizeof(bmcsim::SealedPassword));
    }
    if (rc == SQLITE_DONE) {
        cached.bytes.assign(table, table + BMC_USER_TABLE_SIZE);
        cached.found = true;
        cached.generation = generation;
        cached.readAt = std::chrono::steady_clock::now();
        return 0;
    }
    OPENSSL_cleanse(table, BMC_USER_TABLE_SIZE);
    return bmcsim::kFailSigned;
}

extern "C" int32_t LIB_USER_GetInsUser(uint32_t uiUserId, void *pUserRecord) {
    if (auto fault = bmcsim::InjectedFault("LIB_USER_GetInsUser"))
        return static_cast<int32_t>(*fault);
    UserRow row;
    if (pUserRecord == nullptr || !FindUser(uiUserId, row)) return bmcsim::kFailSigned;
    auto *record = static_cast<uint8_t *>(pUserRecord);
    std::memset(record, 0, kInsRecordSize);
    record[0] = row.id;
    std::memcpy(record + 1, row.name, sizeof row.name);
    record[kInsRoleAt] = row.role;
    record[kInsAnonymousAt] = row.anonymous ? 1 : 0;
    return 0;
}

extern "C" int32_t LIB_USER_CheckAnonymousByUserID(uint32_t uiUserId) {
    UserRow row;
    return FindUser(uiUserId, row) && row.anonymous ? 1 : 0;
}

// The key text, the number and the work buffer belong to the controller's
// own user library; the stand-in's cipher needs only the sealed bytes.
extern "C" int32_t LIB_USER_DecryptPassword(const uint8_t *pucSecret, const char *pcKey,
                                            uint32_t uiNum, uint8_t *pucWork, uint8_t ucPwdSize,
                                            char *pcPassword) {
    (void)pcKey;
    (void)uiNum;
    (void)pucWork;
    if (auto fault = bmcsim::InjectedFault("LIB_USER_DecryptPassword"))
        return static_cast<int32_t>(*fault);
    if (pucSecret == nullptr || pcPassword == nullptr || ucPwdSize == 0) return bmcsim::kFailSigned;
    bmcsim::SealedPassword sealed;
    std::memcpy(&sealed, pucSecret, sizeof sealed);
    const bool opened = bmcsim::OpenPassword(sealed, pcPassword, ucPwdSize);
    OPENSSL_cleanse(&sealed, sizeof sealed);
    return opened ? 0 : bmcsim::kFailSigned;
}

extern "C" int32_t LIB_USERPRIV_GetRoleNameByPrivRole(uint8_t ucPrivRole, uint32_t uiSize,
                                                      char *pcRoleName) {
    for (const RoleName &entry : kRoleNames) {
        if (entry.role != ucPrivRole) continue;
        (void)BMC_Strlcpy(pcRoleName, entry.name, uiSize);
        return 0;
    }
    (void)BMC_Strlcpy(pcRoleName, "Unknown", uiSize);
    return bmcsim::kFailSigned;
}

extern "C" int32_t BMCSIM_UserSet(uint32_t uiUserId, const char *pcName, uint32_t uiRole,
                                  int32_t iAnonymous, const char *pcPassword) {
    if (uiUserId < 1 || uiUserId > bmcsim::kMaxUsers || uiRole > 255 ||
        !bmcsim::EnsureFactoryState())
        return bmcsim::kFailSigned;
    auto store = bmcsim::Store::Open();
    if (!store) return bmcsim::kFailSigned;
    bmcsim::WriteTransaction txn(*store);
    const bool stored =
        txn.Begun() && bmcsim::StoreUser(*store, static_cast<uint8_t>(uiUserId), pcName,
                                         static_cast<uint8_t>(uiRole), iAnonymous != 0, pcPassword);
    return stored && txn.Commit() ? 0 : bmcsim::kFailSigned;
}

extern "C" int32_t BMCSIM_UserDel(uint32_t uiUserId) {
    if (!bmcsim::EnsureFactoryState()) return bmcsim::kFailSigned;
    auto store = bmcsim::Store::Open();
    if (!store) return bmcsim::kFailSigned;
    auto erase = store->Prepare("DELETE FROM users WHERE id = ?1");
    if (!erase) return bmcsim::kFailSigned;
    (void)sqlite3_bind_int64(erase.get(), 1, uiUserId);
    if (sqlite3_step(erase.get()) != SQLITE_DONE) return bmcsim::kFailSigned;
    return sqlite3_changes(store->Db()) == 1 ? 0 : bmcsim::kFailSigned;
}
