#include "frame/bounded_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <openssl/pem.h>

#include <deque>
#include <mutex>
#include <utility>

namespace bmccert {

UniqueFd OpenBounded(int directory, const char *name, size_t maxBytes) {
    // O_NONBLOCK: a fifo planted under the name must not stall the open.
    UniqueFd fd(::openat(directory, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK));
    struct stat st {};
    if (!fd.Valid() || ::fstat(fd.Get(), &st) != 0 || !S_ISREG(st.st_mode) ||
        static_cast<unsigned long long>(st.st_size) > maxBytes)
        return UniqueFd();
    return fd;
}

// OpenSSL's descriptor BIO reads a PEM file byte by byte; a memory BIO
// over the whole file does not.
std::string ReadAll(const UniqueFd &fd, size_t maxBytes) {
    std::string text;
    if (!fd.Valid()) return text;
    char chunk[4096];
    for (ssize_t n; (n = ::read(fd.Get(), chunk, sizeof chunk)) > 0;) {
        text.append(chunk, static_cast<size_t>(n));
        if (text.size() > maxBytes) return {};
    }
    return text;
}

bool IdentityOf(const UniqueFd &fd, FileIdentity &identity) {
    struct stat st {};
    if (!fd.Valid() || ::fstat(fd.Get(), &st) != 0) return false;
    identity = {st.st_dev, st.st_ino, st.st_size, st.st_mtim.tv_sec, st.st_mtim.tv_nsec};
    return true;
}

UniquePtr<X509> ParseCertificate(std::string_view bytes) {
    if (bytes.empty()) return nullptr;
    UniquePtr<BIO> bio(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
    UniquePtr<X509> cert(bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!cert) {
        const auto *cursor = reinterpret_cast<const unsigned char *>(bytes.data());
        cert.reset(d2i_X509(nullptr, &cursor, static_cast<long>(bytes.size())));
    }
    ERR_clear_error();
    return cert;
}

UniquePtr<X509> ReadCertificateFile(const UniqueFd &fd) {
    FileIdentity identity;
    if (!IdentityOf(fd, identity)) return nullptr;
    constexpr size_t kKept = 64;
    static std::mutex lock;
    static std::deque<std::pair<FileIdentity, UniquePtr<X509>>> kept; // newest last
    {
        const std::lock_guard held(lock);
        for (const auto &[known, cert] : kept)
            if (known == identity) {
                (void)X509_up_ref(cert.get());
                return UniquePtr<X509>(cert.get());
            }
    }
    UniquePtr<X509> cert = ParseCertificate(ReadAll(fd));
    if (!cert) return nullptr;
    const std::lock_guard held(lock);
    if (kept.size() == kKept) kept.pop_front();
    (void)X509_up_ref(cert.get());
    kept.emplace_back(identity, UniquePtr<X509>(cert.get()));
    return cert;
}

} // namespace bmccert
