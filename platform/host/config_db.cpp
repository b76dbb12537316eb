// Configuration database: one SQLite file in WAL mode with durable commits,
// records keyed by number. The library serves cached records from here on
// hot paths, so the process keeps one connection with its statements
// prepared once, behind a mutex.
#include <sqlite3.h>

#include <chrono>
#include <climits>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <new>
#include <thread>

#include <pthread.h>

#include "sim_internal.h"
#include "sim_store.h"

using Connection = bmcsim::Owned<sqlite3, sqlite3_close_v2>;
using Statement = bmcsim::Owned<sqlite3_stmt, sqlite3_finalize>;

struct BMC_Db_s {
    std::mutex mutex;
    Connection connection;
    Statement get, put, erase;
    // Set in a forked child: the connection belongs to the parent and must
    // be neither used nor closed there.
    bool inherited = false;
};

namespace {

constexpr int kBusyWaitMs = 5000;

std::mutex g_openMutex;
std::unique_ptr<BMC_Db> g_current;
std::once_flag g_forkHooks;

// Hands the statement back for its next use and ends its read snapshot.
class StatementUse {
  public:
    explicit StatementUse(sqlite3_stmt *stmt) noexcept : stmt_(stmt) {}
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

// Switching to WAL needs the file to itself for a moment; a process that
// opens it at the same time as another may be told so more than once.
[[nodiscard]] bool Exec(sqlite3 *db, const char *sql) noexcept {
    for (int attempt = 0; attempt < 50; ++attempt) {
        int rc = sqlite3_exec(db, sql, nullptr, nullptr, nullptr);
        if (rc == SQLITE_OK) return true;
        if (rc != SQLITE_BUSY && rc != SQLITE_LOCKED) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

[[nodiscard]] bool Prepare(sqlite3 *db, const char *sql, Statement &out) noexcept {
    sqlite3_stmt *raw = nullptr;
    int rc = sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &raw, nullptr);
    out.reset(raw);
    return rc == SQLITE_OK && raw != nullptr;
}

[[nodiscard]] std::unique_ptr<BMC_Db> Open() {
    if (!bmcsim::MakeDirs(BMCSIM_STATE_DIR)) return nullptr;
    auto db = std::make_unique<BMC_Db>();
    sqlite3 *raw = nullptr;
    int rc =
        sqlite3_open_v2(BMCSIM_CONFIG_DB, &raw,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    db->connection.reset(raw); // a failed open still hands out a handle to close
    if (rc != SQLITE_OK) return nullptr;
    sqlite3_busy_timeout(raw, kBusyWaitMs);
    bool ready =
        Exec(raw, "PRAGMA journal_mode=WAL") && Exec(raw, "PRAGMA synchronous=FULL") &&
        Exec(raw, "CREATE TABLE IF NOT EXISTS records("
                  "key INTEGER PRIMARY KEY, value BLOB NOT NULL)") &&
        Prepare(raw, "SELECT value FROM records WHERE key = ?1", db->get) &&
        Prepare(raw, "INSERT OR REPLACE INTO records(key, value) VALUES(?1, ?2)", db->put) &&
        Prepare(raw, "DELETE FROM records WHERE key = ?1", db->erase);
    // A controller's first database holds its factory records; a failure
    // shows as records that cannot be read.
    if (ready) (void)bmcsim::EnsureFactoryState();
    return ready ? std::move(db) : nullptr;
}

// fork() copies the connection but not the locks behind it. The hooks make
// sure no thread is inside the database at the moment of the fork, and the
// child then opens its own connection instead of sharing the parent's.
void BeforeFork() noexcept {
    g_openMutex.lock();
    if (g_current) g_current->mutex.lock();
}

void AfterForkInParent() noexcept {
    if (g_current) g_current->mutex.unlock();
    g_openMutex.unlock();
}

void AfterForkInChild() noexcept {
    if (g_current) {
        g_current->mutex.unlock();
        g_current->inherited = true;
        // Deliberately not finalized or closed: that would act on the
        // parent's files. Handles still held by the caller stay valid.
        (void)g_current->get.release();
        (void)g_current->put.release();
        (void)g_current->erase.release();
        (void)g_current->connection.release();
        (void)g_current.release();
    }
    g_openMutex.unlock();
}

[[nodiscard]] BMC_Db *Current() noexcept {
    std::call_once(g_forkHooks,
                   [] { (void)pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild); });
    std::lock_guard lock(g_openMutex);
    if (!g_current) {
        try {
            g_current = Open();
        } catch (const std::bad_alloc &) {
            return nullptr;
        }
        if (!g_current)
            BMC_DiagLogOut(0, 0, 4, __LINE__, __FILE__, "Cannot open the configuration database %s",
                           BMCSIM_CONFIG_DB);
    }
    return g_current.get();
}

// A handle obtained before a fork stands for the child's own connection.
[[nodiscard]] BMC_Db *Usable(BMC_Db *db) noexcept {
    return db != nullptr && db->inherited ? Current() : db;
}

} // namespace

extern "C" BMC_Db *DB_GetCurrentDb(void) {
    if (bmcsim::InjectedFault("DB_GetCurrentDb")) return nullptr;
    return Current();
}

extern "C" int32_t DB_Get(BMC_Db *pDb, uint32_t uiKey, uint32_t uiSize, void *pBuf) {
    if (auto fault = bmcsim::InjectedFault("DB_Get")) return static_cast<int32_t>(*fault);
    if (auto fault = bmcsim::InjectedFault("DB_Get", uiKey)) return static_cast<int32_t>(*fault);
    BMC_Db *db = Usable(pDb);
    if (db == nullptr || pBuf == nullptr) return bmcsim::kFailSigned;
    std::lock_guard lock(db->mutex);
    StatementUse use(db->get.get());
    (void)sqlite3_bind_int64(use.Get(), 1, uiKey);
    if (sqlite3_step(use.Get()) != SQLITE_ROW) return bmcsim::kFailSigned;
    const void *value = sqlite3_column_blob(use.Get(), 0);
    if (sqlite3_column_bytes(use.Get(), 0) != static_cast<int64_t>(uiSize))
        return bmcsim::kFailSigned;
    if (uiSize > 0) std::memcpy(pBuf, value, uiSize);
    return 0;
}

extern "C" int32_t DB_PutInternal(const char *pcFile, int32_t iLine, BMC_Db *pDb, uint32_t uiKey,
                                  uint32_t uiSize, const void *pData) {
    if (auto fault = bmcsim::InjectedFault("DB_PutInternal")) return static_cast<int32_t>(*fault);
    BMC_Db *db = Usable(pDb);
    char reason[256] = "no database, no data or too large";
    if (db != nullptr && (pData != nullptr || uiSize == 0) && uiSize <= INT_MAX) {
        std::lock_guard lock(db->mutex);
        StatementUse use(db->put.get());
        (void)sqlite3_bind_int64(use.Get(), 1, uiKey);
        int rc = uiSize == 0 ? sqlite3_bind_zeroblob(use.Get(), 2, 0)
                             : sqlite3_bind_blob(use.Get(), 2, pData, static_cast<int>(uiSize),
                                                 SQLITE_STATIC);
        if (rc == SQLITE_OK) rc = sqlite3_step(use.Get());
        if (rc == SQLITE_DONE) return 0;
        (void)std::snprintf(reason, sizeof reason, "%s", sqlite3_errmsg(db->connection.get()));
    }
    BMC_DiagLogOut(0, 0, 4, iLine, pcFile, "DB put of key %u (%u bytes) failed: %s", uiKey, uiSize,
                   reason);
    return bmcsim::kFailSigned;
}

extern "C" int32_t BMCSIM_DbErase(uint32_t uiKey) {
    BMC_Db *db = Current();
    if (db == nullptr) return bmcsim::kFailSigned;
    std::lock_guard lock(db->mutex);
    StatementUse use(db->erase.get());
    (void)sqlite3_bind_int64(use.Get(), 1, uiKey);
    return sqlite3_step(use.Get()) == SQLITE_DONE ? 0 : bmcsim::kFailSigned;
}
