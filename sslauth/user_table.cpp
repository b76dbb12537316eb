// The user table as the user service hands it over. It carries every
// user's enciphered password, so it lives only for one call and is wiped
// before its memory goes back to the allocator.
#include <cstdlib>

#include <openssl/crypto.h>

#include "sslauth/sslauth_internal.h"

namespace bmccert::sslauth {
namespace {

// The published sizes are the user service's own.
static_assert(SSL_AUTH_USER_TABLE_SIZE == BMC_USER_TABLE_SIZE);
static_assert(SSL_AUTH_USER_RECORD_SIZE == BMC_USER_RECORD_SIZE);
static_assert(SSL_AUTH_MAX_USERS == BMC_USER_RECORD_COUNT);

[[nodiscard]] constexpr size_t At(uint32_t k, size_t offset) {
    return static_cast<size_t>(k) * BMC_USER_RECORD_SIZE + offset;
}

} // namespace

UserTable::UserTable() noexcept
    : bytes_(static_cast<uint8_t *>(std::calloc(1, BMC_USER_TABLE_SIZE))) {}

UserTable::~UserTable() {
    if (bytes_ == nullptr) return;
    OPENSSL_cleanse(bytes_, BMC_USER_TABLE_SIZE);
    std::free(bytes_);
}

uint8_t UserTable::UserId(uint32_t k) const noexcept {
    return k < SSL_AUTH_MAX_USERS ? bytes_[At(k, BMC_USER_ID_OFFSET)] : 0;
}

uint8_t UserTable::PrivRole(uint32_t k) const noexcept {
    return k < SSL_AUTH_MAX_USERS ? bytes_[At(k, BMC_USER_ROLE_OFFSET)] : 0;
}

void UserTable::CopyName(uint32_t k, char *pcDst, size_t uiSize) const noexcept {
    if (pcDst == nullptr || uiSize == 0) return;
    if (k >= SSL_AUTH_MAX_USERS) {
        pcDst[0] = '\0';
        return;
    }
    const char *name = reinterpret_cast<const char *>(bytes_ + At(k, BMC_USER_NAME_OFFSET));
    size_t length = strnlen(name, BMC_USER_NAME_FIELD - 1);
    if (length > uiSize - 1) length = uiSize - 1;
    std::memcpy(pcDst, name, length);
    pcDst[length] = '\0';
}

const uint8_t *UserTable::SealedPassword(uint32_t k) const noexcept {
    return k < SSL_AUTH_MAX_USERS ? bytes_ + At(k, BMC_USER_SECRET_OFFSET) : nullptr;
}

void UserTable::FillBrief(uint32_t k, CertUserBrief &brief) const noexcept {
    brief.ucUserId = UserId(k);
    brief.ucPrivRole = PrivRole(k);
    (void)LIB_USERPRIV_GetRoleNameByPrivRole(brief.ucPrivRole, sizeof brief.szRoleName,
                                             brief.szRoleName);
    CopyName(k, brief.szUserName, sizeof brief.szUserName);
}

} // namespace bmccert::sslauth
