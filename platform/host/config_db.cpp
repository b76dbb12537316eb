// Configuration database: one SQLite file in WAL mode with durable commits,
// records keyed by number. The library serves cached records from here on
// hot paths, so every thread keeps its own connection with the statements
// prepared once (bmcsim::ThreadUse): readers in several threads run at once.
#include <sqlite3.h>

#include <climits>
#include <cstdio>
#include <cstring>
#include <unordered_map>
#include <iterator>

#include "sim_internal.h"
#include "sim_store.h"
#include "write_generation.h"

// The process's handle. It stands for the calling thread's connection, so a
// handle may be passed between threads and stays valid in a forked child.
struct BMC_Db_s {};

namespace {

BMC_Db g_handle;

enum RecordStatement : size_t { kGet, kPut, kErase };
constexpr const char *kRecordStatements[] = {
    "SELECT value FROM records WHERE key = ?1",
    "INSERT OR REPLACE INTO records(key, value) VALUES(?1, ?2)",
    "DELETE FROM records WHERE key = ?1",
};
constexpr bmcsim::ThreadKind kRecords = {
    0, "CREATE TABLE IF NOT EXISTS records(key INTEGER PRIMARY KEY, value BLOB NOT NULL)",
    kRecordStatements, std::size(kRecordStatements)};

// Hands the statement back for its next use and ends its read snapshot.
class StatementUse {
  public:
    StatementUse(const bmcsim::ThreadUse &use, RecordStatement which) noexcept
        : stmt_(use.Statement(which)) {}
    StatementUse(const StatementUse &) = delete;
    StatementUse &operator=(const StatementUse &) = delete;
    ~StatementUse() {
        (void)sqlite3_reset(stmt_);
        (void)sqlite3_clear_bindings(stmt_);
    }
    [[nodiscard]] sqlite3_stmt *Get() const noexcept { return stmt_; }

  private:
    sqlite3_stmt *stmt_;
};

} // namespace

extern "C" BMC_Db *DB_GetCurrentDb(void) {
    if (bmcsim::InjectedFault("DB_GetCurrentDb")) return nullptr;
    const bmcsim::ThreadUse use(kRecords);
    if (use) return &g_handle;
    BMC_DiagLogOut(0, 0, 4, __LINE__, __FILE__, "Cannot open the configuration database %s",
                   BMCSIM_CONFIG_DB);
    return nullptr;
}

extern "C" int32_t DB_Get(BMC_Db *pDb, uint32_t uiKey, uint32_t uiSize, void *pBuf) {
    if (auto fault = bmcsim::InjectedFault("DB_Get")) return static_cast<int32_t>(*fault);
    if (auto fault = bmcsim::InjectedFault("DB_Get", uiKey)) return static_cast<int32_t>(*fault);
    if (pDb == nullptr || pBuf == nullptr) return bmcsim::kFailSigned;
    // The generation is taken before the read, so that a write that
    // commits during it makes what was read stale at once.
    const uint64_t generation = bmcsim::WriteGeneration();
    thread_local std::unordered_map<uint32_t, bmcsim::CachedRead> cache;
    bmcsim::CachedRead &cached = cache[uiKey];
    if (!cached.Serves(generation)) {
        const bmcsim::ThreadUse use(kRecords);
        if (!use) return bmcsim::kFailSigned;
        StatementUse get(use, kGet);
        (void)sqlite3_bind_int64(get.Get(), 1, uiKey);
        const int rc = sqlite3_step(get.Get());
        if (rc != SQLITE_ROW && rc != SQLITE_DONE) return bmcsim::kFailSigned; // not cached
        cached.found = rc == SQLITE_ROW;
        const auto *value = static_cast<const uint8_t *>(sqlite3_column_blob(get.Get(), 0));
        cached.bytes.clear();
        if (cached.found && value != nullptr)
            cached.bytes.assign(value, value + sqlite3_column_bytes(get.Get(), 0));
        cached.generation = generation;
        cached.readAt = std::chrono::steady_clock::now();
    }
    if (!cached.found || cached.bytes.size() != uiSize) return bmcsim::kFailSigned;
    if (uiSize > 0) std::memcpy(pBuf, cached.bytes.data(), uiSize);
    return 0;
}

extern "C" int32_t DB_PutInternal(const char *pcFile, int32_t iLine, BMC_Db *pDb, uint32_t uiKey,
                                  uint32_t uiSize, const void *pData) {
    if (auto fault = bmcsim::InjectedFault("DB_PutInternal")) return static_cast<int32_t>(*fault);
    char reason[256] = "no database, no data or too large";
    if (pDb != nullptr && (pData != nullptr || uiSize == 0) && uiSize <= INT_MAX) {
        const bmcsim::ThreadUse use(kRecords);
        if (use) {
            StatementUse put(use, kPut);
            (void)sqlite3_bind_int64(put.Get(), 1, uiKey);
            int rc = uiSize == 0 ? sqlite3_bind_zeroblob(put.Get(), 2, 0)
                                 : sqlite3_bind_blob(put.Get(), 2, pData,
                                                     static_cast<int>(uiSize), SQLITE_STATIC);
            if (rc == SQLITE_OK) rc = sqlite3_step(put.Get());
            if (rc == SQLITE_DONE) return 0;
            (void)std::snprintf(reason, sizeof reason, "%s", sqlite3_errmsg(use.Db()));
        }
    }
    BMC_DiagLogOut(0, 0, 4, iLine, pcFile, "DB put of key %u (%u bytes) failed: %s", uiKey, uiSize,
                   reason);
    return bmcsim::kFailSigned;
}

extern "C" int32_t BMCSIM_DbErase(uint32_t uiKey) {
    const bmcsim::ThreadUse use(kRecords);
    if (!use) return bmcsim::kFailSigned;
    StatementUse erase(use, kErase);
    (void)sqlite3_bind_int64(erase.Get(), 1, uiKey);
    return sqlite3_step(erase.Get()) == SQLITE_DONE ? 0 : bmcsim::kFailSigned;
}
