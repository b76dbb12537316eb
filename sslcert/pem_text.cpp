// PEM text in memory and in private files: the pending key and the signed
// pair pass through both, so what held key material is wiped and what is
// written is private and on disk before anyone relies on it.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include <openssl/buffer.h>
#include <openssl/crypto.h>

#include "frame/unique_fd.h"
#include "sslcert/cert_request.h"

namespace bmccert::sslcert {

PemText::PemText() : bio_(BIO_new(BIO_s_mem())) {}

PemText::~PemText() {
    BUF_MEM *memory = nullptr;
    if (bio_ && BIO_get_mem_ptr(bio_.get(), &memory) == 1 && memory != nullptr &&
        memory->data != nullptr)
        OPENSSL_cleanse(memory->data, memory->max);
}

std::string_view PemText::view() const {
    char *data = nullptr;
    const long length = bio_ ? BIO_get_mem_data(bio_.get(), &data) : 0;
    if (length <= 0 || data == nullptr) return {};
    return {data, static_cast<size_t>(length)};
}

bool CopyOut(std::string_view text, char *buffer, uint32_t size) {
    if (size == 0) return false;
    if (text.size() >= size) {
        buffer[0] = '\0';
        return false;
    }
    std::memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
    return true;
}

bool WriteSyncedFile(const char *path, std::string_view content, mode_t mode) {
    if (std::string_view(path).starts_with(kScratchDir) && !MakeScratchDirPrivate()) return false;
    // Created private, so that key material is never readable by others,
    // not even before the mode is set.
    UniqueFd fd(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    const bool written = fd.Valid() && fchmod(fd.Get(), mode) == 0 &&
                         WriteAll(fd.Get(), content.data(), content.size()) &&
                         fsync(fd.Get()) == 0 && fd.Close();
    if (!written)
        BMCCERT_DIAG(kLevelHandling, "Write file %s failed! strerrno:%s\n", path,
                     std::strerror(errno));
    return written;
}

bool SyncDirectory(const char *dir) {
    UniqueFd fd(open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd.Valid() && fsync(fd.Get()) == 0 && fd.Close();
}

} // namespace bmccert::sslcert
