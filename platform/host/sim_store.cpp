#include "sim_store.h"

#include <chrono>
#include <climits>
#include <cstring>
#include <new>
#include <thread>

namespace bmcsim {

namespace {
constexpr int kBusyWaitMs = 5000;
} // namespace

std::unique_ptr<Store> Store::Open() noexcept {
    if (!MakeDirs(BMCSIM_STATE_DIR)) return nullptr;
    std::unique_ptr<Store> store(new (std::nothrow) Store);
    if (!store) return nullptr;
    sqlite3 *raw = nullptr;
    const int rc =
        sqlite3_open_v2(BMCSIM_CONFIG_DB, &raw,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    store->db_.reset(raw); // a failed open still hands out a handle to close
    if (rc != SQLITE_OK) return nullptr;
    sqlite3_busy_timeout(raw, kBusyWaitMs);
    if (!store->Exec("PRAGMA journal_mode=WAL") || !store->Exec("PRAGMA synchronous=FULL"))
        return nullptr;
    return store;
}

bool Store::Exec(const char *sql) noexcept {
    // The busy handler does not cover every lock conflict (switching to WAL,
    // upgrading a reader), so those are tried again for a while.
    for (int attempt = 0; attempt < 250; ++attempt) {
        const int rc = sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr);
        if (rc == SQLITE_OK) return true;
        if (rc != SQLITE_BUSY && rc != SQLITE_LOCKED) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

SqlStatement Store::Prepare(const char *sql) noexcept {
    sqlite3_stmt *raw = nullptr;
    (void)sqlite3_prepare_v2(db_.get(), sql, -1, &raw, nullptr);
    return SqlStatement(raw);
}

} // namespace bmcsim

namespace bmcsim {

bool GetRecord(Store &store, uint32_t key, uint32_t size, void *buffer) noexcept {
    auto select = store.Prepare("SELECT value FROM records WHERE key = ?1");
    if (!select) return false;
    (void)sqlite3_bind_int64(select.get(), 1, key);
    if (sqlite3_step(select.get()) != SQLITE_ROW) return false;
    if (sqlite3_column_bytes(select.get(), 0) != static_cast<int64_t>(size)) return false;
    if (size > 0) std::memcpy(buffer, sqlite3_column_blob(select.get(), 0), size);
    return true;
}

bool PutRecord(Store &store, uint32_t key, uint32_t size, const void *data) noexcept {
    if (size > INT_MAX) return false;
    auto insert = store.Prepare("INSERT OR REPLACE INTO records(key, value) VALUES(?1, ?2)");
    if (!insert) return false;
    (void)sqlite3_bind_int64(insert.get(), 1, key);
    (void)sqlite3_bind_blob(insert.get(), 2, data, static_cast<int>(size), SQLITE_STATIC);
    return sqlite3_step(insert.get()) == SQLITE_DONE;
}

} // namespace bmcsim
