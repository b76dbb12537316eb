#include "sim_store.h"

#include "write_generation.h"

#include <pthread.h>

#include <array>
#include <chrono>
#include <climits>
#include <cstring>
#include <mutex>
#include <new>
#include <thread>

namespace bmcsim {

namespace {
constexpr int kBusyWaitMs = 5000;
} // namespace

// SQLite counts every allocation under one process-wide mutex for its
// memory statistics, which nothing here reads: two reader threads would
// take turns on it. Only possible before SQLite's first use in the process.
void TurnOffMemoryStatistics() noexcept {
    static std::once_flag once;
    std::call_once(once, [] { (void)sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0); });
}

std::unique_ptr<Store> Store::Open() noexcept {
    if (!OnController() || !MakeDirs(BMCSIM_STATE_DIR)) return nullptr;
    TurnOffMemoryStatistics();
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
    // Every commit of every process bumps the write generation before and
    // after (write_generation.h); the hook after a commit replaces SQLite's
    // own automatic checkpoint, so it checkpoints as that one would.
    (void)sqlite3_commit_hook(
        raw, [](void *) { BumpWriteGeneration(); return 0; }, nullptr);
    (void)sqlite3_wal_hook(
        raw,
        [](void *, sqlite3 *db, const char *name, int frames) {
            BumpWriteGeneration();
            if (frames >= 1000)
                (void)sqlite3_wal_checkpoint_v2(db, name, SQLITE_CHECKPOINT_PASSIVE, nullptr,
                                                nullptr);
            return SQLITE_OK;
        },
        nullptr);
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

// One thread's connection of one kind. `guard` is held by its thread while
// it uses the connection and by a forking thread around fork().
class ThreadConnection {
  public:
    std::mutex guard;
    ThreadConnection *previous = nullptr, *next = nullptr;
    // Set in a forked child: the parent's, neither used nor closed there.
    bool inherited = false;
    std::unique_ptr<Store> store;
    std::array<SqlStatement, kThreadStatements> statements;

    [[nodiscard]] bool Open(const ThreadKind &kind) noexcept {
        if (kind.count > kThreadStatements) return false;
        store = Store::Open();
        if (!store || (kind.schema != nullptr && !store->Exec(kind.schema))) return false;
        for (size_t i = 0; i < kind.count; ++i) {
            sqlite3_stmt *raw = nullptr;
            (void)sqlite3_prepare_v3(store->Db(), kind.statements[i], -1,
                                     SQLITE_PREPARE_PERSISTENT, &raw, nullptr);
            statements[i].reset(raw);
            if (raw == nullptr) return false;
        }
        return true;
    }

    // Statements first: a connection closes only once they are finalized.
    void Close() noexcept {
        for (SqlStatement &statement : statements) statement.reset();
        store.reset();
    }
};

namespace {

// Every connection of the process's threads, so that fork() can wait for
// them and a child keeps its inherited ones reachable. Never destroyed:
// threads may end while the process exits.
struct Registry {
    std::mutex mutex;
    ThreadConnection *first = nullptr;
};

Registry &Connections() {
    static Registry *registry = new Registry;
    return *registry;
}

void BeforeFork() noexcept {
    Registry &registry = Connections();
    registry.mutex.lock();
    for (ThreadConnection *c = registry.first; c != nullptr; c = c->next)
        if (!c->inherited) c->guard.lock();
}

void AfterForkInParent() noexcept {
    Registry &registry = Connections();
    for (ThreadConnection *c = registry.first; c != nullptr; c = c->next)
        if (!c->inherited) c->guard.unlock();
    registry.mutex.unlock();
}

void AfterForkInChild() noexcept {
    Registry &registry = Connections();
    for (ThreadConnection *c = registry.first; c != nullptr; c = c->next) {
        if (c->inherited) continue;
        c->guard.unlock();
        c->inherited = true;
    }
    registry.mutex.unlock();
}

void Enlist(ThreadConnection *c) noexcept {
    static std::once_flag hooks;
    std::call_once(hooks,
                   [] { (void)pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild); });
    Registry &registry = Connections();
    std::lock_guard lock(registry.mutex);
    c->next = registry.first;
    if (c->next != nullptr) c->next->previous = c;
    registry.first = c;
}

void Retire(ThreadConnection *c) noexcept {
    {
        std::lock_guard use(c->guard);
        c->Close();
    }
    {
        Registry &registry = Connections();
        std::lock_guard lock(registry.mutex);
        if (c->previous != nullptr)
            c->previous->next = c->next;
        else
            registry.first = c->next;
        if (c->next != nullptr) c->next->previous = c->previous;
    }
    delete c;
}

// The connections of the calling thread, one slot per kind, closed when the
// thread ends.
struct ThreadHeld {
    std::array<ThreadConnection *, kThreadKinds> slots{};
    ~ThreadHeld() {
        for (ThreadConnection *&c : slots) {
            if (c != nullptr && !c->inherited) Retire(c);
            c = nullptr;
        }
    }
};

thread_local ThreadHeld t_held;

[[nodiscard]] ThreadConnection *OpenFor(const ThreadKind &kind) noexcept {
    // The factory state goes in first, on a connection of its own; a
    // failure shows as records or users that cannot be read.
    (void)EnsureFactoryState();
    auto *c = new (std::nothrow) ThreadConnection;
    if (c == nullptr) return nullptr;
    Enlist(c);
    bool opened;
    {
        std::lock_guard use(c->guard);
        opened = c->Open(kind);
    }
    if (opened) return c;
    Retire(c);
    return nullptr;
}

} // namespace

ThreadUse::ThreadUse(const ThreadKind &kind) noexcept : connection_(nullptr) {
    if (kind.slot >= kThreadKinds) return;
    ThreadConnection *&held = t_held.slots[kind.slot];
    if (held != nullptr && held->inherited) held = nullptr; // the parent's, left as it is
    if (held == nullptr) held = OpenFor(kind);
    if (held == nullptr) return;
    held->guard.lock();
    connection_ = held;
}

ThreadUse::~ThreadUse() {
    if (connection_ != nullptr) connection_->guard.unlock();
}

sqlite3 *ThreadUse::Db() const noexcept { return connection_->store->Db(); }

sqlite3_stmt *ThreadUse::Statement(size_t i) const noexcept {
    return i < kThreadStatements ? connection_->statements[i].get() : nullptr;
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
