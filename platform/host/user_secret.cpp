// Sealing of user passwords with AES-256-GCM. The key is 32 random bytes in
// the controller's key file, created on first use with mode 0600 whatever
// the umask, and published with link() so that two processes creating it at
// once agree on one key.
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>

#include "user_store.h"

namespace bmcsim {
namespace {

constexpr size_t kKeySize = 32;
constexpr int kTagSize = 16;
using CipherContext = Owned<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>;

// The key, wiped when it goes out of scope.
struct Key {
    unsigned char bytes[kKeySize] = {};
    Key() = default;
    Key(const Key &) = delete;
    Key &operator=(const Key &) = delete;
    ~Key() { OPENSSL_cleanse(bytes, sizeof bytes); }
};

[[nodiscard]] bool ReadKey(Key &key) noexcept {
    UniqueFd fd(::open(BMCSIM_USER_KEY, O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    struct stat st;
    if (!fd.Valid() || ::fstat(fd.Get(), &st) != 0 || st.st_size != kKeySize) return false;
    size_t got = 0;
    while (got < kKeySize) {
        const ssize_t n = ::read(fd.Get(), key.bytes + got, kKeySize - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        got += static_cast<size_t>(n);
    }
    return true;
}

[[nodiscard]] bool CreateKey() noexcept {
    if (!OnController() || !MakeDirs(BMCSIM_STATE_DIR)) return false;
    Key key;
    if (RAND_bytes(key.bytes, kKeySize) != 1) return false;
    char temp[] = BMCSIM_STATE_DIR "/.user.key.XXXXXX";
    UniqueFd fd(::mkstemp(temp)); // mkstemp creates with mode 0600
    if (!fd.Valid()) return false;
    const bool written = ::fchmod(fd.Get(), 0600) == 0 &&
                         ::write(fd.Get(), key.bytes, kKeySize) == static_cast<ssize_t>(kKeySize) &&
                         ::fsync(fd.Get()) == 0 && fd.Close();
    // link() fails when another process published its key first; that key wins.
    const bool published = written && (::link(temp, BMCSIM_USER_KEY) == 0 || errno == EEXIST);
    (void)::unlink(temp);
    return published;
}

[[nodiscard]] bool LoadKey(Key &key) noexcept {
    return ReadKey(key) || (CreateKey() && ReadKey(key));
}

} // namespace

bool SealPassword(uint8_t userId, const char *password, SealedPassword &out) noexcept {
    std::memset(&out, 0, sizeof out);
    const size_t length = password == nullptr ? 0 : strnlen(password, kPasswordMax + 1);
    if (length > kPasswordMax) return false;
    Key key;
    CipherContext ctx(EVP_CIPHER_CTX_new());
    if (!ctx || !LoadKey(key) || RAND_bytes(out.iv, sizeof out.iv) != 1) return false;
    out.version = 1;
    out.userId = userId;
    out.length = static_cast<uint8_t>(length);
    int n = 0;
    const bool sealed =
        EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, key.bytes, out.iv) == 1 &&
        EVP_EncryptUpdate(ctx.get(), nullptr, &n, &out.version, 3) == 1 &&
        (length == 0 || EVP_EncryptUpdate(ctx.get(), out.cipher, &n,
                                          reinterpret_cast<const unsigned char *>(password),
                                          static_cast<int>(length)) == 1) &&
        EVP_EncryptFinal_ex(ctx.get(), out.cipher + length, &n) == 1 &&
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, kTagSize, out.tag) == 1;
    if (!sealed) OPENSSL_cleanse(&out, sizeof out);
    return sealed;
}

bool OpenPassword(const SealedPassword &sealed, char *out, size_t size) noexcept {
    if (out == nullptr || sealed.version != 1 || sealed.length > kPasswordMax) return false;
    if (static_cast<size_t>(sealed.length) + 1 > size) return false; // never a cut password
    Key key;
    CipherContext ctx(EVP_CIPHER_CTX_new());
    if (!ctx || !LoadKey(key)) return false;
    unsigned char clear[kPasswordMax + 1] = {};
    unsigned char tag[kTagSize];
    std::memcpy(tag, sealed.tag, sizeof tag);
    int n = 0;
    const bool opened =
        EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, key.bytes, sealed.iv) == 1 &&
        EVP_DecryptUpdate(ctx.get(), nullptr, &n, &sealed.version, 3) == 1 &&
        (sealed.length == 0 ||
         EVP_DecryptUpdate(ctx.get(), clear, &n, sealed.cipher, sealed.length) == 1) &&
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, kTagSize, tag) == 1 &&
        EVP_DecryptFinal_ex(ctx.get(), clear + sealed.length, &n) == 1;
    if (opened) {
        std::memcpy(out, clear, sealed.length);
        out[sealed.length] = '\0';
    }
    OPENSSL_cleanse(clear, sizeof clear);
    return opened;
}

} // namespace bmcsim
