// The user service's slots in config.db and the sealing of their passwords.
// A password is kept only enciphered (AES-256-GCM under the controller's
// key file); the clear text exists only in the caller's buffers.
#pragma once

#include <cstddef>
#include <cstdint>

#include "sim_store.h"

namespace bmcsim {

inline constexpr uint32_t kMaxUsers = 16;
inline constexpr size_t kNameMax = 32;     // characters
inline constexpr size_t kPasswordMax = 40; // characters

// The enciphered password as it sits at byte 274 of a user's record in the
// user table. The first three bytes are authenticated with the cipher text,
// so a password moved to another user's slot no longer opens.
struct SealedPassword {
    uint8_t version; // 1
    uint8_t userId;
    uint8_t length; // of the clear text, 0..40
    uint8_t iv[12];
    uint8_t tag[16];
    uint8_t cipher[kPasswordMax];
};
static_assert(sizeof(SealedPassword) == 71);

[[nodiscard]] bool SealPassword(uint8_t userId, const char *password, SealedPassword &out) noexcept;
// Writes the clear text, terminated, when it fits in size bytes.
[[nodiscard]] bool OpenPassword(const SealedPassword &sealed, char *out, size_t size) noexcept;

inline constexpr const char *kUserSchema =
    "CREATE TABLE IF NOT EXISTS users(id INTEGER PRIMARY KEY CHECK(id BETWEEN 1 AND 16),"
    "name TEXT NOT NULL, role INTEGER NOT NULL, anonymous INTEGER NOT NULL,"
    "secret BLOB NOT NULL)";

// Inserts or replaces a user; the password is sealed here. A null password
// keeps the user's present one (an empty one for a new user).
[[nodiscard]] bool StoreUser(Store &store, uint8_t id, const char *name, uint8_t role,
                             bool anonymous, const char *password) noexcept;

} // namespace bmcsim
