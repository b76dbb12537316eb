#include "sim_store.h"

#include <chrono>
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
