// Connections to config.db. The stand-in's own tables (tasks, users) are
// reached through connections of their own so that the library's record
// reads and their fault switches never get in the way of the services
// behind them; the platform calls on the library's hot paths use the
// calling thread's own connection (ThreadUse).
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <memory>

#include "sim_internal.h"

namespace bmcsim {

using SqlConnection = Owned<sqlite3, sqlite3_close_v2>;
using SqlStatement = Owned<sqlite3_stmt, sqlite3_finalize>;

class Store {
  public:
    // A new connection to config.db (created when missing), or nullptr.
    [[nodiscard]] static std::unique_ptr<Store> Open() noexcept;

    [[nodiscard]] sqlite3 *Db() const noexcept { return db_.get(); }
    // Runs SQL without results, waiting while another writer holds the file.
    [[nodiscard]] bool Exec(const char *sql) noexcept;
    // A prepared statement, or an empty holder when the SQL cannot be prepared.
    [[nodiscard]] SqlStatement Prepare(const char *sql) noexcept;

  private:
    SqlConnection db_;
};

// A write transaction. BEGIN IMMEDIATE takes the write lock at once, so the
// read-modify-write sequences of several processes take turns instead of
// failing half way; without Commit() the destructor rolls back.
class WriteTransaction {
  public:
    explicit WriteTransaction(Store &store) noexcept
        : store_(store), begun_(store.Exec("BEGIN IMMEDIATE")) {}
    WriteTransaction(const WriteTransaction &) = delete;
    WriteTransaction &operator=(const WriteTransaction &) = delete;
    ~WriteTransaction() {
        if (begun_) (void)store_.Exec("ROLLBACK");
    }
    [[nodiscard]] bool Begun() const noexcept { return begun_; }
    [[nodiscard]] bool Commit() noexcept {
        if (!begun_ || !store_.Exec("COMMIT")) return false;
        begun_ = false;
        return true;
    }

  private:
    Store &store_;
    bool begun_;
};

// Gives a statement back for its next use when it goes out of scope.
class StatementReset {
  public:
    explicit StatementReset(sqlite3_stmt *stmt) noexcept : stmt_(stmt) {}
    StatementReset(const StatementReset &) = delete;
    StatementReset &operator=(const StatementReset &) = delete;
    ~StatementReset() {
        (void)sqlite3_reset(stmt_);
        (void)sqlite3_clear_bindings(stmt_);
    }

  private:
    sqlite3_stmt *stmt_;
};

// Connections of one thread each, for the platform calls that the library
// makes on its hot paths. A thread opens its own connection of a kind on
// its first call, with the kind's statements prepared on it once, and keeps
// it until the thread ends (the main thread's until exit). No connection is
// shared, so readers in several threads run at once (WAL) and take no lock
// of the process; writers of all threads and processes take turns in
// SQLite's busy handling, as writers in several processes always did.
//
// fork() waits until no thread is inside its connection. The child never
// uses nor closes a connection it inherited: its thread opens a new one.
struct ThreadKind {
    size_t slot;                   // distinct for each kind, below kThreadKinds
    const char *schema;            // run on every new connection before preparing
    const char *const *statements; // prepared on every connection of the kind
    size_t count;                  // at most kThreadStatements
};
inline constexpr size_t kThreadKinds = 2;
inline constexpr size_t kThreadStatements = 4;

class ThreadConnection;

// The calling thread's connection of a kind for as long as the use lasts.
class ThreadUse {
  public:
    explicit ThreadUse(const ThreadKind &kind) noexcept;
    ~ThreadUse();
    ThreadUse(const ThreadUse &) = delete;
    ThreadUse &operator=(const ThreadUse &) = delete;

    // False when the connection could not be opened or prepared.
    [[nodiscard]] explicit operator bool() const noexcept { return connection_ != nullptr; }
    [[nodiscard]] sqlite3 *Db() const noexcept;
    // Statement i of the kind; give it back with StatementReset.
    [[nodiscard]] sqlite3_stmt *Statement(size_t i) const noexcept;

  private:
    ThreadConnection *connection_;
};

// Whole records of the `records` table, the library's configuration
// database, read and written without the fault switch: the services behind
// the platform calls keep working when a test makes a call fail.
[[nodiscard]] bool GetRecord(Store &store, uint32_t key, uint32_t size, void *buffer) noexcept;
[[nodiscard]] bool PutRecord(Store &store, uint32_t key, uint32_t size, const void *data) noexcept;

// Puts the users and the six client-authentication records of a
// factory-fresh controller in place unless that was done before for this
// controller (config.db remembers it). Works on its own connection.
[[nodiscard]] bool EnsureFactoryState() noexcept;

} // namespace bmcsim
