// What the controller keeps of its ACME enrolment: the settings and the
// state as records of the configuration database, the account key and the
// binding's MAC key as private files, the CA's root for its HTTPS, and the
// lock that lets one enrolment or account change run at a time.
#pragma once

#include <optional>
#include <string>

#include "acme/acme_internal.h"
#include "frame/frame.h"
#include "frame/unique_fd.h"
#include "lib_security_sslcert_ext.h"

namespace bmccert::acme {

[[nodiscard]] bool LoadSettings(SSLAcmeEnrollment &settings);
[[nodiscard]] bool StoreSettings(const SSLAcmeEnrollment &settings);
// The state as stored (zeroed while none is), without the file flags.
[[nodiscard]] SSLAcmeStatus LoadStatus();
[[nodiscard]] bool StoreStatus(const SSLAcmeStatus &status);

// A private file (0600 from its first byte) replaced whole by a rename.
[[nodiscard]] bool WritePrivateFile(const char *path, std::string_view bytes);
[[nodiscard]] bool WritePublicFile(const char *path, std::string_view bytes);
// The file's bytes, at most maxBytes; nullopt when absent or larger.
[[nodiscard]] std::optional<std::string> ReadSmallFile(const char *path, size_t maxBytes);

[[nodiscard]] UniquePtr<EVP_PKEY> LoadAccountKey();
[[nodiscard]] bool StoreAccountKey(EVP_PKEY *key);

// One enrolment or account change at a time, across processes; the lock
// goes with the holder.
class AcmeLock {
  public:
    AcmeLock();
    [[nodiscard]] bool Held() const { return fd_.Valid(); }

  private:
    UniqueFd fd_;
};

// Copies a text into a record's field whole, or refuses (false, the field
// emptied): a value that does not fit is never cut.
template <size_t N> [[nodiscard]] bool CopyField(char (&field)[N], std::string_view text) {
    if (text.size() >= N || text.find('\0') != std::string_view::npos) {
        field[0] = '\0';
        return false;
    }
    std::memcpy(field, text.data(), text.size());
    field[text.size()] = '\0';
    return true;
}

} // namespace bmccert::acme
