#include "acme/acme_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include <openssl/pem.h>

#include "frame/bounded_file.h"
#include "platform/controller_paths.h"
#include "sslcert/cert_request.h"

namespace bmccert::acme {
namespace {

using namespace controller_paths;
constexpr size_t kMaxKeyBytes = 4096;

[[nodiscard]] bool EnsureDir() {
    if (::mkdir(kAcmeDir, 0755) != 0 && errno != EEXIST) return false;
    return true;
}

[[nodiscard]] bool WriteReplacing(const char *path, std::string_view bytes, mode_t mode) {
    if (!EnsureDir()) return false;
    const std::string staging = std::string(path) + ".new";
    if (!sslcert::WriteSyncedFile(staging.c_str(), bytes, mode)) return false;
    if (::rename(staging.c_str(), path) != 0) {
        (void)::unlink(staging.c_str());
        return false;
    }
    return sslcert::SyncDirectory(kAcmeDir);
}

} // namespace

bool LoadSettings(SSLAcmeEnrollment &settings) {
    std::memset(&settings, 0, sizeof settings);
    BMC_Db *db = DB_GetCurrentDb();
    return db != nullptr &&
           DB_Get(db, SSLCERT_EXT_ACME_SETTINGS_DB_KEY, sizeof settings, &settings) == 0;
}

bool StoreSettings(const SSLAcmeEnrollment &settings) {
    BMC_Db *db = DB_GetCurrentDb();
    return db != nullptr &&
           DB_PutInternal(__FILE_NAME__, __LINE__, db, SSLCERT_EXT_ACME_SETTINGS_DB_KEY,
                          sizeof settings, &settings) == 0;
}

SSLAcmeStatus LoadStatus() {
    SSLAcmeStatus status{};
    BMC_Db *db = DB_GetCurrentDb();
    if (db == nullptr || DB_Get(db, SSLCERT_EXT_ACME_STATUS_DB_KEY, sizeof status, &status) != 0)
        std::memset(&status, 0, sizeof status);
    // A damaged record must not be read past its fields.
    status.szAccountUrl[sizeof status.szAccountUrl - 1] = '\0';
    status.szKeyThumbprint[sizeof status.szKeyThumbprint - 1] = '\0';
    status.szOrderUrl[sizeof status.szOrderUrl - 1] = '\0';
    return status;
}

bool StoreStatus(const SSLAcmeStatus &status) {
    SSLAcmeStatus stored = status;
    stored.ucHasEabKey = stored.ucHasServerCa = 0; // told by the files themselves
    BMC_Db *db = DB_GetCurrentDb();
    return db != nullptr &&
           DB_PutInternal(__FILE_NAME__, __LINE__, db, SSLCERT_EXT_ACME_STATUS_DB_KEY,
                          sizeof stored, &stored) == 0;
}

bool WritePrivateFile(const char *path, std::string_view bytes) {
    return WriteReplacing(path, bytes, S_IRUSR | S_IWUSR);
}

bool WritePublicFile(const char *path, std::string_view bytes) {
    return WriteReplacing(path, bytes, S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH);
}

std::optional<std::string> ReadSmallFile(const char *path, size_t maxBytes) {
    const UniqueFd fd(::open(path, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat st {};
    if (!fd.Valid() || ::fstat(fd.Get(), &st) != 0 || !S_ISREG(st.st_mode) ||
        static_cast<size_t>(st.st_size) > maxBytes)
        return std::nullopt;
    std::string bytes = ReadAll(fd, maxBytes);
    return bytes;
}

UniquePtr<EVP_PKEY> LoadAccountKey() {
    const std::optional<std::string> pem = ReadSmallFile(kAcmeAccountKeyPath, kMaxKeyBytes);
    if (!pem) return nullptr;
    const UniquePtr<BIO> bio(BIO_new_mem_buf(pem->data(), static_cast<int>(pem->size())));
    UniquePtr<EVP_PKEY> key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr)
                                : nullptr);
    OPENSSL_cleanse(const_cast<char *>(pem->data()), pem->size());
    return key;
}

bool StoreAccountKey(EVP_PKEY *key) {
    const UniquePtr<BIO> bio(BIO_new(BIO_s_secmem()));
    char *data = nullptr;
    long length = 0;
    if (!bio ||
        PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1 ||
        (length = BIO_get_mem_data(bio.get(), &data)) <= 0)
        return false;
    return WritePrivateFile(kAcmeAccountKeyPath, {data, static_cast<size_t>(length)});
}

AcmeLock::AcmeLock() {
    if (!EnsureDir()) return;
    UniqueFd fd(::open(kAcmeLockPath, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (fd.Valid() && ::flock(fd.Get(), LOCK_EX | LOCK_NB) == 0) fd_ = std::move(fd);
}

} // namespace bmccert::acme
