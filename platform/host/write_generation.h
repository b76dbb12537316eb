// A counter of the writes to config.db, in memory that every process of
// the controller shares: each commit bumps it before and after. A reader
// that notes it before a read may serve what it read again while the
// counter stands, without a read transaction: SQLite's read transactions
// in WAL mode take the shared-memory read marks under a mutex of the
// process and a file lock, which made two reader threads slower than one.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

namespace bmcsim {

// The counter now; 0 when the shared counter cannot be had (then nothing
// may be served from a cache).
[[nodiscard]] uint64_t WriteGeneration() noexcept;
void BumpWriteGeneration() noexcept;

// What one thread read last under one key, and when. Served again only
// under the same generation and for at most a second: a writer killed
// between its commit and its second bump cannot leave a reader stale for
// longer.
struct CachedRead {
    uint64_t generation = 0;
    std::chrono::steady_clock::time_point readAt;
    bool found = false;
    std::vector<uint8_t> bytes;

    [[nodiscard]] bool Serves(uint64_t now) const noexcept {
        return generation != 0 && generation == now &&
               std::chrono::steady_clock::now() - readAt < std::chrono::seconds(1);
    }
};

} // namespace bmcsim
